import type { Inclination } from "../model/robotState.js";

/** s in which most of the way to a new sample is gone. */
const kSmooth = 0.07;
/** rad; less than this is noise of the sensors, not movement. */
const kNoise = 0.006;

/** Where the joints are drawn: on the way from one sample to the next, still while only noise comes. */
export class Motion {
  readonly joints = new Map<string, number>();
  inclination: Inclination = { roll: 0, pitch: 0 };

  private readonly targets = new Map<string, number>();
  private target: Inclination = { roll: 0, pitch: 0 };
  private isFirst = true;

  /** @param isSmooth false where nothing may move by itself */
  constructor(private readonly isSmooth: () => boolean) {}

  /** True when everything is somewhere else at once: with the first sample. */
  aim(
    joints: ReadonlyMap<string, number> | undefined,
    inclination: Inclination | undefined,
  ): boolean {
    joints?.forEach((angle, joint) => {
      const before = this.targets.get(joint) ?? Infinity;
      if (Math.abs(angle - before) > kNoise) {
        this.targets.set(joint, angle);
      }
    });
    if (inclination !== undefined) {
      const { roll, pitch } = this.target;
      const moved = Math.max(
        Math.abs(inclination.roll - roll),
        Math.abs(inclination.pitch - pitch),
      );
      if (moved > kNoise) {
        this.target = inclination;
      }
    }
    if (!this.isFirst || joints === undefined) {
      return false;
    }
    this.isFirst = false;
    this.jump();
    return true;
  }

  /** Puts everything where it was aimed at. */
  jump(): void {
    this.targets.forEach((angle, joint) => this.joints.set(joint, angle));
    this.inclination = this.target;
  }

  /** @param seconds since the last picture */
  advance(seconds: number): void {
    const share = this.isSmooth() ? 1 - Math.exp(-seconds / kSmooth) : 1;
    const near = (from: number, to: number): number =>
      Math.abs(to - from) < kNoise / 2 ? to : from + (to - from) * share;
    this.targets.forEach((angle, joint) => {
      this.joints.set(joint, near(this.joints.get(joint) ?? angle, angle));
    });
    const { roll, pitch } = this.inclination;
    this.inclination = {
      roll: near(roll, this.target.roll),
      pitch: near(pitch, this.target.pitch),
    };
  }

  /** Not all is where it was aimed at. */
  get isMoving(): boolean {
    const { roll, pitch } = this.inclination;
    return (
      roll !== this.target.roll ||
      pitch !== this.target.pitch ||
      [...this.targets].some(([joint, angle]) => this.joints.get(joint) !== angle)
    );
  }
}
