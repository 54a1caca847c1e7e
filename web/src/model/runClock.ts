import { formatClock, formatRunTime } from "./format.js";

/** From seconds of the run to what a reader's clock shows. */
export class RunClock {
  /** Wall time of second 0; a guess until the host has told. */
  start = Date.now() / 1000;
  /** A recording is read by its own time, a robot that lives by the time of day. */
  isRecording = false;

  toRun(wallTime: number): number {
    return wallTime - this.start;
  }

  /** "14:03:07", or "0:31" in a recording. */
  text(time: number): string {
    return this.isRecording ? formatRunTime(time, 0) : formatClock(this.start + time).slice(0, 8);
  }

  /** "14:03:07.120", or "0:31.1" in a recording. */
  exact(time: number): string {
    return this.isRecording ? formatRunTime(time) : formatClock(this.start + time);
  }
}
