/** The sensor's word for "nothing in sight" is its largest distance. */
const kNoEcho = 2.5;

/** m; nearer than this counts as an obstacle. */
export const kNear = 0.7;

/** A distance that is one: undefined when nothing echoes. */
export function shownDistance(distance: number | undefined): number | undefined {
  return distance !== undefined && distance < kNoEcho ? distance : undefined;
}
