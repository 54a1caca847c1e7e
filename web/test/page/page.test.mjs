// One host and one page for all: each test says what it does to the robot, and undoes it.
import assert from "node:assert/strict";
import { after, before, test } from "node:test";
import { accessFindings, countTraffic, openPage, startBrowser, untilLive } from "./browser.mjs";
import { call, startHost, startPlayback, write } from "./host.mjs";

const kTouched = "Simulation/Touch/Head/Touch/Front";
const kPhone = { viewport: { width: 390, height: 844 }, isMobile: true, hasTouch: true };

let browser;
let host;
let page;
let problems;

before(async () => {
  browser = await startBrowser();
  host = await startHost();
  ({ page, problems } = await openPage(browser, host.url));
  await untilLive(page);
});
after(async () => {
  await browser?.close();
  await host?.stop();
});

const rows = () =>
  page.getByRole("list", { name: "What happened, newest first" }).getByRole("listitem");
const verdict = () => page.getByRole("region", { name: "How the robot is" });

const touches = () => rows().filter({ hasText: "FrontTactilTouched" });

/** Lets go only when the robot has felt it, which it does once in a tick: `felt` is what it tells then. */
async function touchHead(felt) {
  await write(host.url, kTouched, true);
  await page.locator("#touch", { hasText: "Head, front" }).waitFor();
  await touches().first().filter({ hasText: felt }).waitFor();
  await write(host.url, kTouched, false);
  await page.locator("#touch .answer", { hasText: "nothing" }).waitFor();
}

test("the page loads without an error and shows what the robot senses", async () => {
  await page.locator(".pose", { hasText: /Standing/ }).waitFor();
  await page.getByRole("img", { name: /left foot on the floor/ }).waitFor();
  await page.locator("#battery", { hasText: /\d %/ }).waitFor();
  await verdict().getByText("All is well").waitFor();
  await page.waitForFunction(() => document.title.startsWith("Standing"));
  assert.deepEqual(problems, []);
});

/** Whether an element's upper part is on the screen, and not under what sticks to its edges. */
const isSeen = (target, selector) =>
  target.evaluate((name) => {
    const { left, top, width } = document.querySelector(name).getBoundingClientRect();
    const found = document.elementFromPoint(left + width / 2, top + 60);
    return found?.closest(name) !== null;
  }, selector);

test("the first screen says how the robot is and what happened, on every screen", async () => {
  for (const options of [{}, { viewport: { width: 1024, height: 768 } }, kPhone]) {
    const { page: other, problems: wrong } = await openPage(browser, host.url, options);
    await untilLive(other);
    await other.locator(".rows li").first().waitFor();
    for (const part of ["#robot", "#story"]) {
      assert.ok(await isSeen(other, part), `${part} at ${JSON.stringify(options.viewport)}`);
    }
    const { y, height } = await other.locator(".rows li").first().boundingBox();
    assert.ok(y + height < other.viewportSize().height - 60);
    const width = await other.evaluate(() => document.documentElement.scrollWidth);
    assert.equal(width, other.viewportSize().width);
    assert.deepEqual(wrong, []);
    await other.close();
  }
});

test("the page draws the robot, and draws it anew in another posture", async () => {
  const canvas = page.locator("#robot canvas");
  const standing = await canvas.screenshot();
  await page.getByRole("button", { name: "Sit", exact: true }).click();
  await page.locator(".pose", { hasText: "Sitting" }).waitFor();
  assert.notDeepEqual(await canvas.screenshot(), standing);
  await page.getByRole("button", { name: "Stand", exact: true }).click();
  await page.locator(".pose", { hasText: "Standing" }).waitFor();
});

test("an event is told in plain words, and its repeats are one line", async () => {
  await touchHead(/Head touched in front(?! for)/);
  await touches()
    .filter({ hasText: /Head touched in front for \d/ })
    .waitFor();
  await touchHead(/Head touched in front, 2 times/);
  assert.equal(await touches().count(), 1);
});

test("a filter and the subjects leave out what does not fit", async () => {
  const story = page.getByRole("region", { name: "What happened" });
  const names = () => rows().locator(".name").allTextContents();
  await page.getByLabel("Filter events").fill("tactil");
  assert.deepEqual(
    (await names()).filter((name) => !/tactil/i.test(name)),
    [],
  );
  await page.getByLabel("Filter events").fill("");
  await story.getByRole("button", { name: "Touch", exact: true }).click();
  assert.ok(!(await names()).includes("FrontTactilTouched"));
  assert.ok((await names()).includes("robotPoseChanged"));
  await story.getByRole("button", { name: "Touch", exact: true }).click();
  const [saved] = await Promise.all([
    page.waitForEvent("download"),
    story.getByRole("button", { name: "Download" }).click(),
  ]);
  assert.equal(saved.suggestedFilename(), "events.tsv");
});

test("the past can be looked at, and the present is one key away", async () => {
  await touches().first().getByRole("button").click();
  await verdict()
    .getByText(/^Looking back at/)
    .waitFor();
  await page.locator("#touch", { hasText: "Head, front" }).waitFor();
  await page.locator(".rows li.here").waitFor();
  const slider = page.getByRole("slider", { name: "Time" });
  assert.match(await slider.getAttribute("aria-valuetext"), /seconds ago, Head touched/);
  await page.reload();
  await verdict()
    .getByText(/^Looking back at/)
    .waitFor();
  await page.locator("#touch", { hasText: "Head, front" }).waitFor();
  assert.deepEqual(await accessFindings(page), []);
  await page.locator("body").press("End");
  await verdict().getByText("All is well").waitFor();
  await page.locator("#touch .answer", { hasText: "nothing" }).waitFor();
});

test("a held moment stands still and plays on", async () => {
  await page.locator("body").press(" ");
  await verdict()
    .getByText(/^Looking back at/)
    .waitFor();
  await page.locator("body").press("p");
  const place = page.locator(".place");
  const held = (await place.textContent()).split(" ")[0];
  await page.getByRole("button", { name: "Play", exact: true }).click();
  await page.waitForFunction(
    (before) => !document.querySelector(".place").textContent.startsWith(before),
    held,
  );
  await page.getByRole("button", { name: "Return to live" }).click();
  await page.locator(".place", { hasText: "Now" }).waitFor();
});

test("what the host remembers is kept as a recording", async () => {
  const [saved] = await Promise.all([
    page.waitForEvent("download"),
    page.getByRole("button", { name: "Keep this" }).click(),
  ]);
  assert.match(saved.suggestedFilename(), /^past-.*\.mcap$/);
});

test("keys are shown, and escape goes back", async () => {
  await page.locator("body").press("?");
  const help = page.getByRole("dialog", { name: "Keys and signs" });
  await help.getByText("hold this moment, play on").waitFor();
  assert.deepEqual(await accessFindings(page), []);
  await page.keyboard.press("Escape");
  await help.waitFor({ state: "hidden" });
});

test("the world is a few stops of the Tab key, and arrows go on from there", async () => {
  const stops = await page.locator("#world :is(button, input):not([tabindex='-1'])").count();
  assert.ok(stops <= 12, `${stops} stops`);
  await page.getByRole("button", { name: "Stand", exact: true }).focus();
  await page.keyboard.press("ArrowRight");
  const focused = () => page.evaluate(() => document.activeElement.textContent);
  assert.equal(await focused(), "Crouch");
});

async function openMethod(module, method) {
  const opened = page.locator(`details[data-module="${module}"]`);
  if ((await opened.getAttribute("open")) === null) {
    await opened.locator("> summary").click();
  }
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
  const hoist = page.getByRole("switch", { name: "Hoist holds the robot" });
  // Only what is on the screen is asked for.
  await page.evaluate(() => window.scrollTo(0, 0));
  await hoist.click();
  await rows().filter({ hasText: "footContactChanged" }).first().waitFor();
  await page.locator("#feet", { hasText: "off the floor" }).waitFor();
  await hoist.click();
  await page.locator("#feet", { hasText: "on the floor" }).waitFor();
});

test("what somebody else does to the world shows at once", async () => {
  await write(host.url, "Simulation/Charger/Plugged", true);
  await page.getByRole("switch", { name: "Charger plugged in", checked: true }).waitFor();
  await write(host.url, "Simulation/Charger/Plugged", false);
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

test("a sonar that is off is off everywhere, and the nearest obstacle is drawn", async () => {
  const sonar = page.locator("#sonar");
  const chip = page.getByRole("listitem").filter({ hasText: "sonar: left" }).locator("strong");
  await sonar.getByRole("img", { name: "The sonar is off" }).waitFor();
  await chip.scrollIntoViewIfNeeded();
  await page.waitForFunction((element) => element.textContent === "–", await chip.elementHandle());
  await write(host.url, "Simulation/Obstacle/Left/Distance", 0.2);
  await sonar.getByRole("button", { name: "Switch on" }).click();
  await sonar.getByText("obstacle left").waitFor();
  const { height } = await sonar.locator(".wedge.near").first().boundingBox();
  assert.ok(height > 8, `${height} pixels`);
  // What is out of sight is not asked for.
  await chip.scrollIntoViewIfNeeded();
  await page.waitForFunction((element) => element.textContent !== "–", await chip.elementHandle());
  await write(host.url, "Simulation/Obstacle/Left/Distance", 2.55);
  await untilSonarIsHeardBy(["page"]);
  await page.goto("about:blank");
  await untilSonarIsHeardBy([]);
  await page.goto(host.url);
  await untilLive(page);
});

test("a memory key is plotted by its name, and a wrong one is refused with a reason", async () => {
  const input = page.getByLabel("Memory key to plot");
  await input.fill("Simulation/Hoist/Height");
  await input.press("Enter");
  const chip = page
    .getByRole("list", { name: "Plotted values" })
    .getByRole("listitem")
    .filter({ hasText: "Simulation/Hoist/Height" });
  await chip.filter({ hasText: "0.45" }).waitFor();
  await input.fill("No/Such/Key");
  await input.press("Enter");
  await page.getByText("There is no memory key No/Such/Key.").waitFor();
});

test("light and dark follow the system until the reader chooses", async () => {
  const theme = () => page.locator("html").getAttribute("data-theme");
  await page.emulateMedia({ colorScheme: "dark" });
  await page.locator('html[data-theme="dark"]').waitFor();
  assert.deepEqual(await accessFindings(page), []);
  await page.getByRole("button", { name: "Switch to light" }).click();
  assert.equal(await theme(), "light");
  await page.reload();
  assert.equal(await theme(), "light");
  await page.emulateMedia({ colorScheme: "light" });
});

test("everybody can use it: colours of one's own, less motion, a narrow window, a phone", async () => {
  const kinds = [
    { forcedColors: "active" },
    { reducedMotion: "reduce" },
    // 1440 by 900 at 200 %.
    { viewport: { width: 720, height: 450 } },
    kPhone,
  ];
  for (const options of kinds) {
    const { page: other } = await openPage(browser, host.url, options);
    await untilLive(other);
    await other.locator(".rows li").first().waitFor();
    assert.deepEqual(await accessFindings(other), [], JSON.stringify(options));
    const width = await other.evaluate(() => document.documentElement.scrollWidth);
    assert.equal(width, other.viewportSize().width, JSON.stringify(options));
    await other.close();
  }
});

test("with colours of one's own bars and switches still show how far and whether", async () => {
  const { page: other } = await openPage(browser, host.url, { forcedColors: "active" });
  await other.locator("#battery", { hasText: /\d %/ }).waitFor();
  const color = (selector) =>
    other
      .locator(selector)
      .first()
      .evaluate((element) => getComputedStyle(element).backgroundColor);
  assert.notEqual(await color("#battery .level"), await color("#battery .meter"));
  assert.notEqual(await color(".level-cell .level"), await color(".level-cell"));
  assert.notEqual(
    await color(".switch .track"),
    await other
      .locator(".switch .track")
      .first()
      .evaluate((element) => getComputedStyle(element, "::after").backgroundColor),
  );
  await other.close();
});

test("on a phone the robot stays in sight while something is done to it", async () => {
  const { page: phone } = await openPage(browser, host.url, kPhone);
  await untilLive(phone);
  await phone.getByRole("button", { name: "Push forward" }).scrollIntoViewIfNeeded();
  assert.ok(await isSeen(phone, "#robot"));
  await phone.close();
});

test("a page at rest takes little, and one that nobody sees takes nothing", async () => {
  const counted = await countTraffic(page);
  const over = async (milliseconds) => {
    Object.assign(counted, { bytes: 0, messages: [] });
    const begin = await page.evaluate(() => performance.now());
    await page.waitForTimeout(milliseconds);
    const seconds = ((await page.evaluate(() => performance.now())) - begin) / 1000;
    return { bytes: counted.bytes / seconds, count: counted.messages.length, seconds };
  };
  await page.evaluate(() => window.scrollTo(0, 0));
  const seen = await over(3_000);
  assert.ok(seen.bytes < 30_000, `${seen.bytes} bytes a second`);
  const joints = counted.messages.filter((text) => text.includes('"joints"')).length;
  assert.ok(joints > 0 && joints / seen.seconds <= 21, `${joints} samples`);
  await page.evaluate(() => {
    Object.defineProperty(document, "hidden", { value: true, configurable: true });
    document.dispatchEvent(new Event("visibilitychange"));
  });
  await over(300);
  const samples =
    (await over(1_000)) && counted.messages.filter((text) => !text.includes('"kind"'));
  assert.deepEqual(samples, []);
  await page.evaluate(() => {
    delete document.hidden;
    document.dispatchEvent(new Event("visibilitychange"));
  });
});

test("a robot at rest is not drawn, and no 3D is loaded where it would be slow", async () => {
  const urls = [];
  const { page: other } = await openPage(browser, "about:blank");
  other.on("request", (request) => urls.push(request.url()));
  await other.addInitScript(() => {
    globalThis.drawn = 0;
    const { clearRect } = CanvasRenderingContext2D.prototype;
    CanvasRenderingContext2D.prototype.clearRect = function (...box) {
      globalThis.drawn += this.canvas.closest("#robot") === null ? 0 : 1;
      clearRect.apply(this, box);
    };
  });
  await other.goto(host.url);
  await untilLive(other);
  await other.waitForFunction(() => globalThis.drawn > 0);
  let before;
  do {
    before = await other.evaluate(() => globalThis.drawn);
    await other.waitForTimeout(400);
  } while (before !== (await other.evaluate(() => globalThis.drawn)));
  assert.deepEqual(
    urls.filter((url) => url.includes("robotView")),
    [],
  );
  await other.close();
});

test("the page asks no other host for anything", async () => {
  const urls = [];
  page.on("request", (request) => urls.push(request.url()));
  page.on("websocket", (socket) => urls.push(socket.url().replace("ws:", "http:")));
  await page.reload();
  await untilLive(page);
  assert.deepEqual(
    urls.filter((url) => !url.startsWith(host.url) && !url.startsWith("blob:")),
    [],
  );
});

test("a fall is the first thing to read, with what to do, and doing it helps", async () => {
  const push = page.getByRole("button", { name: "Push forward" });
  await page.getByRole("slider", { name: "Force" }).fill("60");
  await push.focus();
  await page.keyboard.down(" ");
  await verdict()
    .getByText(/^Fell onto its (belly|back|left side|right side)/)
    .waitFor();
  await page.keyboard.up(" ");
  await page.waitForFunction(() => document.title.startsWith("⚠ Fell"));
  await page.getByText(/^Wanted: Stand · is: on its/).waitFor();
  await page.locator('.rows [data-importance="3"]').first().waitFor();
  assert.deepEqual(await accessFindings(page), []);
  await page.getByRole("button", { name: "Stand it up" }).click();
  await verdict().getByText("All is well").waitFor();
  // How firmly it stands then is up to physics in real time.
  await page.locator(".pose", { hasNotText: /^On its/ }).waitFor();
});

test("a recording is played on the same line of time", async () => {
  const played = await startPlayback(host);
  try {
    const { page: other, problems: wrong } = await openPage(
      browser,
      `${played.url}?t=0.8&speed=0.5`,
    );
    await other
      .getByText(/^Paused|^Playing/)
      .first()
      .waitFor();
    await other.locator(".place", { hasText: /^0:00\.8 of/ }).waitFor();
    await other.locator("#feet .answer", { hasText: "floor" }).waitFor();
    assert.equal(await other.locator("#world").isVisible(), false);
    await other.locator("body").press("Home");
    await other.locator(".place", { hasText: /^0:00\.\d of/ }).waitFor();
    await other.locator("body").press(" ");
    await other
      .getByText(/^Playing/)
      .first()
      .waitFor();
    await other.locator("body").press("End");
    await other
      .getByText(/^Paused/)
      .first()
      .waitFor();
    await other.locator(".pose", { hasText: /\w/ }).waitFor();
    assert.deepEqual(await accessFindings(other), []);
    assert.deepEqual(wrong, []);
    await other.close();
  } finally {
    await played.stop();
  }
});
