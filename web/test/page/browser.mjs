import { readFile } from "node:fs/promises";
import { createRequire } from "node:module";
import { chromium } from "playwright-core";

/** ms; long, for machines that draw in software while they build something. */
const kTimeout = Number(process.env.GK_PAGE_TIMEOUT ?? 60_000);
const kAxe = createRequire(import.meta.url).resolve("axe-core/axe.min.js");

/** A headless browser that draws in software, so that it runs anywhere. */
export function startBrowser() {
  return chromium.launch({
    executablePath: process.env.GK_CHROMIUM ?? "/usr/bin/chromium",
    args: ["--no-sandbox", "--enable-unsafe-swiftshader"],
  });
}

/** Opens the page; `problems` collects whatever goes wrong in it. */
export async function openPage(browser, url, options = {}) {
  const page = await browser.newPage({
    viewport: { width: 1440, height: 900 },
    // A quarter of the pixels: drawing them takes most of the time.
    deviceScaleFactor: 0.5,
    ...options,
  });
  page.setDefaultTimeout(kTimeout);
  const problems = [];
  page.on("console", (message) => {
    if (message.type() === "error") {
      problems.push(message.text());
    }
  });
  page.on("pageerror", (error) => problems.push(String(error)));
  await page.goto(url);
  return { page, problems };
}

/** Waits until the page shows live values. */
export async function untilLive(page) {
  await page.getByText("Live", { exact: true }).waitFor();
}

/** What a checker of accessibility finds, as "rule: elements". */
export async function accessFindings(page) {
  // Its own script: the page's policy lets none in, the browser's tools do.
  await page.evaluate(await readFile(kAxe, "utf8"));
  const { violations } = await page.evaluate(() => globalThis.axe.run());
  return violations.map(
    ({ id, nodes }) => `${id}: ${nodes.map(({ html }) => html.slice(0, 120)).join(" | ")}`,
  );
}

/** Counts what comes on the page's WebSocket from now on: {bytes, byTopic(text)}. */
export async function countTraffic(page) {
  const session = await page.context().newCDPSession(page);
  await session.send("Network.enable");
  const counted = { bytes: 0, messages: [] };
  session.on("Network.webSocketFrameReceived", ({ response: { opcode, payloadData } }) => {
    const frame = Buffer.from(payloadData, opcode === 2 ? "base64" : "utf8");
    counted.bytes += frame.length;
    // A message of a channel: what follows subscription and time is JSON.
    if (opcode === 2 && frame[0] === 1) {
      counted.messages.push(frame.subarray(13).toString());
    }
  });
  return counted;
}
