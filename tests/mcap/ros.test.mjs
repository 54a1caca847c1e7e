// ROS messages and bags as other programs' readers see them.
//
// GK_PROGRAM is the gk program, GK_SOURCE_DIR the repository.

import {test} from "node:test";
import assert from "node:assert/strict";
import {readFileSync} from "node:fs";
import {join} from "node:path";

import {codecOf, plain} from "./rosReader.mjs";

const source = process.env.GK_SOURCE_DIR;

// tests/messages holds our encoder against the same file.
const messages = JSON.parse(readFileSync(join(source, "tests/messages/ros_messages.json"), "utf8"));

for (const {name, definition, cdr, value} of messages) {
  test(`${name} is decoded, and encoded to the same bytes`, () => {
    const {reader, writer} = codecOf(definition);
    const decoded = reader.readMessage(Buffer.from(cdr, "hex"));
    assert.deepEqual(plain(decoded), value);
    assert.equal(Buffer.from(writer.writeMessage(decoded)).toString("hex"), cdr);
  });
}
