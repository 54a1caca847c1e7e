import assert from "node:assert/strict";
import { after, afterEach, before, beforeEach, test } from "node:test";
import { openPage, startBrowser, untilLive } from "./browser.mjs";
import { call, startHost, write } from "./host.mjs";

const kTouched = "Simulation/Touch/Head/Touch/Front";

let browser;
let host;
let page;
let problems;

before(async () => {
  browser = await startBrowser();
});
after(() => browser?.close());

beforeEach(async () => {
  host = await startHost();
  ({ page, problems } = await openPage(browser, host.url));
  await untilLive(page);
});
afterEach(async () => {
  await page?.close();
  await host?.stop();
});

const entries = () =>
  page.getByRole("list", { name: "Events, newest first" }).getByRole("listitem");

test("the page loads without an error and shows what the robot senses", async () => {
  await page.locator(".pose", { hasText: /Standing/ }).waitFor();
  await page.getByRole("img", { name: /left foot on the floor/ }).waitFor();
  await page.locator("#battery", { hasText: /\d %/ }).waitFor();
  assert.deepEqual(problems, []);
});

test("the page draws the robot, and draws it anew in another posture", async () => {
  const canvas = page.locator("#robot canvas");
  const standing = await canvas.screenshot();
  await page.getByRole("button", { name: "Sit", exact: true }).click();
  await page.locator(".pose", { hasText: "Sitting" }).waitFor();
  assert.notDeepEqual(await canvas.screenshot(), standing);
});

test("an event is shown as it is raised", async () => {
  await write(host.url, kTouched, true);
  await entries()
    .filter({ hasText: "FrontTactilTouched" })
    .filter({ hasText: /1$/ })
    .first()
    .waitFor();
  await page.locator("#touch", { hasText: "Head, front" }).waitFor();
});

test("a filter leaves out what does not fit, and a pause holds the list", async () => {
  await page.getByLabel("Filter events").fill("tactil");
  await page.getByRole("region", { name: "Events" }).getByRole("button", { name: "Pause" }).click();
  await write(host.url, kTouched, true);
  await page.getByRole("button", { name: /Resume \(\d+ new\)/ }).click();
  await entries().filter({ hasText: "FrontTactilTouched" }).first().waitFor();
  const names = await entries().locator(".name").allTextContents();
  assert.deepEqual(
    names.filter((name) => !/tactil/i.test(name)),
    [],
  );
});

async function openMethod(module, method) {
  await page.locator(`details[data-module="${module}"] > summary`).click();
  const form = page.locator(`details[data-method="${module}.${method}"]`).first();
  await form.locator("summary").click();
  return form;
}

test("a method is called and its result is shown", async () => {
  const form = await openMethod("GKBattery", "getBatteryCharge");
  await form.getByRole("button", { name: "Call" }).click();
  await form.locator('output[data-kind="result"] code', { hasText: /^\d+$/ }).waitFor();
});

test("a call that the module refuses shows the module's own words", async () => {
  const form = await openMethod("GKMemory", "getData");
  await form.getByRole("textbox").fill("NoSuchKey");
  await form.getByRole("button", { name: "Call" }).click();
  await form
    .locator('output[data-kind="error"] code', { hasText: /GKMemory\.getData.*NoSuchKey/ })
    .waitFor();
});

test("a parameter that cannot be read is not sent", async () => {
  const form = await openMethod("GKBattery", "_setResistanceValue");
  await form.getByRole("textbox").first().fill("much");
  await form.getByRole("button", { name: "Call" }).click();
  await form.getByText("needs a number").waitFor();
  assert.equal(await form.locator("output").textContent(), "");
});

test("the hoist lifts the robot, and the robot notices", async () => {
  await page.getByRole("switch", { name: "Hoist holds the robot" }).click();
  await entries()
    .filter({ hasText: "footContactChanged" })
    .filter({ hasText: "false" })
    .first()
    .waitFor();
  await page.locator("#feet", { hasText: "off the floor" }).waitFor();
});

test("a touch button works by keyboard for as long as the key is down", async () => {
  const button = page.getByRole("button", { name: "Touch head rear" });
  await button.focus();
  await page.keyboard.down(" ");
  await page.locator("#touch", { hasText: "Head, rear" }).waitFor();
  await page.keyboard.up(" ");
  await page.locator("#touch", { hasText: "nothing" }).waitFor();
});

/** Until the names of those who listen to the sonar are these. */
async function untilSonarIsHeardBy(names) {
  let heard;
  do {
    heard = (await call(host.url, "GKSonar.getSubscribersInfo", [])).map(([name]) => name);
  } while (String(heard) !== String(names));
}

test("a page that goes switches the sonar off that it has switched on", async () => {
  const sonar = page.locator("#sonar");
  await sonar.getByRole("button", { name: "Switch on" }).click();
  await sonar.getByRole("button", { name: "Switch off" }).waitFor();
  await untilSonarIsHeardBy(["page"]);
  await page.goto("about:blank");
  await untilSonarIsHeardBy([]);
});

test("values that are not renewed are called stale", async () => {
  host.pause();
  await page.getByText(/^Connected, but the values are \d+ s old/).waitFor();
  host.resume();
  await untilLive(page);
});

test("the page survives a restart of the host", async () => {
  await host.stop();
  await page.getByText(/^Not connected to the host/).waitFor();
  assert.equal(await page.locator("html").getAttribute("data-link"), "lost");
  host = await startHost(host.port);
  await untilLive(page);
  await write(host.url, kTouched, true);
  await entries()
    .filter({ hasText: "FrontTactilTouched" })
    .filter({ hasText: /1$/ })
    .first()
    .waitFor();
});

test("a memory key is plotted by its name", async () => {
  const input = page.getByLabel("Memory key to plot");
  await input.fill("Simulation/Hoist/Height");
  await input.press("Enter");
  const chip = page
    .getByRole("list", { name: "Plotted values" })
    .getByRole("listitem")
    .filter({ hasText: "Simulation/Hoist/Height" });
  await chip.filter({ hasText: "0.45" }).waitFor();
});

test("light and dark follow the system until the reader chooses", async () => {
  const theme = () => page.locator("html").getAttribute("data-theme");
  await page.emulateMedia({ colorScheme: "dark" });
  await page.locator('html[data-theme="dark"]').waitFor();
  await page.getByRole("button", { name: "Switch to light" }).click();
  assert.equal(await theme(), "light");
  await page.reload();
  assert.equal(await theme(), "light");
});

test("nothing is wider than a phone", async () => {
  const phone = await openPage(browser, host.url, {
    viewport: { width: 390, height: 844 },
    isMobile: true,
    hasTouch: true,
  });
  await untilLive(phone.page);
  assert.equal(await phone.page.evaluate(() => document.documentElement.scrollWidth), 390);
  assert.deepEqual(phone.problems, []);
  await phone.page.close();
});

test("the page asks no other host for anything", async () => {
  const urls = [];
  page.on("request", (request) => urls.push(request.url()));
  page.on("websocket", (socket) => urls.push(socket.url().replace("ws:", "http:")));
  await page.reload();
  await untilLive(page);
  assert.deepEqual(
    urls.filter((url) => !url.startsWith(host.url)),
    [],
  );
});

test("a host that asks for its token is opened with it, and not without", async () => {
  const token = "0123456789abcdefghijklmn";
  const locked = await startHost(0, token);
  try {
    const other = await openPage(browser, locked.url);
    await other.page.getByText("Locked", { exact: true }).waitFor();
    await other.page.getByLabel("Token").fill("something else");
    await other.page.getByRole("button", { name: "Unlock" }).click();
    await other.page.getByText("This is not the token.").waitFor();
    await other.page.getByLabel("Token").fill(token);
    await other.page.getByRole("button", { name: "Unlock" }).click();
    await untilLive(other.page);
    await other.page.close();
  } finally {
    await locked.stop();
  }
});
