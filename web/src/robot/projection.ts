import type { Vector } from "./body.js";

/** rad, of a view that is as wide as high or wider. */
const kFieldOfView = (32 * Math.PI) / 180;
const kNarrower = 1.2;

/** The vertical field of view in rad: a narrow view sees nearly as much to the sides as a square one. */
export function fieldOfView(aspect: number): number {
  return 2 * Math.atan(Math.tan(kFieldOfView / 2) / Math.min(aspect * kNarrower, 1));
}

/** A point on the picture, in pixels. */
export interface Point {
  x: number;
  y: number;
  /** m from the eye. */
  depth: number;
  /** Pixels a metre, at this depth. */
  scale: number;
}

/** From the scene onto a picture: a camera at `eye` that looks at `target`, z up. */
export class Projection {
  private readonly ahead: Vector;
  private readonly right: Vector;
  private readonly up: Vector;
  private readonly focal: number;

  constructor(
    readonly eye: Vector,
    target: Vector,
    private readonly width: number,
    private readonly height: number,
  ) {
    this.ahead = unit(minus(target, eye));
    this.right = unit(cross(this.ahead, [0, 0, 1]));
    this.up = cross(this.right, this.ahead);
    this.focal = height / 2 / Math.tan(fieldOfView(width / height) / 2);
  }

  point(at: Vector): Point {
    const from = minus(at, this.eye);
    const depth = Math.max(dot(from, this.ahead), 0.05);
    const scale = this.focal / depth;
    return {
      x: this.width / 2 + dot(from, this.right) * scale,
      y: this.height / 2 - dot(from, this.up) * scale,
      depth,
      scale,
    };
  }
}

export function minus(a: Vector, b: Vector): Vector {
  return [a[0] - b[0], a[1] - b[1], a[2] - b[2]];
}

export function dot(a: Vector, b: Vector): number {
  return a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
}

export function cross(a: Vector, b: Vector): Vector {
  return [a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]];
}

export function unit(a: Vector): Vector {
  const length = Math.hypot(...a) || 1;
  return [a[0] / length, a[1] / length, a[2] / length];
}
