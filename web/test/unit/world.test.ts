import assert from "node:assert/strict";
import { test } from "node:test";
import { fits } from "../../src/model/eventFilter.js";
import { touchGroups } from "../../src/model/world.js";
import { WriteQueue } from "../../src/model/writeQueue.js";

test("touch keys are grouped by the part of the body", () => {
  const keys = [
    "Simulation/Posture",
    "Simulation/Touch/LFoot/Bumper/Left",
    "Simulation/Touch/ChestBoard/Button",
    "Simulation/Touch/Head/Touch/Front",
    "Simulation/Touch/Head/Touch/Rear",
  ];
  assert.deepEqual(touchGroups(keys), [
    {
      part: "Head",
      sensors: [
        { key: keys[3], label: "Front" },
        { key: keys[4], label: "Rear" },
      ],
    },
    { part: "Chest", sensors: [{ key: keys[2], label: "Button" }] },
    { part: "Left foot", sensors: [{ key: keys[1], label: "Left" }] },
  ]);
});

test("a slow host gets press and release in their order, and of a slider the last value", async () => {
  const sent: string[] = [];
  const pending: (() => void)[] = [];
  const sut = new WriteQueue((key, json) => {
    sent.push(`${key}=${json}`);
    return new Promise((resolve) => pending.push(resolve));
  });
  const finishOne = async (): Promise<void> => {
    pending.shift()?.();
    await Promise.resolve();
  };
  sut.add("slider", "1");
  sut.add("touch", "true");
  sut.add("touch", "false");
  ["2", "3", "4", "5"].forEach((json) => {
    sut.add("slider", json);
  });
  for (let i = 0; i < 5; ++i) {
    await finishOne();
  }
  assert.deepEqual(sent, ["slider=1", "touch=true", "touch=false", "slider=2", "slider=5"]);
  assert.equal(sut.isWaiting("slider"), false);
});

test("a filter's words must all occur, and those with a minus must not", () => {
  assert.equal(fits("LeftBumperPressed 1", "bumper left"), true);
  assert.equal(fits("LeftBumperPressed 1", "bumper right"), false);
  assert.equal(fits("LeftBumperPressed 1", "-bumper"), false);
  assert.equal(fits("LeftBumperPressed 1", ""), true);
  assert.equal(fits("battery -1", "-"), true);
});
