import assert from "node:assert/strict";
import { test } from "node:test";
import { formatDuration, formatNumber, formatValue } from "../../src/model/format.js";
import { jointWords } from "../../src/model/limbs.js";
import { splitUnit } from "../../src/model/units.js";

test("numbers have a true minus, no negative zero, and a dash where there is none", () => {
  assert.equal(formatNumber(-1.25, 1), "−1.3");
  assert.equal(formatNumber(-0.04, 1), "0.0");
  assert.equal(formatNumber(NaN, 1), "–");
  assert.equal(formatNumber(undefined, 1), "–");
});

test("durations change their unit at a minute and at an hour", () => {
  assert.equal(formatDuration(59.94), "59.9 s");
  assert.equal(formatDuration(59.95), "1 min 0 s");
  assert.equal(formatDuration(3599.4), "59 min 59 s");
  assert.equal(formatDuration(3599.5), "1 h 0 min");
  assert.equal(formatDuration(-1), "–");
});

test("values are short texts", () => {
  assert.equal(formatValue(0.42000001), "0.42");
  assert.equal(formatValue(-57), "−57");
  assert.equal(formatValue("Belly"), "Belly");
  assert.equal(formatValue(false), "false");
  assert.equal(formatValue({ float: "-inf" }), "−inf");
  assert.equal(formatValue([1, "a"]), '[1,"a"]');
  assert.equal(formatValue(null), "null");
  assert.equal(formatValue(undefined), "");
});

test("a field's name ends in its unit", () => {
  assert.deepEqual(splitUnit("left_total_weight_kg"), { label: "left total weight", unit: "kg" });
  assert.deepEqual(splitUnit("acc_x_m_per_s^2"), { label: "acc x", unit: "m/s²" });
  assert.deepEqual(splitUnit("HeadYaw_degC"), { label: "HeadYaw", unit: "°C" });
  assert.deepEqual(splitUnit("status"), { label: "status", unit: "" });
});

test("joints are told in words", () => {
  assert.equal(jointWords("LShoulderPitch"), "left shoulder pitch");
  assert.equal(jointWords("RHand"), "right hand");
  assert.equal(jointWords("HeadYaw"), "head yaw");
});
