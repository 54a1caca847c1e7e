import assert from "node:assert/strict";
import { test } from "node:test";
import { kStateTopics, readEvent, readLogLine, shownLoop } from "../../src/host/channels.js";
import type { RobotState } from "../../src/model/robotState.js";

function read(topic: string, members: Record<string, unknown>): RobotState {
  const reader = kStateTopics[topic];
  assert.ok(reader);
  return reader(members);
}

test("a foot without cells still has its weight", () => {
  const { feet } = read("/feet", { left_total_weight_kg: 2.2, left_contact: 1, contact: 1 });
  assert.deepEqual(feet?.left, { weight: 2.2, hasContact: true, cells: undefined });
  assert.deepEqual(feet?.right, { weight: undefined, hasContact: false, cells: undefined });
});

test("a foot's cells are front left, front right, rear left, rear right", () => {
  const members = {
    right_rear_right_kg: 4,
    right_front_left_kg: 1,
    right_front_right_kg: 2,
    right_rear_left_kg: 3,
  };
  assert.deepEqual(read("/feet", members).feet?.right.cells, [1, 2, 3, 4]);
});

test("battery bits are 0x80 charging, 0x40 full, 0x20 discharging", () => {
  const flags = (status: number): boolean[] => {
    const { battery } = read("/battery", { status });
    return [
      battery?.isCharging ?? false,
      battery?.isFull ?? false,
      battery?.isDischarging ?? false,
    ];
  };
  assert.deepEqual(flags(0x80), [true, false, false]);
  assert.deepEqual(flags(0x40), [false, true, false]);
  assert.deepEqual(flags(0x20), [false, false, true]);
});

test("the charge in percent is what the module tells, before it tells the share", () => {
  assert.equal(read("/battery", { charge_percent: 57, charge_ratio: 0.575 }).battery?.charge, 57);
  assert.equal(read("/battery", { charge_ratio: 0.5 }).battery?.charge, 50);
  assert.equal(read("/battery", {}).battery?.charge, undefined);
});

test("only boards with an error are told", () => {
  const { temperatures } = read("/temperatures", {
    HeadYaw_degC: 41,
    HeadBoard_error: 33,
    LeftArmBoard_error: 0,
  });
  assert.deepEqual(temperatures?.joints, new Map([["HeadYaw", 41]]));
  assert.deepEqual(temperatures?.boards, new Map([["HeadBoard", 33]]));
});

test("joints without a number keep their place", () => {
  const joints = [
    { name: "HeadYaw", position: 0.5 },
    { name: "HeadPitch", position: null },
    {},
    null,
  ];
  assert.deepEqual(read("/joint_states", { joints }).joints, new Map([["HeadYaw", 0.5]]));
});

test("the pose that is announced and the one of this tick are two", () => {
  assert.deepEqual(read("/pose", { name: "Stand", code: 7, since_s: 0.2 }).pose, {
    announced: "Stand",
    running: "Belly",
    seconds: 0.2,
  });
  assert.deepEqual(read("/pose", { name: "", since_s: 2 }).pose, {
    announced: "Unknown",
    running: undefined,
    seconds: 2,
  });
});

test("touch sensors go by their place on the body", () => {
  const { touch } = read("/touch", { head_front: 1, left_foot_bumper_right: 1 });
  assert.deepEqual(
    [...(touch ?? [])].filter(([, value]) => value > 0),
    [
      ["HeadFront", 1],
      ["LFootRight", 1],
    ],
  );
});

test("events and log lines need a name and a text", () => {
  assert.deepEqual(readEvent({ name: "E", t_s: 3, kind: "micro", value: false }), {
    time: 3,
    name: "E",
    value: false,
    isMicro: true,
  });
  assert.equal(readEvent({ t_s: 3, value: 1 }), undefined);
  assert.deepEqual(readLogLine({ level: 4, message: "m", name: "c" }, 3), {
    time: 3,
    level: 4,
    category: "c",
    text: "m",
  });
  assert.equal(readLogLine("m", 3), undefined);
});

test("the pace that is shown is the sensors', whoever else has a loop", () => {
  assert.equal(read("/tick", { module: "GKMine", tick: 7 }).tick?.module, "GKMine");
  const mine = { module: "GKMine" };
  const sensors = { module: "GKSensors" };
  assert.equal(shownLoop([mine, sensors]), sensors);
  assert.equal(shownLoop([mine]), mine);
  assert.equal(shownLoop([]), undefined);
});
