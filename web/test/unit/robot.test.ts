import assert from "node:assert/strict";
import { test } from "node:test";
import { Projection } from "../../src/robot/projection.js";
import { apply, framesOf, lowestOf, placedShapes } from "../../src/robot/skeleton.js";

const upright = { roll: 0, pitch: 0 };

function near(actual: readonly number[] | undefined, expected: readonly number[]): void {
  assert.ok(actual !== undefined);
  actual.forEach((value, i) => {
    assert.ok(Math.abs(value - (expected[i] ?? NaN)) < 1e-9, `${actual} is not ${expected}`);
  });
}

test("an upright robot has its head above its torso, and its soles lowest", () => {
  const frames = framesOf(new Map(), upright);
  near(frames.get("HeadPitch")?.at, [0, 0, 0.12]);
  const shapes = placedShapes(frames);
  const lowest = Math.min(...shapes.map(lowestOf));
  // Hip, thigh, shin, and the sole below the ankle.
  assert.ok(Math.abs(lowest - (-0.075 - 0.105 - 0.1 - 0.035 + 0.008 - 0.012)) < 1e-9);
});

test("a robot that leans forward has its head ahead, to the right its head right", () => {
  const head = (roll: number, pitch: number) => framesOf(new Map(), { roll, pitch }).get("HeadYaw");
  near(head(0, Math.PI / 2)?.at, [0.108, 0, 0]);
  near(head(Math.PI / 2, 0)?.at, [0, -0.108, 0]);
});

test("joints turn what hangs on them", () => {
  const elbow = (angle: number) =>
    framesOf(new Map([["LShoulderPitch", angle]]), upright).get("LElbowYaw");
  near(elbow(0)?.at, [0.1, 0.102, 0.078]);
  // The arm hangs down.
  near(elbow(Math.PI / 2)?.at, [0, 0.102, -0.022]);
  const frame = framesOf(new Map([["HeadYaw", Math.PI / 2]]), upright).get("HeadYaw");
  assert.ok(frame);
  near(apply(frame, [1, 0, 0]), [0, 1, 0.108]);
});

test("what the camera looks at lies in the middle of the picture, left of it on the right", () => {
  const sut = new Projection([2, 0, 0.3], [0, 0, 0.3], 400, 200);
  const middle = sut.point([0, 0, 0.3]);
  near([middle.x, middle.y, middle.depth], [200, 100, 2]);
  assert.ok(sut.point([0, 0.1, 0.3]).x > 200);
  assert.ok(sut.point([0, 0, 0.4]).y < 100);
});
