/** Writes of one key that wait are at most this many: its last change of state and the one before. */
const kMostWaiting = 2;

/**
 * Writes that go out one after the other. While a slider moves faster than the host answers, values
 * in between are left out; a press and its release both arrive, in this order.
 */
export class WriteQueue {
  private readonly waiting: { key: string; json: string }[] = [];
  private running: string | undefined;

  /** @param send never rejects */
  constructor(private readonly send: (key: string, json: string) => Promise<void>) {}

  add(key: string, json: string): void {
    const ofKey = this.waiting.filter((write) => write.key === key);
    const last = ofKey.at(-1);
    if (ofKey.length >= kMostWaiting && last !== undefined) {
      last.json = json;
    } else {
      this.waiting.push({ key, json });
    }
    if (this.running === undefined) {
      void this.drain();
    }
  }

  isWaiting(key: string): boolean {
    return this.running === key || this.waiting.some((write) => write.key === key);
  }

  private async drain(): Promise<void> {
    for (let next = this.waiting.shift(); next !== undefined; next = this.waiting.shift()) {
      this.running = next.key;
      await this.send(next.key, next.json);
    }
    this.running = undefined;
  }
}
