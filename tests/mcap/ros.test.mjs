// ROS messages and bags as other programs' readers see them.
//
// GK_PROGRAM is the gk program, GK_SOURCE_DIR the repository.

import {after, before, test} from "node:test";
import assert from "node:assert/strict";
import {execFileSync, spawnSync} from "node:child_process";
import {existsSync, mkdtempSync, readFileSync, readdirSync, rmSync, writeFileSync} from "node:fs";
import {open} from "node:fs/promises";
import {tmpdir} from "node:os";
import {join} from "node:path";

import {McapIndexedReader} from "@mcap/core";
import {FileHandleReadable} from "@mcap/nodejs";
import {loadDecompressHandlers} from "@mcap/support";
import {load} from "js-yaml";

import {codecOf, plain} from "./rosReader.mjs";

const program = process.env.GK_PROGRAM;
const source = process.env.GK_SOURCE_DIR;
const decompressHandlers = await loadDecompressHandlers();

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

function gk(...args) {
  return execFileSync(program, args, {encoding: "utf8", stdio: ["ignore", "pipe", "ignore"]});
}

/** Everything of a recording, messages in the order of their times. */
async function readAll(file) {
  const handle = await open(file, "r");
  try {
    const reader = await McapIndexedReader.Initialize({
      readable: new FileHandleReadable(handle),
      decompressHandlers,
    });
    const all = [];
    for await (const message of reader.readMessages({validateCrcs: true})) {
      all.push({...message, topic: reader.channelsById.get(message.channelId).topic});
    }
    return {reader, messages: all};
  } finally {
    await handle.close();
  }
}

const nanoseconds = ({sec, nanosec}) => BigInt(sec) * 1_000_000_000n + BigInt(nanosec);
const headYaw = "Device/SubDeviceList/HeadYaw/Position/Sensor/Value";

// A robot that is touched, pushed over and lifted, recorded and made a bag of.
let folder;
let recording;
let bag;
let metadata;

before(async () => {
  folder = mkdtempSync(join(tmpdir(), "gk-bag-"));
  recording = join(folder, "run.mcap");
  gk("run", "--robot", "sim", "--speed", "max", "--until", "36", "--quiet", "--record", recording,
     join(source, "examples/tour.jsonl"));
  gk("recording", "convert", recording, join(folder, "tour"), "--to", "ros2");
  bag = await readAll(join(folder, "tour/tour_0.mcap"));
  for (const message of bag.messages) {
    const {schemaId} = bag.reader.channelsById.get(message.channelId);
    const schema = bag.reader.schemasById.get(schemaId);
    schema.codec ??= codecOf(new TextDecoder().decode(schema.data));
    message.value = schema.codec.reader.readMessage(message.data);
  }
  metadata = load(readFileSync(join(folder, "tour/metadata.yaml"), "utf8"));
});

after(() => rmSync(folder, {recursive: true}));

const of = (topic) => bag.messages.filter((message) => message.topic === topic);

test("a bag has messages of one encoding, each with a schema, an index and a count", () => {
  const {reader} = bag;
  assert.equal(reader.header.profile, "ros2");
  const names = new Set();
  for (const schema of reader.schemasById.values()) {
    assert.equal(schema.encoding, "ros2msg");
    assert.match(schema.name, /^[a-z0-9_]+\/msg\/[A-Za-z0-9]+$/);
    assert.ok(!names.has(schema.name), schema.name);
    names.add(schema.name);
  }
  for (const channel of reader.channelsById.values()) {
    assert.equal(channel.messageEncoding, "cdr");
    assert.ok(reader.schemasById.has(channel.schemaId), channel.topic);
    assert.match(channel.metadata.get("topic_type_hash"), /^RIHS01_[0-9a-f]{64}$/);
    assert.match(channel.metadata.get("offered_qos_profiles"), /^- history: 1\n/);
  }
  assert.equal(Number(reader.statistics.messageCount), bag.messages.length);
  assert.equal(reader.statistics.channelCount, reader.channelsById.size);
  assert.ok(reader.chunkIndexes.length > 0);
  for (const chunk of reader.chunkIndexes) {
    assert.equal(chunk.compression, "zstd");
    assert.ok(chunk.messageIndexLength > 0n);
  }
});

test("every message of a bag is as long as its type says", () => {
  for (const {data, value, channelId} of bag.messages) {
    const {codec} = bag.reader.schemasById.get(bag.reader.channelsById.get(channelId).schemaId);
    const text = (typeof value.data === "string" && value.data) || value.msg;
    // The writer counts characters, not bytes.
    if (text === undefined || /^[\x00-\x7f]*$/.test(text)) {
      assert.equal(codec.writer.writeMessage(value).byteLength, data.byteLength);
    }
  }
});

test("metadata.yaml tells what the file holds", () => {
  assert.deepEqual(Object.keys(metadata), ["rosbag2_bagfile_information"]);
  const info = metadata.rosbag2_bagfile_information;
  const times = bag.messages.map(({logTime}) => logTime);
  const begin = times.reduce((a, b) => (a < b ? a : b));
  const end = times.reduce((a, b) => (a > b ? a : b));
  const count = bag.messages.length;
  assert.equal(info.version, 5);
  assert.equal(info.storage_identifier, "mcap");
  assert.equal(info.compression_format, "");
  assert.equal(info.compression_mode, "");
  assert.equal(info.message_count, count);
  assert.deepEqual(info.relative_file_paths, ["tour_0.mcap"]);
  const duration = {nanoseconds: Number(end - begin)};
  // Too large for a number of this language: the text has all of it.
  const text = readFileSync(join(folder, "tour/metadata.yaml"), "utf8");
  assert.equal(text.split(`nanoseconds_since_epoch: ${begin}\n`).length, 3);
  assert.deepEqual(info.duration, duration);
  assert.equal(info.files.length, 1);
  assert.equal(info.files[0].path, "tour_0.mcap");
  assert.deepEqual(info.files[0].duration, duration);
  assert.equal(info.files[0].message_count, count);
  const topics = new Map();
  for (const {topic_metadata: topic, message_count} of info.topics_with_message_count) {
    assert.ok(!topics.has(topic.name), topic.name);
    topics.set(topic.name, topic);
    assert.equal(message_count, of(topic.name).length, topic.name);
    assert.equal(topic.serialization_format, "cdr");
  }
  for (const channel of bag.reader.channelsById.values()) {
    const topic = topics.get(channel.topic);
    assert.equal(topic.type, bag.reader.schemasById.get(channel.schemaId).name);
    assert.equal(topic.offered_qos_profiles, channel.metadata.get("offered_qos_profiles"));
  }
  assert.equal(topics.size, bag.reader.channelsById.size);
});

test("profiles are told in numbers", () => {
  const forever = {sec: 9223372036, nsec: 854775807};
  const profile = (topic) => {
    const channel = [...bag.reader.channelsById.values()].find((one) => one.topic === topic);
    return load(channel.metadata.get("offered_qos_profiles"));
  };
  const stream = {
    history: 1, depth: 10, reliability: 1, durability: 2, deadline: forever, lifespan: forever,
    liveliness: 1, liveliness_lease_duration: forever, avoid_ros_namespace_conventions: false,
  };
  assert.deepEqual(profile("/imu/data"), [stream]);
  assert.deepEqual(profile("/tf"), [{...stream, depth: 100}]);
  assert.deepEqual(profile("/tf_static"), [{...stream, depth: 1, durability: 1}]);
  assert.deepEqual(profile("/events"), [{...stream, depth: 100}]);
});

test("latched topics come first", () => {
  const latched = ["/robot_description", "/tf_static", "/touch/head_front", "/battery_state"];
  const first = bag.messages.findIndex(({topic}) => topic === "/joint_states");
  for (const topic of latched) {
    const place = bag.messages.findIndex((message) => message.topic === topic);
    assert.ok(place >= 0 && place < first, topic);
    assert.equal(bag.messages[place].logTime, bag.messages[0].logTime);
  }
  assert.match(of("/robot_description")[0].value.data, /<robot name=/);
});

test("stamps are the times of the messages", () => {
  for (const {topic, logTime, publishTime, value} of bag.messages) {
    const stamp = value.header?.stamp ?? value.stamp ?? value.transforms?.[0].header.stamp;
    if (stamp !== undefined) {
      assert.equal(nanoseconds(stamp), logTime, topic);
    }
    assert.equal(publishTime, logTime);
  }
});

test("every tick is there, with the values of the recording", () => {
  const samples = gk("replay", recording, "--out", "-", "--only", "sample", "--sample", headYaw)
    .trimEnd().split("\n").map((line) => JSON.parse(line));
  const joints = of("/joint_states");
  assert.equal(joints.length, samples.length);
  const begin = joints[0].logTime - BigInt(Math.round(samples[0].t * 1e6)) * 1000n;
  const place = joints[0].value.name.indexOf("HeadYaw");
  assert.equal(joints[0].value.name.length, 25);
  samples.forEach(({t, values}, i) => {
    assert.equal(joints[i].logTime, begin + BigInt(Math.round(t * 1e6)) * 1000n);
    assert.equal(joints[i].value.position[place], Math.fround(values[headYaw]));
    assert.equal(joints[i].value.effort.length + joints[i].value.velocity.length, 0);
  });
});

test("events are those of the recording", async () => {
  const {messages: recorded} = await readAll(recording);
  const events = recorded.filter(({topic}) => topic === "/events");
  const told = of("/events");
  assert.ok(events.length > 30);
  assert.deepEqual(told.map(({value}) => value.data),
                   events.map(({data}) => new TextDecoder().decode(data)));
  assert.deepEqual(told.map(({logTime}) => logTime), events.map(({logTime}) => logTime));
});

test("the fall is seen", () => {
  const poses = of("/pose_name");
  const belly = poses.find(({value}) => value.data === "Belly");
  assert.ok(belly, "Belly");
  const imu = of("/imu/data").find(({logTime}) => logTime >= belly.logTime).value;
  // What weighs on the robot points up, whichever way it lies.
  const {x, y, z, w} = imu.orientation;
  const a = imu.linear_acceleration;
  const up = 2 * (x * z - w * y) * a.x + 2 * (y * z + w * x) * a.y +
    (1 - 2 * (x * x + y * y)) * a.z;
  assert.ok(Math.abs(up - 9.81) < 0.5, String(up));
  assert.ok(2 * Math.asin(Math.min(1, Math.hypot(x, y))) > 1.2);
});

test("touches are told when they begin and end", () => {
  assert.deepEqual(of("/touch/head_front").map(({value}) => value.data), [false, true, false]);
});

test("an obstacle is in sight, or nothing is", () => {
  const ranges = of("/sonar/left").map(({value}) => value.range);
  assert.ok(ranges.includes(Infinity));
  assert.ok(ranges.some((range) => range > 0.4 && range < 0.5));
});

test("standing feet carry the robot", () => {
  // Before it takes its first posture.
  const before = bag.messages[0].logTime + 13_000_000_000n;
  const last = (topic) => of(topic).findLast(({logTime}) => logTime < before).value;
  const weight = last("/l_foot/wrench").wrench.force.z + last("/r_foot/wrench").wrench.force.z;
  assert.ok(Math.abs(weight - 4.5 * 9.81) < 3, String(weight));
  for (const foot of ["/l_foot", "/r_foot"]) {
    const {force, torque} = last(foot + "/wrench").wrench;
    const {x, y} = last(foot + "/cop").point;
    assert.ok(Math.abs(x - -torque.y / force.z) < 1e-9 && Math.abs(y - torque.x / force.z) < 1e-9);
    assert.ok(x > -0.045 && x < 0.083, String(x));
  }
});

test("an existing folder stays as it is", () => {
  const result = spawnSync(program, ["recording", "convert", recording, join(folder, "tour"),
                                     "--to", "ros2"], {encoding: "utf8"});
  assert.equal(result.status, 1);
  assert.match(result.stderr, /tour exists already; .*tour-2 is free\n$/);
  assert.deepEqual(readdirSync(join(folder, "tour")).sort(), ["metadata.yaml", "tour_0.mcap"]);
});

test("of what cannot be read nothing is made", () => {
  const broken = join(folder, "broken.csv");
  writeFileSync(broken, "time,Device/SubDeviceList/US/Left/Sensor/Value\n0,1\n1,x\n");
  const result = spawnSync(program, ["recording", "convert", broken, join(folder, "none"),
                                     "--to", "ros2"], {encoding: "utf8"});
  assert.equal(result.status, 2);
  assert.match(result.stderr, /broken.csv:3: /);
  assert.ok(!existsSync(join(folder, "none")));
  assert.deepEqual(readdirSync(folder).sort(), ["broken.csv", "run.mcap", "tour"]);
});
