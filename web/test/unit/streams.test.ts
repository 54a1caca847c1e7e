import assert from "node:assert/strict";
import { test } from "node:test";
import { numbersOf } from "../../src/model/numbers.js";
import { PlotStore } from "../../src/model/plotStore.js";
import { Rate } from "../../src/model/rate.js";
import { Ring } from "../../src/model/ring.js";
import { Samples } from "../../src/model/samples.js";

test("a full ring drops its oldest item and counts on", () => {
  const sut = new Ring<number>(3);
  [1, 2, 3, 4].forEach((item) => {
    sut.push(item);
  });
  assert.deepEqual([...sut.newestFirst()], [4, 3, 2]);
  assert.equal(sut.at(0), 2);
  assert.equal(sut.total, 4);
});

test("samples give the rows from a time on, also after rows were dropped", () => {
  const sut = new Samples(4);
  for (let t = 0; t < 6; ++t) {
    sut.push(t, new Map([["a", t * 10]]));
  }
  const { times, values } = sut.since("a", 3);
  assert.deepEqual([...times], [3, 4, 5]);
  assert.deepEqual([...values], [30, 40, 50]);
  assert.equal(sut.latest("a"), 50);
});

test("a field that a row lacks is NaN there", () => {
  const sut = new Samples(4);
  sut.push(0, new Map([["a", 1]]));
  sut.push(1, new Map([["b", 2]]));
  assert.deepEqual([...sut.since("a", 0).values], [1, NaN]);
  assert.deepEqual([...sut.since("b", 0).values], [NaN, 2]);
  assert.deepEqual([...sut.since("c", 0).values], [NaN, NaN]);
});

test("samples that go back in time start afresh", () => {
  const sut = new Samples(4);
  sut.push(5, new Map([["a", 1]]));
  sut.push(1, new Map([["a", 2]]));
  assert.deepEqual([...sut.since("a", 0).times], [1]);
});

test("numbers are found by their paths, lists by their names", () => {
  const payload = {
    timestamp: { sec: 1 },
    left: { kg: 2 },
    on: true,
    text: "x",
    none: null,
    joints: [{ name: "HeadYaw", position: 0.5 }],
    list: [7],
  };
  assert.deepEqual(
    numbersOf(payload),
    new Map([
      ["left.kg", 2],
      ["on", 1],
      ["joints.HeadYaw.position", 0.5],
      ["list.0", 7],
    ]),
  );
});

test("a memory key holds its value until it changes", () => {
  const sut = new PlotStore();
  sut.addKey("K", 1, 0);
  sut.addKey("K", 2, 10);
  sut.addKey("K", "no number", 11);
  const { times, values } = sut.rows({ topic: "memory", field: "K" }, 5, 12);
  assert.deepEqual([...times], [5, 10, 12]);
  assert.deepEqual([...values], [1, 2, 2]);
});

test("a rate is taken over the last seconds and survives a restart of the count", () => {
  const sut = new Rate(2);
  assert.equal(sut.perSecond, undefined);
  for (let t = 0; t <= 5; ++t) {
    sut.add(t < 3 ? 0 : (t - 3) * 50, t);
  }
  assert.equal(sut.perSecond, 50);
  sut.add(0, 6);
  assert.equal(sut.perSecond, undefined);
});
