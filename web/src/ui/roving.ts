/**
 * Makes the buttons of a container one stop of the Tab key: the arrow keys go from one to the next.
 * @param selector what counts as a button
 */
export function rove(container: HTMLElement, selector = "button"): void {
  const buttons = (): HTMLElement[] => [
    ...container.querySelectorAll<HTMLElement>(`${selector}:not(:disabled)`),
  ];
  const settle = (): void => {
    const all = buttons();
    const current = all.find((button) => button.tabIndex === 0) ?? all[0];
    all.forEach((button) => {
      button.tabIndex = button === current ? 0 : -1;
    });
  };
  container.addEventListener("focusin", ({ target }) => {
    buttons().forEach((button) => {
      button.tabIndex = button === target ? 0 : -1;
    });
  });
  container.addEventListener("keydown", (event) => {
    const all = buttons();
    const here = all.indexOf(event.target as HTMLElement);
    const next = nextIndex(event.key, here, all.length);
    if (here >= 0 && next !== undefined) {
      event.preventDefault();
      event.stopPropagation();
      all[next]?.focus();
      all[next]?.scrollIntoView({ block: "nearest" });
    }
  });
  new MutationObserver(settle).observe(container, { childList: true, subtree: true });
  settle();
}

function nextIndex(key: string, here: number, length: number): number | undefined {
  switch (key) {
    case "ArrowRight":
    case "ArrowDown":
      return Math.min(here + 1, length - 1);
    case "ArrowLeft":
    case "ArrowUp":
      return Math.max(here - 1, 0);
    case "Home":
      return 0;
    case "End":
      return length - 1;
    default:
      return undefined;
  }
}
