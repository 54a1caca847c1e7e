// A report as a browser shows it, opened from the disk without a network.
//
// GK_PROGRAM is the gk program, GK_SOURCE_DIR the repository, GK_CHROMIUM a browser.

import {after, before, test} from "node:test";
import assert from "node:assert/strict";
import {execFileSync} from "node:child_process";
import {mkdtempSync, rmSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {pathToFileURL} from "node:url";

import {nextFrame, openFile, startBrowser} from "./page.mjs";

const data = join(process.env.GK_SOURCE_DIR, "data");
const folder = mkdtempSync(join(tmpdir(), "gk-report-"));
const file = join(folder, "report.html");
let browser;

before(async () => {
  execFileSync(process.env.GK_PROGRAM, ["replay", "--subscribe", "GKSonar", "--report", file, "--out",
    join(folder, "out.jsonl"), join(data, "imu_fall_forward.csv"), join(data, "us_wallrobot.csv")], {stdio: "ignore"});
  browser = await startBrowser();
});

after(async () => {
  await browser?.close();
  rmSync(folder, {recursive: true});
});

const open = (options) => openFile(browser, file, options);

const shownWindow = (page) => page.locator("#window").textContent();
const paper = (page) => page.evaluate(() => getComputedStyle(document.body).backgroundColor);

test("it draws poses, events and plots, and asks for nothing else", async () => {
  const page = await open();
  assert.equal(await page.title(), "imu_fall_forward.csv, us_wallrobot.csv");
  assert.ok((await page.locator("#lanes .posename").allTextContents()).includes("Belly"));
  // Of what neither file has measured nothing is drawn.
  assert.deepEqual(await page.locator("#plots h3").allTextContents(), ["Sonar", "Inclination"]);
  const curves = await page.locator("#plots path.curve").evaluateAll((paths) => paths.map((path) => path.getAttribute("d")));
  assert.equal(curves.length, 4);
  assert.ok(curves.every((curve) => curve.startsWith("M") && !curve.includes("NaN")));
  assert.ok((await page.locator("#events tbody tr").count()) > 10);
  assert.ok((await page.locator("#lanes line.raise").count()) > 50);
  assert.deepEqual(page.complaints, []);
  assert.deepEqual(page.requested, [pathToFileURL(file).href]);
});

test("wheel, drag, keys and buttons change the window, a double click shows all", async () => {
  const page = await open();
  const all = await shownWindow(page);
  const box = await page.locator("#lanes svg").boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + 40);
  await page.mouse.wheel(0, -300);
  await nextFrame(page);
  assert.equal(await shownWindow(page), all, "without a key the wheel scrolls");
  await page.keyboard.down("Control");
  await page.mouse.wheel(0, -300);
  await page.keyboard.up("Control");
  await nextFrame(page);
  const zoomed = await shownWindow(page);
  assert.notEqual(zoomed, all);
  await page.mouse.down();
  await page.mouse.move(box.x + box.width / 2 + 150, box.y + 40);
  await page.mouse.up();
  await nextFrame(page);
  const dragged = await shownWindow(page);
  assert.ok(parseFloat(dragged) < parseFloat(zoomed), `${dragged}, before ${zoomed}`);
  await page.mouse.dblclick(box.x + box.width / 2, box.y + 40);
  await nextFrame(page);
  assert.equal(await shownWindow(page), all);
  await page.keyboard.press("+");
  await nextFrame(page);
  assert.notEqual(await shownWindow(page), all);
  await page.locator("button[data-all]").click();
  await nextFrame(page);
  assert.equal(await shownWindow(page), all);
});

test("the pointer tells values, and the moment in every chart", async () => {
  const page = await open();
  const plot = page.locator("#plots svg").nth(0);
  await plot.scrollIntoViewIfNeeded();
  const box = await plot.boundingBox();
  await page.mouse.move(box.x + box.width / 2, box.y + 20);
  const legend = await page.locator("#plots .legend").nth(0).textContent();
  assert.match(legend, /left [\d.]+ m/);
  const moments = await page.locator("svg .moment").allTextContents();
  assert.ok(moments.length > 2);
  assert.match(moments[0], /^[\d.]+ s$/);
  assert.equal(new Set(moments).size, 1);
});

test("a fall stands out, and a phone shows all without scrolling sideways", async () => {
  const page = await open({viewport: {width: 390, height: 844}});
  assert.equal(await page.locator("#lanes .pose.alarming title").first().textContent().then((text) => text.split(",")[0]), "Belly");
  assert.equal(await page.locator("#lanes .pose.alarming").count(), 1);
  assert.equal(await page.evaluate(() => document.documentElement.scrollWidth), 390);
});

test("it is light and dark, and prints in black on white without its buttons", async () => {
  assert.equal(await paper(await open({colorScheme: "light"})), "rgb(255, 255, 255)");
  const dark = await open({colorScheme: "dark"});
  assert.notEqual(await paper(dark), "rgb(255, 255, 255)");
  await dark.emulateMedia({media: "print"});
  assert.equal(await paper(dark), "rgb(255, 255, 255)");
  assert.equal(await dark.locator("button").first().isVisible(), false);
  assert.ok((await dark.pdf()).length > 10_000);
});
