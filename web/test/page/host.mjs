// A host to test the page against: the gk program that GK_PROGRAM names, or the mock.
import { spawn } from "node:child_process";
import { once } from "node:events";
import { mkdtemp, rm, writeFile } from "node:fs/promises";
import { createServer } from "node:net";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { serve } from "../../serve.mjs";
import { startMockHost } from "../mockHost.mjs";

const kStartTimeout = 30_000;
const kPause = 100;

/**
 * @param port 0 for any free one
 * @param files what is run instead of a simulated robot
 * @param front the port of what serves dist/, as `port`
 * @returns {port, url, pause, resume, stop}
 */
export async function startHost(port = 0, token = "", files = [], front = 0) {
  const program = process.env.GK_PROGRAM;
  const host =
    program === undefined
      ? await startMockHost(port, token)
      : await startProgram(
          program,
          port || (await freePort()),
          token,
          files.length > 0 ? ["run", ...files] : ["run", "--no-tour"],
        );
  return withPage(host, front);
}

/** A host that plays a recording of `host`, which has run for some seconds. */
export async function startPlayback(host) {
  const program = process.env.GK_PROGRAM;
  if (program === undefined) {
    return withPage(await startMockHost(0, "", true));
  }
  const folder = await mkdtemp(join(tmpdir(), "gk-play-"));
  const file = join(folder, "played.mcap");
  await writeFile(file, await keep(host.url));
  const player = await startProgram(program, await freePort(), "", ["play", file, "--paused"]);
  const { stop } = player;
  return withPage({
    ...player,
    stop: async () => {
      await stop();
      await rm(folder, { recursive: true, force: true });
    },
  });
}

/** GK_DIST: with the page of dist/ in place of the one that the program has in it. */
async function withPage(host, port = 0) {
  if (process.env.GK_DIST === undefined || process.env.GK_PROGRAM === undefined) {
    return { ...host, url: `http://127.0.0.1:${host.port}/` };
  }
  const front = await serve(`127.0.0.1:${host.port}`, port);
  return {
    ...host,
    url: `http://127.0.0.1:${front.port}/`,
    stop: async () => {
      await front.stop();
      await host.stop();
    },
  };
}

async function keep(url) {
  const response = await fetch(`${url}api/v1/past/keep`, {
    method: "POST",
    headers: { "content-type": "application/json" },
    body: "{}",
  });
  return Buffer.from(await response.arrayBuffer());
}

/** Writes a memory key as any client may. */
export async function write(url, key, value) {
  const response = await fetch(`${url}api/v1/memory/${key}`, {
    method: "PUT",
    headers: { "content-type": "application/json" },
    body: JSON.stringify(value),
  });
  if (!response.ok) {
    throw new Error(`${key}: ${response.status} ${await response.text()}`);
  }
}

/** Calls a bound method as any client may; its result. */
export async function call(url, method, params) {
  const response = await fetch(`${url}rpc`, {
    method: "POST",
    headers: { "content-type": "application/json" },
    body: JSON.stringify({ jsonrpc: "2.0", id: 1, method, params }),
  });
  return (await response.json()).result;
}

async function startProgram(program, port, token, command) {
  const folder = await mkdtemp(join(tmpdir(), "gk-page-"));
  const file = join(folder, "token");
  await writeFile(file, token, { mode: 0o600 });
  // The simulated robot stands and waits for what the test does to it.
  const options = [...command, "--listen", `127.0.0.1:${port}`];
  const child = spawn(program, token === "" ? options : [...options, "--token-file", file], {
    stdio: ["ignore", "ignore", "inherit"],
  });
  const exited = once(child, "exit");
  await untilReady(port, child);
  return {
    port,
    pause: () => child.kill("SIGSTOP"),
    resume: () => child.kill("SIGCONT"),
    stop: async () => {
      child.kill("SIGTERM");
      await exited;
      await rm(folder, { recursive: true, force: true });
    },
  };
}

async function untilReady(port, child) {
  const end = Date.now() + kStartTimeout;
  while (Date.now() < end && child.exitCode === null) {
    const isReady = await fetch(`http://127.0.0.1:${port}/readyz`).then(
      (response) => response.ok,
      () => false,
    );
    if (isReady) {
      return;
    }
    await new Promise((resolve) => setTimeout(resolve, kPause));
  }
  child.kill();
  throw new Error(`gk is not ready on port ${port}`);
}

async function freePort() {
  const server = createServer().listen(0, "127.0.0.1");
  await once(server, "listening");
  const { port } = server.address();
  server.close();
  await once(server, "close");
  return port;
}
