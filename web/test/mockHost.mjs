// A host that is none: speaks the page's protocols about a small made-up robot. For working on the
// page where no gk program is built:  node test/mockHost.mjs [PORT [play]]
import { createReadStream, existsSync } from "node:fs";
import { createServer } from "node:http";
import { dirname, extname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { WebSocketServer } from "ws";
import { MockPast } from "./mockPast.mjs";
import { kWords, MockRobot } from "./mockRobot.mjs";

const kDist = join(dirname(fileURLToPath(import.meta.url)), "../dist");
const kTypes = {
  ".html": "text/html",
  ".js": "text/javascript",
  ".css": "text/css",
  ".svg": "image/svg+xml",
};
const kTick = 20;

const kRecorded = 30;

/**
 * Starts on a port, 0 for any; asks for the token, if there is one; plays a recording of its robot
 * rather than living. Returns {port, pause, resume, stop}.
 */
export async function startMockHost(port = 0, token = "", isPlayback = false) {
  const host = new MockHost(isPlayback);
  const isKnown = (request) => token === "" || request.headers.cookie === `gk_session=${token}`;
  const http = createServer((request, response) => {
    const isOpen = !request.url.startsWith("/api/") && request.url !== "/rpc";
    if (request.url === "/login") {
      void logIn(request, response, token);
    } else if (isOpen || isKnown(request)) {
      void answer(host, request, response);
    } else {
      response.writeHead(401).end();
    }
  });
  host.sockets = new WebSocketServer({
    server: http,
    path: "/ws",
    verifyClient: ({ req }) => isKnown(req),
    handleProtocols: (names) => [...names].find((name) => name.startsWith("foxglove.")) ?? false,
  });
  host.sockets.on("connection", (socket) => host.greet(socket));
  let isPaused = false;
  const timer = setInterval(() => {
    if (!isPaused) {
      host.tick();
    }
  }, kTick);
  await new Promise((resolve) => http.listen(port, "127.0.0.1", resolve));
  return {
    port: http.address().port,
    pause: () => (isPaused = true),
    resume: () => (isPaused = false),
    stop: () =>
      new Promise((resolve) => {
        clearInterval(timer);
        host.sockets.clients.forEach((socket) => socket.terminate());
        http.closeAllConnections?.();
        http.close(resolve);
      }),
  };
}

class MockHost {
  robot = new MockRobot();
  past = new MockPast();
  session = String(Date.now());
  start = Date.now() / 1000;
  sockets = { clients: new Set() };
  verdict = "[]";
  /** Of a recording that is played. */
  playback = undefined;

  constructor(isPlayback) {
    this.robot.onEvent = (name, value, isMicro) => {
      const event = { t_s: this.robot.seconds, name, kind: isMicro ? "micro" : "event", value };
      this.past.events.push(event);
      this.send("/events", event);
    };
    this.robot.onEvent("robotPoseChanged", "Stand");
    if (isPlayback) {
      this.record();
    }
  }

  tick() {
    if (this.playback === undefined) {
      this.live();
    } else if (this.playback.playing) {
      this.move(this.playback.time + (kTick / 1000) * (this.playback.speed || 100), false);
    }
  }

  live() {
    this.robot.tick(kTick / 1000);
    const samples = this.robot.samples();
    this.past.sample(this.robot.seconds, samples);
    this.sendAll(samples);
    const verdict = JSON.stringify(this.robot.verdict());
    if (verdict !== this.verdict) {
      this.verdict = verdict;
      this.send("/verdict", { verdict: JSON.parse(verdict) });
    }
  }

  /** A robot that is touched, sits down and stands up again. */
  record() {
    for (let i = 0; i * kTick < kRecorded * 1000; ++i) {
      this.robot.tick(kTick / 1000);
      const script = { 250: [true], 270: [false], 500: ["Sit"], 1000: ["Stand"] }[i];
      if (script !== undefined) {
        const isPose = typeof script[0] === "string";
        this.robot.write(
          isPose ? "Simulation/Posture" : "Simulation/Touch/Head/Touch/Front",
          script[0],
        );
      }
      this.past.sample(this.robot.seconds, this.robot.samples());
    }
    this.playback = { time: 0, begin: 0, end: kRecorded, speed: 1, playing: false, loop: null };
  }

  /** Where the recording is played. */
  move(time, didSeek) {
    const state = this.playback;
    const [from, to] = state.loop ?? [state.begin, state.end];
    const isOver = time >= to;
    const wanted = isOver && state.loop !== null && !didSeek ? from : time;
    state.time = Math.min(Math.max(wanted, state.begin), state.end);
    state.playing &&= state.time < state.end;
    this.tellPlayback(didSeek);
    const row = this.past.times.findLastIndex((at) => at <= state.time);
    this.sendAll(this.past.messages[Math.max(row, 0)]);
  }

  tellPlayback(didSeek) {
    this.send("/playback", {
      ...this.playback,
      didSeek,
      file: "mock.mcap",
      recorded_s: this.start,
      indexed: true,
    });
  }

  call(method, params) {
    if (this.playback === undefined) {
      return this.robot.call(method, params);
    }
    const state = this.playback;
    switch (method) {
      case "Playback.play":
        state.playing = true;
        this.move(state.time >= state.end ? state.begin : state.time, false);
        break;
      case "Playback.pause":
        state.playing = false;
        this.tellPlayback(false);
        break;
      case "Playback.seek":
        this.move(params[0], true);
        break;
      case "Playback.speed":
        state.speed = params[0];
        this.tellPlayback(false);
        break;
      case "Playback.loop":
        state.loop = params.length === 2 ? params : null;
        this.tellPlayback(false);
        break;
      case "Playback.step":
        state.playing = false;
        this.move(state.time + params[1] * (params[0] === "tick" ? 0.02 : 1), true);
        break;
      case "Playback.state":
        break;
      default:
        return { error: { code: -32000, message: "a recording is played" } };
    }
    return { result: state };
  }

  greet(socket) {
    socket.subscriptions = new Map();
    socket.watched = new Set();
    const greeting = { op: "serverInfo", name: "mock host", capabilities: ["time"] };
    socket.send(JSON.stringify({ ...greeting, sessionId: this.session }));
    const topics = [...this.robot.topics, ...(this.playback === undefined ? [] : ["/playback"])];
    const channels = topics.map((topic, i) => ({
      id: i + 1,
      topic,
      encoding: "json",
      schemaName: "",
      schema: "",
    }));
    socket.send(JSON.stringify({ op: "advertise", channels }));
    socket.on("message", (data) => {
      const message = JSON.parse(String(data));
      if (message.op === "subscribe") {
        for (const { id, channelId } of message.subscriptions) {
          const topic = channels[channelId - 1]?.topic;
          socket.subscriptions.set(topic, id);
          if (topic === "/verdict") {
            this.send(topic, { verdict: this.robot.verdict() });
          } else if (topic === "/playback") {
            this.tellPlayback(false);
          }
        }
      } else if (message.op === "unsubscribe") {
        for (const [topic, id] of socket.subscriptions) {
          if (message.subscriptionIds.includes(id)) {
            socket.subscriptions.delete(topic);
          }
        }
      } else if (message.op === "getParameters") {
        this.tellKeys(socket, message.parameterNames);
      } else if (message.op === "subscribeParameterUpdates") {
        message.parameterNames.forEach((name) => socket.watched.add(name));
      }
    });
  }

  write(key, value) {
    this.robot.write(key, value);
    for (const socket of this.sockets.clients) {
      if (socket.watched?.has(key)) {
        this.tellKeys(socket, [key]);
      }
    }
  }

  tellKeys(socket, names) {
    const parameters = names.map((name) => ({ name, value: this.robot.world.get(name) }));
    socket.send(JSON.stringify({ op: "parameterValues", parameters }));
  }

  sendAll(samples) {
    for (const [topic, payload] of Object.entries(samples)) {
      this.send(topic, payload);
    }
  }

  send(topic, payload) {
    const seconds = this.playback?.time ?? this.robot.seconds;
    for (const socket of this.sockets.clients) {
      const id = socket.subscriptions?.get(topic);
      if (id !== undefined) {
        const head = Buffer.alloc(13);
        head.writeUInt8(1, 0);
        head.writeUInt32LE(id, 1);
        head.writeBigUInt64LE(BigInt(Math.round((this.start + seconds) * 1e6)) * 1000n, 5);
        socket.send(Buffer.concat([head, Buffer.from(JSON.stringify(payload))]));
      }
    }
  }
}

async function logIn(request, response, token) {
  const given = JSON.parse(await bodyOf(request)).token;
  response.writeHead(
    given === token ? 200 : 401,
    given === token
      ? { "set-cookie": `gk_session=${token}; HttpOnly; SameSite=Strict; Path=/` }
      : {},
  );
  response.end("{}");
}

async function bodyOf(request) {
  let body = "";
  for await (const chunk of request) {
    body += chunk;
  }
  return body;
}

async function answer(host, request, response) {
  const { robot } = host;
  const url = new URL(request.url, "http://localhost");
  const body = await bodyOf(request);
  const reply = (status, value) => {
    response.writeHead(status, { "content-type": "application/json" });
    response.end(JSON.stringify(value));
  };
  if (url.pathname === "/rpc") {
    const { id, method, params } = JSON.parse(body);
    reply(200, { jsonrpc: "2.0", id, ...host.call(method, params) });
  } else if (url.pathname === "/api/v1/host") {
    const playback = host.playback === undefined ? {} : { playback: host.playback };
    const t_s = host.playback?.time ?? robot.seconds;
    reply(200, { t_s, time_s: host.start + t_s, session: host.session, loops: [], ...playback });
  } else if (url.pathname === "/api/v1/words") {
    reply(200, { events: kWords });
  } else if (url.pathname === "/api/v1/past") {
    const given = [...url.searchParams].map(([name, value]) => [name, Number(value)]);
    reply(200, host.past.answer(host.session, Object.fromEntries(given)));
  } else if (url.pathname === "/api/v1/past/keep") {
    response.writeHead(200, {
      "content-type": "application/octet-stream",
      "content-disposition": 'attachment; filename="past-mock.mcap"',
    });
    response.end("recording");
  } else if (url.pathname === "/api/v1/modules") {
    reply(200, { modules: robot.modules.map(({ name, description }) => ({ name, description })) });
  } else if (url.pathname.startsWith("/api/v1/modules/")) {
    reply(
      200,
      robot.modules.find(({ name }) => name === url.pathname.slice(16)),
    );
  } else if (url.pathname === "/api/v1/memory") {
    const [prefix, contained] = ["prefix", "contains"].map(
      (name) => url.searchParams.get(name) ?? "",
    );
    const keys = [...(host.playback === undefined ? robot.world : [])].filter(
      ([key]) => key.startsWith(prefix) && key.includes(contained),
    );
    reply(200, {
      keys: keys.map(([key, value]) => ({ key, type: typeOf(value), value })),
      next: null,
    });
  } else if (url.pathname.startsWith("/api/v1/memory/") && request.method === "PUT") {
    host.write(decodeURIComponent(url.pathname.slice(15)), JSON.parse(body));
    reply(200, {});
  } else {
    sendFile(url.pathname === "/" ? "index.html" : url.pathname.slice(1), response);
  }
}

function typeOf(value) {
  return { boolean: "bool", string: "string" }[typeof value] ?? "float";
}

function sendFile(name, response) {
  const file = join(kDist, name);
  if (!/^[\w.-]+$/.test(name) || !existsSync(file)) {
    response.writeHead(404).end();
    return;
  }
  response.writeHead(200, {
    "content-type": kTypes[extname(name)],
    "content-security-policy": "default-src 'self'",
  });
  createReadStream(file).pipe(response);
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const isPlayback = process.argv[3] === "play";
  const { port } = await startMockHost(Number(process.argv[2] ?? 8090), "", isPlayback);
  console.log(`http://127.0.0.1:${port}/`);
}
