// What goes wrong between page and host, each with a host of its own.
import assert from "node:assert/strict";
import { mkdtemp, rm, writeFile } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { after, before, test } from "node:test";
import { accessFindings, openPage, startBrowser, untilLive } from "./browser.mjs";
import { startHost, write } from "./host.mjs";

const kTouched = "Simulation/Touch/Head/Touch/Front";

let browser;

before(async () => {
  browser = await startBrowser();
});
after(() => browser?.close());

test("values that are not renewed are called stale, and the world is out of reach", async () => {
  const host = await startHost();
  const { page } = await openPage(browser, host.url);
  await untilLive(page);
  host.pause();
  await page.getByText(/^Connected, but the values are \d+ s old/).waitFor();
  assert.equal(await page.locator("#world").evaluate((world) => world.inert), true);
  assert.equal(await page.locator("#rate").textContent(), "");
  await page.waitForFunction(() => document.title.startsWith("⚠ Stale"));
  assert.deepEqual(await accessFindings(page), []);
  host.resume();
  await untilLive(page);
  await page.close();
  await host.stop();
});

test("the page survives a restart of the host, and marks it", async () => {
  let host = await startHost();
  const { page } = await openPage(browser, host.url);
  await untilLive(page);
  const { port } = host;
  const front = new URL(host.url).port;
  await host.stop();
  await page.getByText(/^Not connected to the host/).waitFor();
  assert.equal(await page.locator("html").getAttribute("data-link"), "lost");
  await page.waitForFunction(() => document.title.startsWith("⚠ Not connected"));
  assert.deepEqual(await accessFindings(page), []);
  host = await startHost(port, "", [], Number(front));
  await untilLive(page);
  const story = page.getByRole("list", { name: "What happened, newest first" });
  await story.getByText("The host was started anew").waitFor();
  await write(host.url, kTouched, true);
  await story.getByRole("listitem").filter({ hasText: "FrontTactilTouched" }).first().waitFor();
  await page.close();
  await host.stop();
});

test("a recording that is run is one, and has ended when it has", async () => {
  const folder = await mkdtemp(join(tmpdir(), "gk-page-"));
  const file = join(folder, "touch.jsonl");
  const key = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";
  await writeFile(file, `{"t": 0.1, "set": {"${key}": 1.0}}\n{"t": 0.5, "set": {"${key}": 0.0}}\n`);
  const host = await startHost(0, "", [file]);
  try {
    const { page } = await openPage(browser, host.url);
    await page.getByText("Ended", { exact: true }).waitFor();
    await page.getByText(/^The recording touch.jsonl has ended at 0:0[01]\./).waitFor();
    await page.waitForFunction(() => document.title.startsWith("■ Ended"));
    assert.equal(await page.locator("#world").isVisible(), false);
    assert.deepEqual(await accessFindings(page), []);
    await page.close();
  } finally {
    await host.stop();
    await rm(folder, { recursive: true });
  }
});

test("a host that asks for its token is opened with it, and not without", async () => {
  const token = "0123456789abcdefghijklmn";
  const locked = await startHost(0, token);
  try {
    const { page } = await openPage(browser, locked.url);
    await page.getByText("Locked", { exact: true }).waitFor();
    await page.getByLabel("Token").fill("something else");
    await page.getByRole("button", { name: "Unlock" }).click();
    await page.locator("#token-problem", { hasText: "This is not the token." }).waitFor();
    await page.getByLabel("Token").fill(token);
    await page.getByRole("button", { name: "Unlock" }).click();
    await untilLive(page);
    await page.close();
  } finally {
    await locked.stop();
  }
});
