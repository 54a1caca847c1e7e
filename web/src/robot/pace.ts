/** ms between two pictures where drawing costs nothing: 30 in a second are fluent. */
const kShortest = 33;
/** Fewer than 15 pictures in a second are none of a movement. */
const kLongest = 66;
/** Weight of the newest measurement. */
const kNewest = 0.2;
/** Drawing may take this share of the time. */
const kShare = 1 / 3;

/** How often to draw: less often where the machine is slow, so that everything else stays quick. */
export class Pace {
  private wait = 0;

  /** Tells how long a picture had to wait for its turn, in ms. A busy machine lets it wait long. */
  measured(milliseconds: number): void {
    this.wait += kNewest * (milliseconds - this.wait);
  }

  /** ms between two pictures. */
  get interval(): number {
    return Math.min(Math.max(this.wait / kShare, kShortest), kLongest);
  }
}
