import assert from "node:assert/strict";
import { test } from "node:test";
import { decodeBinary, decodeText, subscribeText, watchTexts } from "../../src/host/protocol.js";

/** A frame as bytes in hexadecimal, and then text. */
function frame(hex: string, text = ""): ArrayBuffer {
  const bytes = Buffer.concat([Buffer.from(hex.replaceAll(" ", ""), "hex"), Buffer.from(text)]);
  return bytes.buffer.slice(bytes.byteOffset, bytes.byteOffset + bytes.length) as ArrayBuffer;
}

test("a message has its subscription, its time in seconds and its payload", () => {
  // Half a second after 2026-01-01T00:00:00 UTC.
  const time = Buffer.alloc(8);
  time.writeBigUInt64LE(1_767_225_600_500_000_000n);
  assert.deepEqual(decodeBinary(frame(`01 07000000 ${time.toString("hex")}`, '{"left_m":0.42}')), {
    op: "message",
    subscriptionId: 7,
    time: 1767225600.5,
    payload: { left_m: 0.42 },
  });
});

test("the host's time is told in seconds", () => {
  assert.deepEqual(decodeBinary(frame("02 00ca9a3b00000000")), { op: "time", time: 1 });
});

test("frames that are too short, of another kind or without JSON are left out", () => {
  for (const broken of [
    "",
    "01",
    "01 07000000 00ca9a3b000000",
    "02 00ca9a3b",
    "05 00",
    "01 07000000 00ca9a3b00000000 7b",
  ]) {
    assert.equal(decodeBinary(frame(broken)), undefined, broken);
  }
});

test("a channel without id or topic is left out of an advertisement", () => {
  const text =
    '{"op":"advertise","channels":[{"id":1,"topic":"/feet","encoding":"json"},{"topic":"/x"},{"id":2},null]}';
  assert.deepEqual(decodeText(text), {
    op: "advertise",
    channels: [{ id: 1, topic: "/feet", encoding: "json", schemaName: "", schema: "" }],
  });
});

test("a status keeps its id, by which a later one replaces it", () => {
  assert.deepEqual(decodeText('{"op":"status","level":1,"message":"slow","id":"loss"}'), {
    op: "status",
    status: { level: 1, message: "slow", id: "loss" },
  });
});

test("text that is no JSON, no object or has an unknown op is left out", () => {
  for (const text of [
    "",
    "{",
    "[]",
    "7",
    "null",
    '{"op":"advertiseServices","services":[]}',
    "{}",
  ]) {
    assert.equal(decodeText(text), undefined, text);
  }
});

test("values of memory keys come by name", () => {
  assert.deepEqual(
    decodeText('{"op":"parameterValues","parameters":[{"name":"K","value":1.5},{"name":"unset"}]}'),
    {
      op: "parameterValues",
      values: new Map<string, unknown>([
        ["K", 1.5],
        ["unset", undefined],
      ]),
    },
  );
});

test("what the page sends has the protocol's field names", () => {
  assert.equal(
    subscribeText([{ id: 1, channelId: 9 }]),
    '{"op":"subscribe","subscriptions":[{"id":1,"channelId":9}]}',
  );
  assert.deepEqual(watchTexts(["K"]), [
    '{"op":"getParameters","parameterNames":["K"]}',
    '{"op":"subscribeParameterUpdates","parameterNames":["K"]}',
  ]);
});
