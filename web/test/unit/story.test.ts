import assert from "node:assert/strict";
import { test } from "node:test";
import { describePose } from "../../src/model/poses.js";
import { rowWords, Story } from "../../src/model/story.js";
import { findingWords, readVerdict } from "../../src/model/verdict.js";
import { Importance, Words } from "../../src/model/words.js";

function words(): Words {
  const sut = new Words();
  sut.load({
    events: [
      {
        name: "FrontTactilTouched",
        sentence: "Head front {value}",
        values: { "1": "Head touched in front", "0": "Head let go in front" },
        unit: "",
        digits: 0,
        importance: 1,
        subject: "touch",
      },
      {
        name: "SonarLeftDetected",
        sentence: "Something on the left at {value}",
        values: {},
        unit: "m",
        digits: 2,
        importance: 1,
        subject: "sonar",
      },
      {
        name: "BatteryChargeChanged",
        sentence: "Battery at {value}",
        values: {},
        unit: "%",
        digits: 0,
        importance: 1,
        subject: "battery",
      },
      {
        name: "HotJoinDetected",
        sentence: "Board {value} is too hot",
        values: {},
        unit: "",
        digits: 0,
        importance: 3,
        subject: "temperatures",
      },
      {
        name: "robotPoseChanged",
        sentence: "Pose: {value}",
        values: { Belly: "Lies on its belly" },
        importances: { Belly: 3 },
        unit: "",
        digits: 0,
        importance: 2,
        subject: "pose",
      },
    ],
  });
  return sut;
}

function make(): {
  sut: Story;
  raise: (time: number, name: string, value: unknown) => void;
  lines: () => string[];
} {
  const sut = new Story(words());
  return {
    sut,
    raise: (time, name, value) => {
      sut.addEvent({ time, name, value, isMicro: false });
    },
    lines: () => [...sut.rows.newestFirst()].map(rowWords),
  };
}

test("an event is said in the host's words, with its unit", () => {
  const sut = words();
  assert.equal(sut.of("SonarLeftDetected", 0.4321).text, "Something on the left at 0.43 m");
  assert.equal(sut.of("FrontTactilTouched", 1).text, "Head touched in front");
  assert.equal(sut.of("robotPoseChanged", "Belly").importance, Importance.Alarming);
  assert.equal(sut.of("robotPoseChanged", "Sit").importance, Importance.Notable);
});

test("an event that the host has no words for is its name and value", () => {
  assert.deepEqual(words().of("MyEvent", [1]), {
    text: "MyEvent [1]",
    subject: "other",
    importance: Importance.Ordinary,
  });
});

test("a touch and its end are one line", () => {
  const { raise, lines } = make();
  raise(1, "FrontTactilTouched", 1);
  raise(1.4, "FrontTactilTouched", 0);
  assert.deepEqual(lines(), ["Head touched in front for 0.4 s"]);
  raise(2, "FrontTactilTouched", 1);
  raise(2.1, "FrontTactilTouched", 0);
  assert.deepEqual(lines(), ["Head touched in front, 2 times"]);
});

test("a touch that ends late has a line for its end", () => {
  const { raise, lines } = make();
  raise(1, "FrontTactilTouched", 1);
  raise(11.1, "FrontTactilTouched", 0);
  assert.deepEqual(lines(), ["Head let go in front", "Head touched in front"]);
});

test("a sensor that tells at the start that nobody touches it is no news", () => {
  const { sut, raise } = make();
  raise(0, "FrontTactilTouched", 0);
  assert.equal(sut.rows.at(0)?.importance, Importance.Background);
});

test("the same again within five seconds is a repeat, later it is news", () => {
  const { raise, lines } = make();
  raise(0, "SonarLeftDetected", 0.5);
  raise(5, "SonarLeftDetected", 0.5);
  assert.deepEqual(lines(), ["Something on the left at 0.50 m, 2 times"]);
  raise(10.1, "SonarLeftDetected", 0.5);
  assert.equal(lines().length, 2);
});

test("a charge that sinks while nothing else happens is one line", () => {
  const { raise, lines } = make();
  raise(0, "BatteryChargeChanged", 99);
  raise(40, "BatteryChargeChanged", 98);
  assert.deepEqual(lines(), ["Battery at 98 %"]);
  raise(50, "robotPoseChanged", "Sit");
  raise(80, "BatteryChargeChanged", 97);
  assert.deepEqual(lines(), ["Battery at 97 %", "Pose: Sit", "Battery at 98 %"]);
});

test("of a device's key the name is enough", () => {
  const { raise, lines } = make();
  raise(0, "HotJoinDetected", "Device/DeviceList/HeadBoard/Error");
  assert.deepEqual(lines(), ["Board HeadBoard is too hot"]);
});

test("what is told twice, as remembered and as it comes, counts once", () => {
  const { raise, lines } = make();
  raise(1, "robotPoseChanged", "Sit");
  raise(1, "robotPoseChanged", "Sit");
  raise(0.5, "robotPoseChanged", "Stand");
  assert.deepEqual(lines(), ["Pose: Sit"]);
});

test("a new start of the host is a line of its own, and what was before is over", () => {
  const { sut, raise, lines } = make();
  raise(100, "robotPoseChanged", "Sit");
  sut.restart();
  raise(1, "robotPoseChanged", "Stand");
  assert.deepEqual(lines(), ["Pose: Stand", "The host was started anew", "Pose: Sit"]);
  assert.deepEqual(
    [...sut.present()].map(({ time }) => time),
    [1, 0],
  );
  assert.deepEqual(sut.poseAt(5), { name: "Stand", since: 1 });
  assert.equal(sut.poseAt(0.5), undefined);
});

test("a pose is told with its own clock, and changing in between", () => {
  const pose = { announced: "Stand", running: "Stand", seconds: 0.2 };
  assert.deepEqual(describePose(pose, 10, 40), { headline: "Standing", detail: "for 30.0 s" });
  const fallen = { ...pose, running: "Belly" };
  assert.deepEqual(describePose(fallen, 10, 40), { headline: "Changing", detail: "was standing" });
});

test("a pose that is gone for a few ticks is still there", () => {
  const flicker = { announced: "Stand", running: "Unknown", seconds: 0.15 };
  assert.equal(describePose(flicker, 0, 9).headline, "Standing");
  assert.equal(describePose({ ...flicker, seconds: 0.16 }, 0, 9).headline, "Changing");
});

test("a pose from before the page's memory lasts as long as the host says", () => {
  const pose = { announced: "Sit", running: "Sit", seconds: 700 };
  assert.equal(describePose(pose, undefined, 900).detail, "for 11 min 40 s");
});

test("a finding says how long ago it began", () => {
  const [finding] = readVerdict([
    { since: 3, level: 2, text: "Fell onto its belly", advice: "Stand it up", subject: "pose" },
    { level: 1 },
    null,
  ]);
  assert.ok(finding);
  assert.equal(findingWords(finding, 10.4), "Fell onto its belly · 7 s ago");
  assert.equal(findingWords({ ...finding, since: NaN }, 10), "Fell onto its belly");
});
