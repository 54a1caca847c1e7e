import assert from "node:assert/strict";
import { beforeEach, test } from "node:test";
import { leaveSonar, listenToSonar } from "../../src/host/sonarSubscription.js";

interface Beacon {
  path: string;
  type: string;
  body: Promise<string>;
}

let beacons: Beacon[];
let answerCall: () => void;

beforeEach(async () => {
  beacons = [];
  Object.defineProperty(globalThis, "navigator", {
    configurable: true,
    value: {
      sendBeacon: (path: string, body: Blob) =>
        beacons.push({ path, type: body.type, body: body.text() }),
    },
  });
  globalThis.fetch = () =>
    new Promise((resolve) => {
      answerCall = () => {
        resolve(new Response('{"jsonrpc":"2.0","id":1,"result":null}'));
      };
    });
  const off = listenToSonar(false);
  answerCall();
  await off;
});

test("a page that goes takes back what it has switched on, once", async () => {
  const on = listenToSonar(true);
  answerCall();
  await on;
  leaveSonar();
  leaveSonar();
  assert.equal(beacons.length, 1);
  const [{ path, type, body }] = beacons as [Beacon];
  assert.deepEqual([path, type], ["/rpc", "application/json"]);
  assert.deepEqual(JSON.parse(await body), {
    jsonrpc: "2.0",
    id: 1,
    method: "GKSonar.unsubscribe",
    params: ["page"],
  });
});

test("a page that goes before the host has answered takes it back as well", () => {
  void listenToSonar(true);
  leaveSonar();
  assert.equal(beacons.length, 1);
});

test("a page that goes leaves alone what others have switched on", () => {
  leaveSonar();
  assert.equal(beacons.length, 0);
});
