// Serves dist/ and passes everything else on to a running host, so that a page in work is seen with a
// real one:  node serve.mjs [PORT [HOST:PORT]]
import { createReadStream, existsSync } from "node:fs";
import { createServer, request } from "node:http";
import { connect } from "node:net";
import { dirname, extname, join } from "node:path";
import { fileURLToPath } from "node:url";

const kDist = join(dirname(fileURLToPath(import.meta.url)), "dist");
const kTypes = {
  ".html": "text/html",
  ".js": "text/javascript",
  ".css": "text/css",
  ".svg": "image/svg+xml",
};

/** Returns {port, stop}. @param target "127.0.0.1:8090" @param port 0 for any free one */
export async function serve(target, port = 0) {
  const [hostname, targetPort] = target.split(":");
  const open = new Set();
  const server = createServer((asked, response) => {
    const name = asked.url.split("?")[0] === "/" ? "index.html" : asked.url.slice(1);
    if (asked.method === "GET" && /^[\w.-]+$/.test(name) && existsSync(join(kDist, name))) {
      response.writeHead(200, {
        "content-type": kTypes[extname(name)] ?? "application/octet-stream",
        "content-security-policy": "default-src 'self'",
      });
      createReadStream(join(kDist, name)).pipe(response);
      return;
    }
    const { method, url } = asked;
    const passed = request(
      { hostname, port: targetPort, method, path: url, headers: headersFor(asked, target) },
      (answer) => {
        response.writeHead(answer.statusCode, answer.headers);
        answer.pipe(response);
      },
    );
    passed.on("error", () => response.destroy());
    asked.pipe(passed);
  });
  server.on("upgrade", (asked, socket, head) => {
    const headers = headersFor(asked, target);
    const upstream = connect(Number(targetPort), hostname, () => {
      const lines = Object.entries(headers).map(([name, value]) => `${name}: ${value}\r\n`);
      upstream.write(`GET ${asked.url} HTTP/1.1\r\n${lines.join("")}\r\n`);
      upstream.write(head);
      socket.pipe(upstream).pipe(socket);
    });
    for (const end of [socket, upstream]) {
      end.on("error", () => {
        socket.destroy();
        upstream.destroy();
      });
    }
  });
  server.on("connection", (socket) => {
    open.add(socket);
    socket.on("close", () => open.delete(socket));
  });
  await new Promise((resolve) => server.listen(port, "127.0.0.1", resolve));
  return {
    port: server.address().port,
    stop: () =>
      new Promise((resolve) => {
        open.forEach((socket) => socket.destroy());
        server.close(resolve);
      }),
  };
}

/** The host lets in those who ask for it by its own address. */
function headersFor(asked, target) {
  const headers = { ...asked.headers, host: target };
  if (headers.origin !== undefined) {
    headers.origin = `http://${target}`;
  }
  return headers;
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  const { port } = await serve(
    process.argv[3] ?? "127.0.0.1:8090",
    Number(process.argv[2] ?? 8100),
  );
  console.log(`http://127.0.0.1:${port}/`);
}
