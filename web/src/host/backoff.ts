const kFirstDelay = 500;
const kLongestDelay = 10_000;
/** Share of a delay that is left to chance, so that many pages do not come back at one instant. */
const kJitter = 0.2;

/** How long to wait before each attempt to connect: twice as long each time, up to ten seconds. */
export class Backoff {
  private attempt = 0;

  /** @param random as `Math.random` */
  constructor(private readonly random: () => number = Math.random) {}

  /** Milliseconds until the next attempt. */
  next(): number {
    const delay = Math.min(kFirstDelay * 2 ** this.attempt, kLongestDelay);
    this.attempt += 1;
    return Math.round(delay * (1 - kJitter * this.random()));
  }

  /** To be called when a connection stands. */
  reset(): void {
    this.attempt = 0;
  }
}
