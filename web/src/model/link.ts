import type { ConnectionState } from "../host/connection.js";
import type { Source } from "../host/hostInfo.js";
import type { PlaybackState } from "../host/playback.js";
import { formatRunTime } from "./format.js";

// How fresh what the page shows is, in words.

/** s without a change of any sensor after which they count as silent: noise alone changes them. */
const kSilentAfter = 5;

/** ms without a value after which what is shown counts as old: 75 ticks of the sensor loop. */
export const kStaleAfter = 1_500;

export type LinkKind =
  "connecting" | "live" | "recording" | "ended" | "playback" | "stale" | "lost" | "locked";

export interface Link {
  kind: LinkKind;
  /** One or two words. */
  short: string;
  /** What the reader should know; empty while all is well. */
  explanation: string;
}

/**
 * @param valuesAt when the last value came, or undefined when none came yet; both this and `now` in
 * milliseconds of one clock
 */
export function describeLink(
  state: ConnectionState,
  isLocked: boolean,
  valuesAt: number | undefined,
  now: number,
): Link {
  const age = valuesAt === undefined ? undefined : now - valuesAt;
  if (state.kind === "connected") {
    if (age === undefined) {
      return {
        kind: "stale",
        short: "No values yet",
        explanation: "Connected, but the host has not sent any values yet.",
      };
    }
    return age < kStaleAfter
      ? { kind: "live", short: "Live", explanation: "" }
      : {
          kind: "stale",
          short: "Stale",
          explanation: `Connected, but the values are ${ageText(age)} old: the sensor loop is silent.`,
        };
  }
  if (isLocked) {
    return { kind: "locked", short: "Locked", explanation: "This host asks for its token." };
  }
  const old = age === undefined ? "" : ` What you see is ${ageText(age)} old.`;
  if (state.kind === "waiting") {
    const seconds = Math.max(0, Math.ceil((state.retryAt - now) / 1000));
    return {
      kind: "lost",
      short: "Not connected",
      explanation: `Not connected to the host.${old} Next try in ${seconds} s.`,
    };
  }
  return age === undefined
    ? { kind: "connecting", short: "Connecting", explanation: "" }
    : {
        kind: "lost",
        short: "Not connected",
        explanation: `Not connected to the host.${old} Trying again.`,
      };
}

/**
 * What a connection shows, where that is not a robot that lives: a recording that is run comes to its
 * end, one that is played stands still when it is told to.
 * @param now seconds of the run
 * @param silence seconds since any sensor's value has changed
 */
export function describeSource(
  link: Link,
  source: Source | undefined,
  playback: PlaybackState | undefined,
  now: number,
  silence: number | undefined,
): Link {
  if (link.kind !== "live" && link.kind !== "stale") {
    return link;
  }
  if (playback !== undefined) {
    const name = fileName(playback.file);
    return {
      kind: "playback",
      short: `${playback.isPlaying ? "Playing" : "Paused"} ${name}`.trim(),
      explanation: "",
    };
  }
  if (source?.kind !== "recording") {
    return link.kind === "live" && (silence ?? 0) > kSilentAfter ? silent(silence ?? 0) : link;
  }
  const length = source.end === undefined ? "" : formatRunTime(source.end, 0);
  if (source.isEnded) {
    return {
      kind: "ended",
      short: "Ended",
      explanation: `The recording ${fileName(source.file)} has ended${length === "" ? "" : ` at ${length}`}. What you see is its last moment.`,
    };
  }
  return link.kind === "stale"
    ? link
    : {
        kind: "recording",
        short: `Recording, ${formatRunTime(now, 0)}${length === "" ? "" : ` of ${length}`}`,
        explanation: "",
      };
}

/** The loop goes on, but what it reads stands still. */
function silent(seconds: number): Link {
  return {
    kind: "ended",
    short: "Ended",
    explanation: `No sensor has told anything new for ${ageText(seconds * 1000)}: what is run has ended, or the robot is silent. What you see is its last moment.`,
  };
}

function fileName(path: string): string {
  return path.split("/").at(-1) ?? path;
}

function ageText(milliseconds: number): string {
  const seconds = Math.round(milliseconds / 1000);
  return seconds < 120 ? `${seconds} s` : `${Math.round(seconds / 60)} min`;
}
