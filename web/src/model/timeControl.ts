import type { PlaybackState } from "../host/playback.js";

/** What the time line shows. Times in seconds of the run. */
export interface TimeView {
  /** The present; a moment of the past while the robot goes on; a recording that is played. */
  kind: "live" | "past" | "playback";
  begin: number;
  end: number;
  time: number;
  isPlaying: boolean;
  /** 0 for as fast as it goes. */
  speed: number;
  loop: readonly [from: number, to: number] | undefined;
}

/** Whoever moves in time. */
export interface TimeControl {
  readonly view: TimeView;
  seek(time: number): void;
  setPlaying(isPlaying: boolean): void;
  setSpeed(speed: number): void;
  /** One event on (1) or back (-1) among these times, which rise. */
  step(direction: 1 | -1, times: readonly number[]): void;
  /** One tick of the sensor loop. */
  tick(direction: 1 | -1): void;
  setLoop(span: readonly [number, number] | undefined): void;
  /** To the present, or to the end of a recording. */
  toEnd(): void;
}

/** s between two ticks, and between two samples that the host remembers. */
const kTick = 0.1;
/** s before the end that count as the end: playing on from there is the present. */
const kAtEnd = 0.15;

/** Looks back while the robot goes on. */
export class LiveTime implements TimeControl {
  onChange: () => void = () => {};

  private begin = 0;
  private end = 0;
  /** undefined for the present. */
  private time: number | undefined;
  private isPlaying = false;
  private speed = 1;
  private loop: readonly [number, number] | undefined;

  get view(): TimeView {
    const { begin, end, time, isPlaying, speed, loop } = this;
    return time === undefined
      ? { kind: "live", begin, end, time: end, isPlaying: true, speed: 1, loop: undefined }
      : { kind: "past", begin, end, time, isPlaying, speed, loop };
  }

  /** What can be looked at: the end is the present. */
  setSpan(begin: number, end: number): void {
    this.begin = Math.min(begin, end);
    this.end = end;
    if (this.time !== undefined && this.time < this.begin) {
      this.time = this.begin;
      this.onChange();
    }
  }

  /** @param seconds that have passed since this was last called */
  advance(seconds: number): void {
    if (this.time === undefined || !this.isPlaying) {
      return;
    }
    let next = this.time + seconds * (this.speed === 0 ? 100 : this.speed);
    if (this.loop !== undefined && next >= this.loop[1]) {
      next = this.loop[0];
    }
    this.seek(next);
  }

  seek(time: number): void {
    const isEnd = time >= this.end - kAtEnd;
    this.time = isEnd ? undefined : Math.max(time, this.begin);
    this.isPlaying &&= !isEnd;
    this.onChange();
  }

  setPlaying(isPlaying: boolean): void {
    // Holding the present makes it past.
    this.time ??= isPlaying ? undefined : this.end - 2 * kAtEnd;
    this.isPlaying = isPlaying && this.time !== undefined;
    this.onChange();
  }

  setSpeed(speed: number): void {
    this.speed = speed;
    this.onChange();
  }

  step(direction: 1 | -1, times: readonly number[]): void {
    const here = this.time ?? this.end;
    const next = nextOf(times, here, direction);
    this.isPlaying = false;
    this.seek(next ?? (direction > 0 ? this.end : this.begin));
  }

  tick(direction: 1 | -1): void {
    this.isPlaying = false;
    this.seek((this.time ?? this.end) + direction * kTick);
  }

  setLoop(span: readonly [number, number] | undefined): void {
    this.loop = span;
    this.onChange();
  }

  toEnd(): void {
    this.seek(Infinity);
  }
}

/** The time next to `here`, of times that rise. */
export function nextOf(
  times: readonly number[],
  here: number,
  direction: 1 | -1,
): number | undefined {
  const apart = 0.01;
  return direction > 0
    ? times.find((time) => time > here + apart)
    : times.findLast((time) => time < here - apart);
}

/** The calls of a host that plays a recording. */
export interface Player {
  play(): Promise<unknown>;
  pause(): Promise<unknown>;
  seek(time: number): Promise<unknown>;
  setSpeed(speed: number): Promise<unknown>;
  step(unit: "event" | "tick", count: number): Promise<unknown>;
  loop(span: readonly [number, number] | undefined): Promise<unknown>;
}

/** Moves the host's own clock, for all who look at it. */
export class PlaybackTime implements TimeControl {
  onChange: () => void = () => {};

  private state: PlaybackState | undefined;
  /** Where the reader has dragged to, until the host has been told: it is asked for one place at a time. */
  private wanted: number | undefined;
  private isSeeking = false;

  constructor(private readonly player: Player) {}

  get view(): TimeView {
    const { begin = 0, end = 0, time = 0, isPlaying = false, speed = 1, loop } = this.state ?? {};
    return { kind: "playback", begin, end, time: this.wanted ?? time, isPlaying, speed, loop };
  }

  show(state: PlaybackState): void {
    this.state = state;
    this.onChange();
  }

  seek(time: number): void {
    const { begin, end } = this.view;
    this.wanted = Math.min(Math.max(time, begin), end);
    this.onChange();
    if (!this.isSeeking) {
      void this.seekAll();
    }
  }

  setPlaying(isPlaying: boolean): void {
    void (isPlaying ? this.player.play() : this.player.pause()).catch(() => undefined);
  }

  setSpeed(speed: number): void {
    void this.player.setSpeed(speed).catch(() => undefined);
  }

  step(direction: 1 | -1, times: readonly number[]): void {
    const next = nextOf(times, this.view.time, direction);
    if (next !== undefined) {
      this.setPlaying(false);
      this.seek(next);
    }
  }

  tick(direction: 1 | -1): void {
    void this.player.step("tick", direction).catch(() => undefined);
  }

  setLoop(span: readonly [number, number] | undefined): void {
    void this.player.loop(span).catch(() => undefined);
  }

  toEnd(): void {
    this.setPlaying(false);
    this.seek(this.view.end);
  }

  private async seekAll(): Promise<void> {
    this.isSeeking = true;
    while (this.wanted !== undefined) {
      const time = this.wanted;
      await this.player.seek(time).catch(() => undefined);
      if (this.wanted === time) {
        this.wanted = undefined;
      }
    }
    this.isSeeking = false;
  }
}
