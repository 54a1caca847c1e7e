import type { Inclination } from "../model/robotState.js";
import { kLinks, kRoot, kRootShapes, type Shape, type Vector } from "./body.js";
import { dot } from "./projection.js";

// Where the parts of the body are, by plain arithmetic.

/** A rotation by rows, and a translation. */
export interface Frame {
  rows: readonly [Vector, Vector, Vector];
  at: Vector;
}

export interface Placed {
  shape: Shape;
  frame: Frame;
}

export function apply({ rows, at }: Frame, [x, y, z]: Vector): Vector {
  return [
    rows[0][0] * x + rows[0][1] * y + rows[0][2] * z + at[0],
    rows[1][0] * x + rows[1][1] * y + rows[1][2] * z + at[1],
    rows[2][0] * x + rows[2][1] * y + rows[2][2] * z + at[2],
  ];
}

/** The frame of every link by its joint; of the torso under its own name. */
export function framesOf(
  joints: ReadonlyMap<string, number>,
  { roll, pitch }: Inclination,
): Map<string, Frame> {
  const origin: Vector = [0, 0, 0];
  const root = compose(
    { rows: rotation([0, 1, 0], pitch), at: origin },
    { rows: rotation([1, 0, 0], roll), at: origin },
  );
  const frames = new Map([[kRoot, root]]);
  for (const { joint, parent, at, axis } of kLinks) {
    // The right hip yaw-pitch has no motor of its own: it follows the left one.
    const angle =
      joints.get(joint) ?? (joint === "RHipYawPitch" ? joints.get("LHipYawPitch") : undefined) ?? 0;
    frames.set(joint, compose(frames.get(parent) ?? root, { rows: rotation(axis, angle), at }));
  }
  return frames;
}

export function placedShapes(frames: ReadonlyMap<string, Frame>): Placed[] {
  const of = (name: string, shapes: readonly Shape[]): Placed[] => {
    const frame = frames.get(name);
    return frame === undefined ? [] : shapes.map((shape) => ({ shape, frame }));
  };
  return [...of(kRoot, kRootShapes), ...kLinks.flatMap(({ joint, shapes }) => of(joint, shapes))];
}

/** Height of the lowest point of a shape. */
export function lowestOf({ shape, frame }: Placed): number {
  switch (shape.kind) {
    case "box":
      return Math.min(...boxCorners(shape).map((corner) => apply(frame, corner)[2]));
    case "capsule":
      return Math.min(apply(frame, shape.from)[2], apply(frame, shape.to)[2]) - shape.radius;
    case "sphere":
      return apply(frame, shape.at)[2] - shape.radius;
  }
}

export function boxCorners({ size, at }: { size: Vector; at: Vector }): Vector[] {
  const [x, y, z] = at;
  const [a, b, c] = [size[0] / 2, size[1] / 2, size[2] / 2];
  return [-a, a].flatMap((dx) =>
    [-b, b].flatMap((dy) => [-c, c].map((dz): Vector => [x + dx, y + dy, z + dz])),
  );
}

function compose(outer: Frame, inner: Frame): Frame {
  const column = (i: 0 | 1 | 2): Vector => [inner.rows[0][i], inner.rows[1][i], inner.rows[2][i]];
  const columns = [column(0), column(1), column(2)] as const;
  const row = (r: Vector): Vector => [dot(r, columns[0]), dot(r, columns[1]), dot(r, columns[2])];
  return {
    rows: [row(outer.rows[0]), row(outer.rows[1]), row(outer.rows[2])],
    at: apply(outer, inner.at),
  };
}

/** About an axis of unit length, by Rodrigues' formula. */
function rotation([x, y, z]: Vector, angle: number): [Vector, Vector, Vector] {
  const c = Math.cos(angle);
  const s = Math.sin(angle);
  const t = 1 - c;
  return [
    [t * x * x + c, t * x * y - s * z, t * x * z + s * y],
    [t * x * y + s * z, t * y * y + c, t * y * z - s * x],
    [t * x * z - s * y, t * y * z + s * x, t * z * z + c],
  ];
}
