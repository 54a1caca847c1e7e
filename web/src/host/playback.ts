import { asArray, asMembers, asText } from "./members.js";
import { call } from "./rest.js";

// A host that plays a recording: one clock for all who look at it.

/** Times in seconds of the run. */
export interface PlaybackState {
  time: number;
  begin: number;
  end: number;
  /** 0 for as fast as it goes. */
  speed: number;
  isPlaying: boolean;
  loop: readonly [from: number, to: number] | undefined;
  /** Time did not pass but was set. */
  didSeek: boolean;
  file: string;
  /** Wall time of second 0 of the run; undefined in answers to calls. */
  recordedAt: number | undefined;
  /** All events of the recording are known. */
  isIndexed: boolean;
}

export function readPlayback(payload: unknown): PlaybackState | undefined {
  const members = asMembers(payload);
  const { time, begin, end, speed } = members;
  const loop = asArray(members["loop"]).map(Number);
  return typeof time === "number" && typeof begin === "number" && typeof end === "number"
    ? {
        time,
        begin,
        end,
        speed: typeof speed === "number" ? speed : 1,
        isPlaying: members["playing"] === true,
        loop: loop.length === 2 ? [loop[0] ?? 0, loop[1] ?? 0] : undefined,
        didSeek: members["didSeek"] === true,
        file: asText(members["file"]),
        recordedAt: typeof members["recorded_s"] === "number" ? members["recorded_s"] : undefined,
        isIndexed: members["indexed"] !== false,
      }
    : undefined;
}

/** All raise CallError. */
export const playback = {
  play: () => call("Playback.play", []),
  pause: () => call("Playback.pause", []),
  seek: (time: number) => call("Playback.seek", [float(time)]),
  setSpeed: (speed: number) => call("Playback.speed", [float(speed)]),
  step: (unit: "event" | "tick", count: number) =>
    call("Playback.step", [JSON.stringify(unit), String(count)]),
  loop: (span: readonly [number, number] | undefined) =>
    call("Playback.loop", span === undefined ? ["null"] : span.map(float)),
};

function float(value: number): string {
  return value.toFixed(3);
}
