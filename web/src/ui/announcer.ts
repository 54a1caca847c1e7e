const kPause = 2_000;

/**
 * Tells screen readers what matters, politely: at most one text in two seconds, the newest of each
 * subject.
 */
export class Announcer {
  private readonly waiting = new Map<string, string>();
  private isPausing = false;

  /** @param region an element with aria-live="polite" */
  constructor(private readonly region: HTMLElement) {}

  say(subject: string, text: string): void {
    this.waiting.set(subject, text);
    if (!this.isPausing) {
      this.speak();
    }
  }

  private speak(): void {
    this.isPausing = this.waiting.size > 0;
    if (!this.isPausing) {
      return;
    }
    this.region.textContent = [...this.waiting.values()].join(" ");
    this.waiting.clear();
    setTimeout(() => {
      this.speak();
    }, kPause);
  }
}
