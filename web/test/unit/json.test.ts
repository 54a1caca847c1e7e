import assert from "node:assert/strict";
import { test } from "node:test";
import { jsonOfFloat, jsonOfInput } from "../../src/host/json.js";

test("a float has a point or an exponent", () => {
  assert.equal(jsonOfFloat(1), "1.0");
  assert.equal(jsonOfFloat(-0), "-0.0");
  assert.equal(jsonOfFloat(0.25), "0.25");
  assert.equal(jsonOfFloat(1e21), "1e+21");
});

test("floats that JSON does not know are objects", () => {
  assert.deepEqual([NaN, Infinity, -Infinity].map(jsonOfFloat), [
    '{"float":"nan"}',
    '{"float":"inf"}',
    '{"float":"-inf"}',
  ]);
});

test("what was typed becomes JSON of the parameter's type", () => {
  assert.equal(jsonOfInput(" 7 ", "int"), "7");
  assert.equal(jsonOfInput("+7", "int"), "7");
  assert.equal(jsonOfInput("7", "float"), "7.0");
  assert.equal(jsonOfInput("-inf", "float"), '{"float":"-inf"}');
  assert.equal(jsonOfInput('a "b"', "string"), '"a \\"b\\""');
  assert.equal(jsonOfInput("true", "bool"), "true");
  assert.equal(jsonOfInput("[1, 2.5]", "value"), "[1, 2.5]");
});

test("what does not fit the parameter's type is refused", () => {
  const wrong: [string, string][] = [
    ["7.5", "int"],
    ["", "int"],
    ["", "float"],
    ["x", "float"],
    ["yes", "bool"],
    ["{", "value"],
    ["", "vector of int"],
  ];
  for (const [text, type] of wrong) {
    assert.throws(() => jsonOfInput(text, type), /^Error: needs /, `${type} ${text}`);
  }
});
