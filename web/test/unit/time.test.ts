import assert from "node:assert/strict";
import { test } from "node:test";
import type { Past } from "../../src/host/past.js";
import { formatAge, formatRunTime } from "../../src/model/format.js";
import { History } from "../../src/model/history.js";
import { stateOf } from "../../src/model/pastState.js";
import { LiveTime, nextOf, PlaybackTime, type Player } from "../../src/model/timeControl.js";
import { Motion } from "../../src/robot/motion.js";

function live(): LiveTime {
  const sut = new LiveTime();
  sut.setSpan(10, 100);
  return sut;
}

test("the present goes on while one looks back, and the end is the present again", () => {
  const sut = live();
  assert.equal(sut.view.kind, "live");
  sut.seek(50);
  sut.setSpan(10, 101);
  assert.deepEqual([sut.view.kind, sut.view.time, sut.view.end], ["past", 50, 101]);
  sut.toEnd();
  assert.equal(sut.view.kind, "live");
});

test("one cannot look back farther than the host remembers", () => {
  const sut = live();
  sut.seek(3);
  assert.equal(sut.view.time, 10);
  sut.setSpan(12, 102);
  assert.equal(sut.view.time, 12);
});

test("the past plays at its speed until it is the present", () => {
  const sut = live();
  sut.seek(95);
  sut.setSpeed(2);
  sut.advance(1);
  assert.equal(sut.view.time, 95);
  sut.setPlaying(true);
  sut.advance(1);
  assert.equal(sut.view.time, 97);
  sut.advance(2);
  assert.equal(sut.view.kind, "live");
});

test("to hold the present is to look at the past", () => {
  const sut = live();
  sut.setPlaying(false);
  assert.equal(sut.view.kind, "past");
  assert.equal(sut.view.isPlaying, false);
});

test("a loop goes back to its beginning", () => {
  const sut = live();
  sut.seek(21);
  sut.setLoop([20, 22]);
  sut.setPlaying(true);
  sut.advance(1.5);
  assert.equal(sut.view.time, 20);
});

test("steps go from event to event, and past the last one to the present", () => {
  const sut = live();
  const times = [20, 30, 40];
  sut.step(-1, times);
  assert.equal(sut.view.time, 40);
  sut.step(-1, times);
  assert.equal(sut.view.time, 30);
  sut.step(1, times);
  sut.step(1, times);
  assert.equal(sut.view.kind, "live");
  assert.equal(nextOf(times, 30, 1), 40);
  assert.equal(nextOf(times, 20, -1), undefined);
});

test("while the host seeks, only the last of the places that were dragged over is asked for", async () => {
  const asked: number[] = [];
  const pending: (() => void)[] = [];
  const none = (): Promise<unknown> => Promise.resolve();
  const player: Player = {
    play: none,
    pause: none,
    setSpeed: none,
    step: none,
    loop: none,
    seek: (time) => {
      asked.push(time);
      return new Promise<void>((resolve) => pending.push(resolve));
    },
  };
  const sut = new PlaybackTime(player);
  sut.show({
    time: 0,
    begin: 0,
    end: 60,
    speed: 1,
    isPlaying: false,
    loop: undefined,
    didSeek: false,
    file: "",
    recordedAt: undefined,
    isIndexed: true,
  });
  [5, 6, 7, 99].forEach((time) => {
    sut.seek(time);
  });
  assert.equal(sut.view.time, 60);
  pending.shift()?.();
  await new Promise((resolve) => setImmediate(resolve));
  assert.deepEqual(asked, [5, 60]);
});

const past = (from: number, times: number[]): Past => ({
  session: "s",
  begin: 0,
  end: 100,
  from,
  to: from + 30,
  times,
  topics: {
    "/joint_states": { HeadYaw: times.map((time) => time / 100) },
    "/pose": { code: times.map(() => 1), since_s: times.map(() => null) },
  },
  events: [],
});

test("the past is fetched in pieces, each once", async () => {
  const asked: number[] = [];
  const sut = new History(
    ({ from }) => {
      asked.push(from);
      return Promise.resolve(past(from, [from, from + 29.9]));
    },
    () => 0,
  );
  sut.need({ from: 20, to: 40 });
  sut.need({ from: 20, to: 40 });
  await new Promise((resolve) => setImmediate(resolve));
  sut.need({ from: 20, to: 40 });
  assert.deepEqual(asked, [0, 30]);
  assert.equal(sut.at(31)?.["/joint_states"]?.["HeadYaw"], 0.3);
  const { times } = sut.rows({ topic: "/joint_states", field: "HeadYaw" }, 29, 31);
  assert.deepEqual([...times], [29.9, 30]);
});

test("a piece that goes on is asked for again, with patience", async () => {
  const asked: number[] = [];
  let now = 0;
  const sut = new History(
    ({ from }) => {
      asked.push(from);
      return Promise.resolve(past(from, [0, 4]));
    },
    () => now,
  );
  sut.need({ from: 0, to: 4 });
  await new Promise((resolve) => setImmediate(resolve));
  sut.need({ from: 0, to: 9 });
  assert.deepEqual(asked, [0]);
  now = 1_000;
  sut.need({ from: 0, to: 9 });
  assert.deepEqual(asked, [0, 0]);
});

test("a moment of the past is a state like any other, its pose as it was announced", () => {
  const sut = stateOf(
    { "/pose": { code: 7, since_s: 0.1 }, "/joint_states": { HeadYaw: 1 } },
    "Stand",
  );
  assert.deepEqual(sut.pose, { announced: "Stand", running: "Belly", seconds: 0.1 });
  assert.deepEqual(sut.joints, new Map([["HeadYaw", 1]]));
});

test("a robot is drawn on its way to a sample, and rests while only noise comes", () => {
  const sut = new Motion(() => true);
  assert.equal(sut.aim(new Map([["HeadYaw", 0]]), undefined), true);
  assert.equal(sut.isMoving, false);
  assert.equal(sut.aim(new Map([["HeadYaw", 0.005]]), undefined), false);
  assert.equal(sut.isMoving, false);
  sut.aim(new Map([["HeadYaw", 1]]), undefined);
  sut.advance(0.05);
  const angle = sut.joints.get("HeadYaw") ?? 0;
  assert.ok(angle > 0.4 && angle < 0.6);
  for (let i = 0; i < 20; ++i) {
    sut.advance(0.05);
  }
  assert.equal(sut.isMoving, false);
  assert.equal(sut.joints.get("HeadYaw"), 1);
});

test("times of a run and ages read as people say them", () => {
  assert.equal(formatRunTime(7.34), "0:07.3");
  assert.equal(formatRunTime(59.96), "1:00.0");
  assert.equal(formatRunTime(3753.1), "1:02:33.1");
  assert.equal(formatRunTime(31.9, 0), "0:32");
  assert.equal(formatAge(0.9), "just now");
  assert.equal(formatAge(59.9), "59 s ago");
  assert.equal(formatAge(60), "1 min ago");
  assert.equal(formatAge(7200), "2 h ago");
});
