/** What is on the screen. */
export interface InView {
  /** Nobody looks at the page at all. */
  isHidden: boolean;
  /** The reader looks at the past: the present is not shown. */
  isPast: boolean;
  robot: boolean;
  /** The robot has moved just now. */
  isMoving: boolean;
  sonarOn: boolean;
  /** Topics of the cards on the screen. */
  cards: readonly string[];
  /** Topics of the plotted lines, while the plots are on the screen. */
  plots: readonly string[];
}

/** ms between two samples of a topic, for a card: no faster than its numbers can be read. */
const kForCards: Readonly<Record<string, number>> = {
  "/feet": 200,
  "/sonar": 200,
  "/touch": 100,
  "/stiffness": 1_000,
  "/temperatures": 1_000,
  "/battery": 1_000,
};
/** For a movement to be seen as one; a robot at rest is looked at now and then. */
const kMoving = 50;
const kAtRest = 150;
const kInclination = 100;
const kPlots = 50;
/** What the first line says of the robot, and whether its loop goes on. */
const kAlways: Readonly<Record<string, number>> = { "/pose": 200, "/tick": 500 };

/** ms between two samples of each topic that is of interest. */
export function samplingOf(view: InView): ReadonlyMap<string, number> {
  const intervals = new Map<string, number>();
  const want = (topic: string, interval: number): void => {
    intervals.set(topic, Math.min(intervals.get(topic) ?? Infinity, interval));
  };
  if (view.isHidden) {
    return intervals;
  }
  Object.entries(kAlways).forEach(([topic, interval]) => {
    want(topic, interval);
  });
  if (view.isPast) {
    return intervals;
  }
  if (view.robot) {
    want("/joint_states", view.isMoving ? kMoving : kAtRest);
    want("/imu", view.isMoving ? kMoving : kInclination);
    want("/touch", kForCards["/touch"] ?? kPlots);
    if (view.sonarOn) {
      want("/sonar", kForCards["/sonar"] ?? kPlots);
    }
  }
  view.cards.forEach((topic) => {
    want(topic, kForCards[topic] ?? kForCards["/battery"] ?? kPlots);
  });
  view.plots.forEach((topic) => {
    want(topic, kPlots);
  });
  return intervals;
}
