import assert from "node:assert/strict";
import { test } from "node:test";
import { Sampling } from "../../src/host/sampling.js";
import { samplingOf, type InView } from "../../src/model/interests.js";

const channel = (id: number, topic: string) => ({
  id,
  topic,
  encoding: "json",
  schemaName: "",
  schema: "",
});

function make(): { sut: Sampling; sent: { op: string }[] } {
  const sent: { op: string }[] = [];
  let id = 0;
  const sut = new Sampling(
    (text) => sent.push(JSON.parse(text) as { op: string }),
    () => ++id,
  );
  sut.want("/imu", 100);
  sut.want("/feet", 0);
  sut.offered([channel(7, "/imu"), channel(8, "/feet")]);
  return { sut, sent };
}

test("one sample is taken, and the next when it is due", () => {
  const { sut, sent } = make();
  sut.turn(1_000);
  assert.deepEqual(sent.pop(), { op: "subscribe", subscriptions: [{ id: 1, channelId: 7 }] });
  assert.equal(sut.taken(1), "/imu");
  sut.turn(1_001);
  assert.deepEqual(sent.pop(), { op: "unsubscribe", subscriptionIds: [1] });
  sut.turn(1_099);
  assert.deepEqual(sent, []);
  sut.turn(1_100);
  assert.deepEqual(sent.pop(), { op: "subscribe", subscriptions: [{ id: 2, channelId: 7 }] });
});

test("a late timer does not make samples rarer", () => {
  const { sut, sent } = make();
  const asked: number[] = [];
  for (let now = 0; now < 1_000; now += 30) {
    sent.length = 0;
    sut.turn(now);
    if (sent.some(({ op }) => op === "subscribe")) {
      asked.push(now);
    }
    sut.taken(asked.length);
  }
  assert.equal(asked.length, 10);
});

test("a sample that does not come is waited for, and let go when nobody wants it", () => {
  const { sut, sent } = make();
  sut.turn(0);
  sent.length = 0;
  sut.turn(5_000);
  assert.deepEqual(sent, []);
  sut.want("/imu", 0);
  sut.turn(5_001);
  assert.deepEqual(sent.pop(), { op: "unsubscribe", subscriptionIds: [1] });
  assert.equal(sut.taken(1), undefined);
});

test("where time stands still a subscription stays", () => {
  const { sut, sent } = make();
  sut.isHolding = true;
  sut.turn(0);
  sent.length = 0;
  assert.equal(sut.taken(1), "/imu");
  assert.equal(sut.taken(1), "/imu");
  sut.turn(1_000);
  assert.deepEqual(sent, []);
});

const nothing: InView = {
  isHidden: false,
  isPast: false,
  robot: false,
  isMoving: false,
  sonarOn: false,
  cards: [],
  plots: [],
};

test("of a page that nobody sees nothing is sampled", () => {
  const view = { ...nothing, isHidden: true, robot: true, cards: ["/feet"], plots: ["/imu"] };
  assert.equal(samplingOf(view).size, 0);
});

test("only what is in view is sampled, beside what the first line says", () => {
  assert.deepEqual([...samplingOf(nothing).keys()], ["/pose", "/tick"]);
  const topics = [...samplingOf({ ...nothing, cards: ["/battery"] }).keys()];
  assert.deepEqual(topics, ["/pose", "/tick", "/battery"]);
});

test("nothing is sampled more often than twenty times a second", () => {
  const view = {
    ...nothing,
    robot: true,
    isMoving: true,
    sonarOn: true,
    cards: ["/feet", "/touch"],
    plots: ["/feet", "/imu", "/currents"],
  };
  assert.equal(Math.min(...samplingOf(view).values()), 50);
});

test("a robot at rest is looked at less often than one that moves", () => {
  const interval = (isMoving: boolean) =>
    samplingOf({ ...nothing, robot: true, isMoving }).get("/joint_states");
  assert.equal(interval(true), 50);
  assert.equal(interval(false), 150);
});
