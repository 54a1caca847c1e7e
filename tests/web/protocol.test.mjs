// A real client of the protocol, against a real host.  Usage: GK_PROGRAM=.../gk node --test
import assert from "node:assert/strict";
import { spawn } from "node:child_process";
import { once } from "node:events";
import { after, before, test } from "node:test";
import foxglove from "@foxglove/ws-protocol";
import WebSocket from "ws";

const { FoxgloveClient } = foxglove;
const text = new TextDecoder();
let host;
let address;

/** Starts a host on a free port; resolves to "127.0.0.1:PORT". */
async function startHost() {
  host = spawn(process.env.GK_PROGRAM ?? "gk", ["run", "--robot", "none", "--listen", "127.0.0.1:0"], {
    stdio: ["ignore", "ignore", "pipe"],
  });
  for await (const chunk of host.stderr) {
    const found = /http:\/\/([^/]+)\//.exec(String(chunk));
    if (found) {
      return found[1];
    }
  }
  throw new Error("the host has ended");
}

before(async () => {
  address = await startHost();
});

after(async () => {
  host.kill("SIGTERM");
  await once(host, "exit");
});

/** A client and what it has been told about channels and services. */
async function connect(subprotocol = FoxgloveClient.SUPPORTED_SUBPROTOCOL) {
  const client = new FoxgloveClient({ ws: new WebSocket(`ws://${address}/`, [subprotocol]) });
  const problems = [];
  client.on("error", (error) => problems.push(error));
  const [info, channels, services] = await Promise.all([
    new Promise((resolve) => client.on("serverInfo", resolve)),
    new Promise((resolve) => client.on("advertise", resolve)),
    new Promise((resolve) => client.on("advertiseServices", resolve)),
  ]);
  const channel = (topic) => channels.find((one) => one.topic === topic);
  const service = (name) => services.find((one) => one.name === name);
  return { client, info, channels, channel, services, service, problems };
}

/** The next message of a subscription that is wanted, as JSON. */
function nextMessage(client, subscription, isWanted = () => true) {
  return new Promise((resolve) => {
    const listener = (message) => {
      if (message.subscriptionId !== subscription) {
        return;
      }
      const payload = JSON.parse(text.decode(message.data));
      if (isWanted(payload)) {
        client.off("message", listener);
        resolve({ timestamp: message.timestamp, payload });
      }
    };
    client.on("message", listener);
  });
}

function call(client, service, callId, request) {
  const data = new TextEncoder().encode(JSON.stringify(request));
  const answer = new Promise((resolve, reject) => {
    client.on("serviceCallResponse", (response) => {
      if (response.callId === callId) {
        resolve(JSON.parse(text.decode(response.data)));
      }
    });
    client.on("serviceCallFailure", (failure) => {
      if (failure.callId === callId) {
        reject(new Error(failure.message));
      }
    });
  });
  client.sendServiceCallRequest({
    serviceId: service.id,
    callId,
    encoding: "json",
    data: new DataView(data.buffer),
  });
  return answer;
}

const touch = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";

function setKey(key, value) {
  return fetch(`http://${address}/api/v1/memory/${key}`, {
    method: "PUT",
    headers: { "content-type": "application/json" },
    body: JSON.stringify(value),
  });
}

for (const subprotocol of ["foxglove.websocket.v1", "foxglove.sdk.v1"]) {
  test(`greets a client of ${subprotocol}`, async () => {
    const { client, info, channels, services, problems } = await connect(subprotocol);
    assert.equal(info.name, "gksensors");
    assert.deepEqual(info.capabilities, ["time", "services", "parameters", "parametersSubscribe"]);
    for (const { topic, encoding, schemaEncoding, schema } of channels) {
      if (topic.startsWith("/ros2/")) {
        assert.equal(encoding, "cdr");
        assert.equal(schemaEncoding, "ros2msg");
        continue;
      }
      assert.equal(encoding, "json");
      assert.equal(schemaEncoding, "jsonschema");
      assert.equal(JSON.parse(schema).type, "object");
    }
    for (const { request, response } of services) {
      assert.equal(JSON.parse(request.schema).type, "object");
      assert.equal(JSON.parse(response.schema).type, "object");
    }
    assert.deepEqual(problems, []);
    client.close();
  });
}

test("shows events as they are raised", async () => {
  const { client, channel } = await connect();
  const all = client.subscribe(channel("/events").id);
  const own = client.subscribe(channel("/event/FrontTactilTouched").id);
  // On a slow machine the events of the start come now as well.
  const isTouch = (event) => event.name === "FrontTactilTouched";
  const messages = Promise.all([nextMessage(client, all, isTouch), nextMessage(client, own)]);
  assert.equal((await setKey(touch, 1)).status, 200);
  const [first, second] = await messages;
  assert.equal(first.payload.value, 1);
  assert.equal(second.payload.kind, "event");
  assert.equal(first.timestamp, second.timestamp);
  assert.ok(Math.abs(Number(first.timestamp / 1_000_000n) - Date.now()) < 60_000);
  await setKey(touch, 0);
  client.close();
});

test("samples every subject", async () => {
  const { client, channel } = await connect();
  for (const topic of ["/joint_states", "/feet", "/sonar", "/pose", "/imu", "/touch", "/battery",
    "/stiffness", "/temperatures", "/currents", "/tick"]) {
    const subscription = client.subscribe(channel(topic).id);
    const { payload } = await nextMessage(client, subscription);
    const known = Object.keys(JSON.parse(channel(topic).schema).properties);
    for (const field of Object.keys(payload)) {
      assert.ok(known.includes(field), `${topic} ${field}`);
    }
    client.unsubscribe(subscription);
  }
  client.close();
});

test("tells ROS messages below /ros2, latched ones at once", async () => {
  const { client, channel } = await connect();
  const next = (subscription) =>
    new Promise((resolve) => {
      const listener = (message) => {
        if (message.subscriptionId === subscription) {
          client.off("message", listener);
          resolve(Buffer.from(message.data.buffer, message.data.byteOffset, message.data.byteLength));
        }
      };
      client.on("message", listener);
    });
  for (const [topic, type, text] of [
    ["/ros2/robot_description", "std_msgs/msg/String", "<robot name="],
    ["/ros2/touch/chest_button", "std_msgs/msg/Bool", ""],
    ["/ros2/joint_states", "sensor_msgs/msg/JointState", "LHipPitch"],
    ["/ros2/tf", "tf2_msgs/msg/TFMessage", "l_thigh"],
  ]) {
    assert.equal(channel(topic).schemaName, type);
    const subscription = client.subscribe(channel(topic).id);
    const message = await next(subscription);
    assert.deepEqual([...message.subarray(0, 4)], [0, 1, 0, 0]);
    assert.ok(message.includes(text), topic);
    client.unsubscribe(subscription);
  }
  client.close();
});

test("calls bound methods as services", async () => {
  const { client, service } = await connect();
  assert.deepEqual(await call(client, service("GKBattery.getBatteryCharge"), 1, {}), { result: 100 });
  assert.deepEqual(await call(client, service("GKSonar.subscribe"), 2, { name: "test" }), {});
  await assert.rejects(call(client, service("GKMemory.getData"), 3, { key: "None" }), /no key None/);
  client.close();
});

test("tells and sets parameters", async () => {
  const { client } = await connect();
  const values = new Promise((resolve) => client.on("parameterValues", resolve));
  client.setParameters([{ name: touch, value: 0, type: "float64" }], "mine");
  const { id, parameters } = await values;
  assert.equal(id, "mine");
  assert.deepEqual(parameters, [{ name: touch, value: 0, type: "float64" }]);
  client.close();
});

test("tells the time", async () => {
  const { client } = await connect();
  const { timestamp } = await new Promise((resolve) => client.on("time", resolve));
  assert.ok(Math.abs(Number(timestamp / 1_000_000n) - Date.now()) < 60_000);
  client.close();
});
