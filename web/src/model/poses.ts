import { formatDuration } from "./format.js";
import type { Pose } from "./robotState.js";

/** By the code that the host gives the pose of each tick. */
export const kPoseNames: readonly string[] = [
  "Unknown",
  "Stand",
  "Sit",
  "Crouch",
  "Knee",
  "Frog",
  "Back",
  "Belly",
  "Left",
  "Right",
  "HeadBack",
];

const kPoseWords: Readonly<Record<string, string>> = {
  Stand: "Standing",
  Sit: "Sitting",
  Crouch: "Crouching",
  Knee: "Kneeling",
  Frog: "In the frog pose",
  Back: "On its back",
  Belly: "On its belly",
  Left: "On its left side",
  Right: "On its right side",
  HeadBack: "Upside down",
  Unknown: "In no known pose",
};

/** s; a pose that is gone for less is still there: sensors flicker. */
const kFlicker = 0.15;

export function poseWords(name: string): string {
  return kPoseWords[name] ?? name;
}

/** The pose in words. */
export interface PoseWords {
  headline: string;
  detail: string;
}

/**
 * A pose counts once it has lasted; until then the robot is changing. Both have a clock of their own,
 * and neither is told by the other's.
 * @param announcedAt when the announced pose was announced; @param now, in seconds of the run
 */
export function describePose(
  { announced, running, seconds }: Pose,
  announcedAt: number | undefined,
  now: number,
): PoseWords {
  const isChanging = running !== undefined && running !== announced && (seconds ?? 1) > kFlicker;
  if (isChanging) {
    const was = poseWords(announced);
    return {
      headline: "Changing",
      detail: `was ${was.charAt(0).toLowerCase()}${was.slice(1)}`,
    };
  }
  // The clock of the running pose began before the pose was announced, but starts anew at a flicker.
  const sinceAnnounced = announcedAt === undefined ? 0 : now - announcedAt;
  const lasted = Math.max(sinceAnnounced, running === announced ? (seconds ?? 0) : 0);
  return {
    headline: poseWords(announced),
    detail: lasted > 0 ? `for ${formatDuration(Math.max(lasted, 0))}` : "",
  };
}
