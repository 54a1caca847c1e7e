/** Whether an element is on the screen, so that nothing is drawn that nobody sees. */
export class WhileVisible {
  isVisible = true;
  /** The element has come into sight. */
  onAppear: () => void = () => {};

  constructor(element: Element) {
    new IntersectionObserver((entries) => {
      const wasVisible = this.isVisible;
      this.isVisible = entries.at(-1)?.isIntersecting ?? false;
      if (this.isVisible && !wasVisible) {
        this.onAppear();
      }
    }).observe(element);
  }
}
