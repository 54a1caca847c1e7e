// Recordings as the format's own readers see them.
//
// GK_PROGRAM is the gk program, GK_SOURCE_DIR the repository.

import {test} from "node:test";
import assert from "node:assert/strict";
import {execFileSync} from "node:child_process";
import {mkdtempSync, readFileSync, rmSync, writeFileSync} from "node:fs";
import {open} from "node:fs/promises";
import {tmpdir} from "node:os";
import {join} from "node:path";

import {McapIndexedReader, McapStreamReader} from "@mcap/core";
import {FileHandleReadable} from "@mcap/nodejs";
import {loadDecompressHandlers} from "@mcap/support";

const program = process.env.GK_PROGRAM;
const data = join(process.env.GK_SOURCE_DIR, "data");
const decompressHandlers = await loadDecompressHandlers();

function withFolder(work) {
  return async () => {
    const folder = mkdtempSync(join(tmpdir(), "gk-mcap-"));
    try {
      await work(folder);
    } finally {
      rmSync(folder, {recursive: true});
    }
  };
}

function gk(...args) {
  return execFileSync(program, args, {encoding: "utf8", stdio: ["ignore", "pipe", "ignore"]});
}

/// What `gk recording cat` says of every message.
function catLines(file) {
  return gk("recording", "cat", file).trimEnd().split("\n").map((line) => JSON.parse(line));
}

async function readIndexed(file) {
  const handle = await open(file, "r");
  try {
    const reader = await McapIndexedReader.Initialize({
      readable: new FileHandleReadable(handle),
      decompressHandlers,
    });
    const messages = [];
    for await (const message of reader.readMessages({validateCrcs: true})) {
      messages.push(message);
    }
    const metadata = [];
    for await (const one of reader.readMetadata()) {
      metadata.push(one);
    }
    return {reader, messages, metadata};
  } finally {
    await handle.close();
  }
}

function readStream(bytes) {
  const reader = new McapStreamReader({decompressHandlers, validateCrcs: true});
  reader.append(bytes);
  const messages = [];
  for (let record; (record = reader.nextRecord()); ) {
    if (record.type === "Message") {
      messages.push(record);
    }
  }
  return {messages, done: reader.done()};
}

for (const compression of ["zstd", "lz4", "none"]) {
  test(`a converted recording is read, compressed by ${compression}`, withFolder(async (folder) => {
    const file = join(folder, "a.mcap");
    gk("recording", "convert", "--compression", compression, join(data, "us_wallrobot.csv"), file);
    const {reader, messages} = await readIndexed(file);
    const lines = catLines(file);
    assert.equal(messages.length, lines.length);
    assert.deepEqual(
      messages.map((one) => one.logTime),
      lines.map((one) => BigInt(one.log_time)),
    );
    assert.equal(reader.statistics.messageCount, BigInt(lines.length));
    assert.equal(reader.statistics.chunkCount, reader.chunkIndexes.length);
    assert.equal(reader.chunkIndexes[0].compression, compression === "none" ? "" : compression);

    const stream = readStream(readFileSync(file));
    assert.equal(stream.messages.length, lines.length);
    assert.ok(stream.done);
  }));
}

test("a recorded run has its channels with schemas, indexes and metadata", withFolder(async (folder) => {
  const file = join(folder, "run.mcap");
  gk("run", "--speed", "max", "--until", "15", "--record", file, join(data, "imu_fall_forward.csv"));
  const {reader, messages, metadata} = await readIndexed(file);
  const topics = [...reader.channelsById.values()].map((channel) => channel.topic);
  for (const topic of ["/gk/run", "/events", "/tick", "/feet", "/imu", "/joint_states"]) {
    assert.ok(topics.includes(topic), topic);
  }
  const poses = [];
  for (const message of messages) {
    const channel = reader.channelsById.get(message.channelId);
    if (channel.messageEncoding !== "json") {
      continue;
    }
    const schema = reader.schemasById.get(channel.schemaId);
    assert.equal(schema.encoding, "jsonschema");
    assert.equal(JSON.parse(new TextDecoder().decode(schema.data)).type, "object");
    const value = JSON.parse(new TextDecoder().decode(message.data));
    if (channel.topic === "/event/robotPoseChanged") {
      poses.push(value.value);
    }
  }
  assert.ok(poses.includes("Belly"), poses.join());
  assert.equal(reader.statistics.messageCount, BigInt(messages.length));
  const about = metadata.find((one) => one.name === "gk.run").metadata;
  assert.equal(about.get("clock"), "turns");
  assert.match(about.get("version"), /^gksensors /);
}));

test("of a file that was cut off the stream reader reads what gk reads", withFolder(async (folder) => {
  const file = join(folder, "run.mcap");
  gk("run", "--speed", "max", "--until", "300", "--record", file, join(data, "us_wallrobot.csv"));
  const bytes = readFileSync(file);
  const cut = bytes.subarray(0, Math.floor(bytes.length * 0.9));
  const cutFile = join(folder, "cut.mcap");
  const saved = join(folder, "saved.mcap");
  writeFileSync(cutFile, cut);
  gk("recording", "recover", cutFile, saved);
  const {messages} = await readIndexed(saved);
  assert.equal(messages.length, readStream(cut).messages.length);
  await assert.rejects(readIndexed(cutFile));
}));
