import assert from "node:assert/strict";
import { test } from "node:test";
import {
  byUrgency,
  fitsWords,
  readUpdate,
  summaryOf,
  webPage,
  wordsOf,
  type Robot,
} from "../../src/fleet/robots.js";

function robot(name: string, urgency: number, words = "well"): Robot {
  return {
    key: `default/${name}`,
    site: "default",
    name,
    urgency,
    level: 0,
    words,
    pose: "Stand",
    charge: undefined,
    isPlugged: false,
    backlog: undefined,
    event: undefined,
    page: "",
  };
}

test("an update is read, whatever is missing in it", () => {
  const update = readUpdate({
    session: "s",
    version: 7,
    all: true,
    cards: [
      { site: "lab", robot: "r1", urgency: 9, level: 2, words: "lost", event: null },
      { robot: 5, charge: "much" },
    ],
  });
  assert.equal(update.version, 7);
  assert.ok(update.isAll);
  assert.equal(update.robots[0]?.key, "lab/r1");
  assert.equal(update.robots[0]?.event, undefined);
  assert.equal(update.robots[1]?.name, "");
  assert.equal(update.robots[1]?.charge, undefined);
  assert.deepEqual(readUpdate("nonsense").robots, []);
});

test("the urgent come first, then names with their numbers in order", () => {
  const robots = [robot("r10", 1), robot("r2", 1), robot("away", 0), robot("lost", 9)];
  assert.deepEqual(
    robots.sort(byUrgency).map(({ name }) => name),
    ["lost", "r2", "r10", "away"],
  );
});

test("every word of the filter has to be on the card", () => {
  const lost = robot("r17", 9, "lost, battery at 8 %");
  assert.ok(fitsWords(lost, wordsOf("  R17 lost ")));
  assert.ok(fitsWords(lost, wordsOf("stand")));
  assert.ok(fitsWords(lost, wordsOf("")));
  assert.ok(!fitsWords(lost, wordsOf("r17 well")));
});

test("nothing but pages of the web are opened", () => {
  assert.equal(webPage("http://r1:8090/"), "http://r1:8090/");
  assert.equal(webPage("https://r1/"), "https://r1/");
  assert.equal(webPage("javascript:alert(1)"), "");
  assert.equal(webPage("//evil.example/"), "");
});

test("the summary counts who needs somebody", () => {
  assert.equal(summaryOf([]), "");
  assert.equal(summaryOf([robot("a", 1)]), "1 robot, all well");
  assert.equal(
    summaryOf([robot("a", 9), robot("b", 1), robot("c", 0), robot("d", 0)]),
    "4 robots: 1 needs somebody, 2 are offline",
  );
});
