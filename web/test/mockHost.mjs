// A host that is none: speaks the page's protocols about a small made-up robot. For working on the
// page where no gk program is built:  node test/mockHost.mjs [PORT]
import { createReadStream, existsSync } from "node:fs";
import { createServer } from "node:http";
import { dirname, extname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { WebSocketServer } from "ws";
import { MockRobot } from "./mockRobot.mjs";

const kDist = join(dirname(fileURLToPath(import.meta.url)), "../dist");
const kTypes = {
  ".html": "text/html",
  ".js": "text/javascript",
  ".css": "text/css",
  ".svg": "image/svg+xml",
};
const kTick = 20;

/** Starts on a port, 0 for any; asks for the token, if there is one. Returns {port, pause, resume, stop}. */
export async function startMockHost(port = 0, token = "") {
  const robot = new MockRobot();
  const isKnown = (request) => token === "" || request.headers.cookie === `gk_session=${token}`;
  const http = createServer((request, response) => {
    const isOpen = !request.url.startsWith("/api/") && request.url !== "/rpc";
    if (request.url === "/login") {
      void logIn(request, response, token);
    } else if (isOpen || isKnown(request)) {
      void answer(robot, request, response);
    } else {
      response.writeHead(401).end();
    }
  });
  const sockets = new WebSocketServer({
    server: http,
    path: "/ws",
    verifyClient: ({ req }) => isKnown(req),
    handleProtocols: (names) => [...names].find((name) => name.startsWith("foxglove.")) ?? false,
  });
  const sessionId = String(Date.now());
  sockets.on("connection", (socket) => greet(socket, robot, sessionId));
  robot.onEvent = (name, value, isMicro) =>
    send(sockets, "/events", {
      t_s: robot.seconds,
      name,
      kind: isMicro ? "micro" : "event",
      value,
    });
  let isPaused = false;
  const timer = setInterval(() => {
    if (isPaused) {
      return;
    }
    robot.tick(kTick / 1000);
    for (const [topic, payload] of Object.entries(robot.samples())) {
      send(sockets, topic, payload);
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
        sockets.clients.forEach((socket) => socket.terminate());
        http.closeAllConnections?.();
        http.close(resolve);
      }),
  };
}

function greet(socket, robot, sessionId) {
  socket.subscriptions = new Map();
  socket.send(
    JSON.stringify({ op: "serverInfo", name: "mock host", capabilities: ["time"], sessionId }),
  );
  const channels = robot.topics.map((topic, i) => ({
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
      message.subscriptions.forEach(({ id, channelId }) =>
        socket.subscriptions.set(channels[channelId - 1]?.topic, id),
      );
    } else if (message.op === "getParameters") {
      const parameters = message.parameterNames.map((name) => ({
        name,
        value: robot.world.get(name),
      }));
      socket.send(JSON.stringify({ op: "parameterValues", parameters }));
    }
  });
}

function send(sockets, topic, payload) {
  for (const socket of sockets.clients) {
    const id = socket.subscriptions?.get(topic);
    if (id !== undefined) {
      const head = Buffer.alloc(13);
      head.writeUInt8(1, 0);
      head.writeUInt32LE(id, 1);
      head.writeBigUInt64LE(BigInt(Date.now()) * 1_000_000n, 5);
      socket.send(Buffer.concat([head, Buffer.from(JSON.stringify(payload))]));
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

async function answer(robot, request, response) {
  const url = new URL(request.url, "http://localhost");
  const body = await bodyOf(request);
  const reply = (status, value) => {
    response.writeHead(status, { "content-type": "application/json" });
    response.end(JSON.stringify(value));
  };
  if (url.pathname === "/rpc") {
    const { id, method, params } = JSON.parse(body);
    reply(200, { jsonrpc: "2.0", id, ...robot.call(method, params) });
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
    const keys = [...robot.world].filter(
      ([key]) => key.startsWith(prefix) && key.includes(contained),
    );
    reply(200, {
      keys: keys.map(([key, value]) => ({ key, type: typeOf(value), value })),
      next: null,
    });
  } else if (url.pathname.startsWith("/api/v1/memory/") && request.method === "PUT") {
    robot.write(decodeURIComponent(url.pathname.slice(15)), JSON.parse(body));
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
  if (!/^[\w.]+$/.test(name) || !existsSync(file)) {
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
  const { port } = await startMockHost(Number(process.argv[2] ?? 8090));
  console.log(`http://127.0.0.1:${port}/`);
}
