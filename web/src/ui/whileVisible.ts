/** What is at the edges lies under the first line or the time line. */
const kCovered = "-40px 0px -70px 0px";

/** Whether an element is on the screen, so that nothing is drawn that nobody sees. */
export class WhileVisible {
  isVisible = true;
  /** The element has come into sight. */
  onAppear: () => void = () => {};

  constructor(element: Element) {
    new IntersectionObserver(
      (entries) => {
        const wasVisible = this.isVisible;
        this.isVisible = entries.at(-1)?.isIntersecting ?? false;
        if (this.isVisible && !wasVisible) {
          this.onAppear();
        }
      },
      { rootMargin: kCovered },
    ).observe(element);
  }
}
