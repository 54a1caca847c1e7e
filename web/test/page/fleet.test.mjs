// The fleet's page against a server that is played here.
import assert from "node:assert/strict";
import { mkdtemp, readFile, rm } from "node:fs/promises";
import { createServer } from "node:http";
import { tmpdir } from "node:os";
import { extname, join } from "node:path";
import { after, before, test } from "node:test";
import { buildFleetPage } from "../../build.mjs";
import { accessFindings, openPage, startBrowser, untilLive } from "./browser.mjs";

const kTypes = { ".html": "text/html", ".js": "text/javascript", ".css": "text/css" };
const kWell = 1;
const kLost = 9;

let browser;
let dist;
let server;

before(async () => {
  dist = await mkdtemp(join(tmpdir(), "gk-fleet-"));
  await buildFleetPage(dist);
  server = await startServer();
  browser = await startBrowser();
});
after(async () => {
  await browser?.close();
  server?.stop();
  await rm(dist, { recursive: true, force: true });
});

function card(robot, more = {}) {
  return {
    site: "default",
    robot,
    urgency: kWell,
    level: 0,
    words: "well",
    connection: "online",
    pose: "Stand",
    charge: 80,
    plugged: false,
    backlog: 0,
    event: { name: "SonarLeftDetected", words: "Sees something on the left", time: 1767225600 },
    page: null,
    ...more,
  };
}

/** {url, set(cards), tell(cards), trouble(text), stop} */
async function startServer() {
  let version = 1;
  let cards = [];
  let news = [];
  let trouble = "";
  let waiting = [];
  const answer = (response, isAll) => {
    response.setHeader("content-type", "application/json");
    response.end(
      JSON.stringify({
        session: "s",
        version,
        broker: "mqtt://broker:1883",
        trouble,
        all: isAll,
        cards: isAll ? cards : news,
      }),
    );
  };
  const change = (changed) => {
    version += 1;
    news = changed;
    for (const response of waiting) {
      answer(response, false);
    }
    waiting = [];
  };
  const http = createServer((request, response) => {
    const { pathname, searchParams } = new URL(request.url, "http://x");
    if (pathname === "/api/v1/fleet") {
      const asked = searchParams.get("after");
      if (asked === String(version)) {
        waiting.push(response);
      } else {
        answer(response, true);
      }
      return;
    }
    const file = pathname === "/" ? "/index.html" : pathname;
    response.setHeader(
      "content-security-policy",
      "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; connect-src 'self'",
    );
    response.setHeader("content-type", kTypes[extname(file)] ?? "image/svg+xml");
    readFile(join(dist, file)).then(
      (bytes) => response.end(bytes),
      () => response.writeHead(404).end(),
    );
  });
  await new Promise((resolve) => {
    http.listen(0, "127.0.0.1", resolve);
  });
  return {
    url: `http://127.0.0.1:${http.address().port}/`,
    set: (all) => {
      cards = all;
      version += 1;
    },
    tell: change,
    setTrouble: (text) => {
      trouble = text;
      change([]);
    },
    stop: () => {
      http.closeAllConnections();
      http.close();
    },
  };
}

const names = (page) => page.locator(".robot-card:visible .name").allTextContents();

test("the urgent come first, names run nothing, and a click opens the robot's own page", async () => {
  const nasty = '<img src=x onerror="document.title=1">';
  server.set([
    card("r1", { page: "http://r1:8090/" }),
    card(nasty, { page: "javascript:alert(1)" }),
    card("r3", { urgency: kLost, level: 2, words: "lost" }),
  ]);
  const { page, problems } = await openPage(browser, server.url);
  await untilLive(page);
  assert.deepEqual(await names(page), ["r3", nasty, "r1"].sort(order(["r3"])));
  assert.equal(await page.title(), "Fleet");
  const link = page.getByRole("link", { name: "r1" });
  assert.equal(await link.getAttribute("href"), "http://r1:8090/");
  assert.equal(await link.getAttribute("rel"), "noopener noreferrer");
  // The whole card is the link.
  const box = await page.locator(".robot-card", { hasText: "r1" }).boundingBox();
  const hit = await page.evaluate(
    ([x, y]) => document.elementFromPoint(x, y)?.closest("a")?.href,
    [box.x + box.width / 2, box.y + box.height - 20],
  );
  assert.equal(hit, "http://r1:8090/");
  assert.equal(await page.locator('a[href^="javascript"]').count(), 0);
  assert.deepEqual(await accessFindings(page), []);
  assert.deepEqual(problems, []);
  await page.close();
});

/** Names as the page sorts them, behind those that are urgent. */
function order(urgent) {
  return (a, b) =>
    Number(urgent.includes(b)) - Number(urgent.includes(a)) ||
    `default/${a}`.localeCompare(`default/${b}`, undefined, { numeric: true });
}

test("of a thousand robots only what changes is touched", async () => {
  const all = Array.from({ length: 1000 }, (_, i) => card(`r${i}`));
  server.set(all);
  const { page, problems } = await openPage(browser, server.url);
  await untilLive(page);
  assert.equal(await page.locator(".robot-card").count(), 1000);
  await page.getByText("1000 robots, all well").waitFor();
  await page.evaluate(() => {
    globalThis.touched = new Set();
    new MutationObserver((records) => {
      for (const { target } of records) {
        const node = target instanceof Element ? target : target.parentElement;
        globalThis.touched.add(node.closest(".robot-card")?.querySelector(".name").textContent);
      }
    }).observe(document.getElementById("robots"), {
      subtree: true,
      childList: true,
      characterData: true,
      attributes: true,
    });
  });
  server.tell([card("r500", { urgency: kLost, level: 2, words: "lost" }), card("r7")]);
  await page.getByText("1000 robots: 1 needs somebody").waitFor();
  assert.equal((await names(page))[0], "r500");
  // The list, because a card was moved in it, and that card; r7 is as it was.
  assert.deepEqual(await page.evaluate(() => [...globalThis.touched].sort()), ["r500", undefined]);

  await page.getByLabel("Only those that need somebody").check();
  assert.deepEqual(await names(page), ["r500"]);
  await page.getByLabel("Only those that need somebody").uncheck();
  await page.getByRole("searchbox").fill("r99 well");
  assert.equal((await names(page)).length, 11);
  await page.getByRole("searchbox").fill("nobody");
  await page.getByText("No robot fits.").waitFor();
  assert.deepEqual(problems, []);
  await page.close();
});

test("it says when there is no broker, and fits a phone", async () => {
  server.set([card("a-robot-with-quite-a-long-name-for-a-phone", { level: 1, urgency: 5 })]);
  const { page } = await openPage(browser, server.url, {
    viewport: { width: 390, height: 844 },
    isMobile: true,
    colorScheme: "dark",
  });
  await untilLive(page);
  assert.equal(await page.evaluate(() => document.documentElement.dataset.theme), "dark");
  assert.ok(await page.evaluate(() => document.documentElement.scrollWidth <= 390));
  server.setTrouble("Connection refused");
  await page.getByText("No broker: Connection refused").waitFor();
  server.setTrouble("");
  await untilLive(page);
  await page.close();
});
