import assert from "node:assert/strict";
import { test } from "node:test";
import { Backoff } from "../../src/host/backoff.js";
import { describeLink, describeSource, kStaleAfter } from "../../src/model/link.js";
import { Losses } from "../../src/model/losses.js";
import { Pace } from "../../src/robot/pace.js";

const connected = { kind: "connected", hostName: "h" } as const;

test("values are live just below the limit and stale at it", () => {
  assert.equal(describeLink(connected, false, 0, kStaleAfter - 1).kind, "live");
  assert.equal(describeLink(connected, false, 0, kStaleAfter).kind, "stale");
  assert.equal(describeLink(connected, false, undefined, 0).kind, "stale");
});

test("without a connection it is said how old the values are and when the next try is", () => {
  const { kind, explanation } = describeLink(
    { kind: "waiting", retryAt: 12_400 },
    false,
    2_000,
    10_000,
  );
  assert.equal(kind, "lost");
  assert.equal(explanation, "Not connected to the host. What you see is 8 s old. Next try in 3 s.");
});

test("the first attempt is no trouble yet", () => {
  assert.deepEqual(describeLink({ kind: "connecting" }, false, undefined, 0), {
    kind: "connecting",
    short: "Connecting",
    explanation: "",
  });
  assert.equal(describeLink({ kind: "connecting" }, false, 0, 3_000).kind, "lost");
});

test("a host that asks for its token is locked rather than lost", () => {
  assert.equal(describeLink({ kind: "waiting", retryAt: 1 }, true, undefined, 0).kind, "locked");
});

test("the page waits twice as long after each failure, up to ten seconds", () => {
  const sut = new Backoff(() => 0);
  assert.deepEqual(
    [1, 2, 3, 4, 5, 6, 7].map(() => sut.next()),
    [500, 1000, 2000, 4000, 8000, 10_000, 10_000],
  );
  sut.reset();
  assert.equal(sut.next(), 500);
});

test("chance takes at most a fifth off a wait", () => {
  assert.equal(new Backoff(() => 1).next(), 400);
});

test("losses count on when the host has told them and forgotten them", () => {
  const sut = new Losses();
  const tell = (lost: string): void => {
    sut.add({
      level: 1,
      message: `this client reads too slowly; lost so far: ${lost}`,
      id: "loss",
    });
  };
  tell("12 of /imu, 3 of /events, 1 of /log, 2 of /event/robotPoseChanged");
  assert.deepEqual(sut.loss, { samples: 12, events: 6 });
  tell("20 of /joint_states");
  assert.deepEqual(sut.loss, { samples: 20, events: 0 });
  sut.remove(["loss"]);
  assert.deepEqual(sut.loss, { samples: 20, events: 0 });
  assert.equal(sut.message, "");
});

test("what the host merely remarks is no loss", () => {
  const sut = new Losses();
  sut.add({ level: 0, message: "hello", id: undefined });
  assert.equal(sut.message, "");
});

test("a slow machine draws less often, down to fifteen pictures in a second", () => {
  const sut = new Pace();
  assert.equal(sut.interval, 33);
  for (let i = 0; i < 50; ++i) {
    sut.measured(15);
  }
  assert.equal(Math.round(sut.interval), 45);
  for (let i = 0; i < 50; ++i) {
    sut.measured(1_000);
  }
  assert.equal(sut.interval, 66);
});

const live = { kind: "live", short: "Live", explanation: "" } as const;
const stale = { kind: "stale", short: "Stale", explanation: "old" } as const;
const recording = { kind: "recording", file: "/data/fall.csv", end: 65, isEnded: false } as const;

test("a recording that is run is no robot that lives, and says how far it is", () => {
  const { kind, short } = describeSource(live, recording, undefined, 31.4, 0);
  assert.equal(kind, "recording");
  assert.equal(short, "Recording, 0:31 of 1:05");
});

test("a recording that has ended is not stale but over", () => {
  const { kind, explanation } = describeSource(
    stale,
    { ...recording, isEnded: true },
    undefined,
    70,
    5,
  );
  assert.equal(kind, "ended");
  assert.match(explanation, /^The recording fall\.csv has ended at 1:05\./);
});

test("a recording that is played stands still without being stale", () => {
  const state = {
    time: 3,
    begin: 0,
    end: 9,
    speed: 1,
    isPlaying: false,
    loop: undefined,
    didSeek: false,
    file: "night.mcap",
    recordedAt: 0,
    isIndexed: true,
  };
  assert.deepEqual(describeSource(stale, undefined, state, 3, 99), {
    kind: "playback",
    short: "Paused night.mcap",
    explanation: "",
  });
});

test("a lost host is lost, whatever it showed", () => {
  const lost = { kind: "lost", short: "Not connected", explanation: "x" } as const;
  assert.equal(describeSource(lost, recording, undefined, 0, 0), lost);
});

test("sensors that tell nothing new for more than five seconds have ended", () => {
  assert.equal(describeSource(live, undefined, undefined, 9, 5), live);
  assert.equal(describeSource(live, undefined, undefined, 9, 5.1).kind, "ended");
});
