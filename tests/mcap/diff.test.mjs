// A comparison as a browser shows it, opened from the disk without a network.
//
// GK_PROGRAM is the gk program, GK_CHROMIUM a browser.

import {after, before, test} from "node:test";
import assert from "node:assert/strict";
import {spawnSync} from "node:child_process";
import {mkdtempSync, rmSync, writeFileSync} from "node:fs";
import {tmpdir} from "node:os";
import {join} from "node:path";
import {pathToFileURL} from "node:url";

import {nextFrame, openFile, startBrowser} from "./page.mjs";

const folder = mkdtempSync(join(tmpdir(), "gk-diff-"));
const file = join(folder, "diff.html");
let browser;

const event = (t, name, value) => JSON.stringify({t, kind: "event", name, value});

before(async () => {
  const same = [0, 10, 20, 30].map((t) => event(t, "Same", t));
  writeFileSync(join(folder, "a.jsonl"), [...same, event(30, "pose", "Sit"), event(31, "touched", 1), event(32, "left", 5)].join("\n"));
  writeFileSync(join(folder, "b.jsonl"), [...same, event(30, "pose", "Stand"), event(31.5, "touched", 1), event(33, "right", 6),
    event(40, "</script><img src=x onerror=alert(1)>", "<b>")].join("\n"));
  const result = spawnSync(process.env.GK_PROGRAM, ["diff", "--html", file, join(folder, "a.jsonl"), join(folder, "b.jsonl")]);
  assert.equal(result.status, 1, String(result.stderr));
  browser = await startBrowser();
});

after(async () => {
  await browser?.close();
  rmSync(folder, {recursive: true});
});

const open = (options) => openFile(browser, file, options);

const place = (page) => page.locator("#place").textContent();
const press = async (page, key) => {
  await page.keyboard.press(key);
  await nextFrame(page);
};

test("it draws both runs, marks the differences, and asks for nothing else", async () => {
  const page = await open();
  assert.equal(await page.title(), "a.jsonl and b.jsonl");
  assert.match(await page.locator("#verdict").textContent(), /1 missing, 2 extra, 1 changed, 1 moved; the first at 30 s/);
  for (const [kind, count] of Object.entries({missing: 1, extra: 2, changed: 1, moved: 1})) {
    assert.equal(await page.locator(`#lanes line.link.${kind}`).count(), count, kind);
  }
  assert.equal(await page.locator("#lanes line.raise.a").count(), 7);
  assert.equal(await page.locator("#lanes line.raise.b").count(), 8);
  assert.equal(await page.locator("#differences tbody tr").count(), 5);
  assert.equal(await page.locator("img").count(), 0);
  assert.deepEqual(page.complaints, []);
  assert.deepEqual(page.requested, [pathToFileURL(file).href]);
});

test("keys, buttons and rows go from difference to difference", async () => {
  const page = await open();
  assert.equal(await place(page), "5 differences");
  await press(page, "n");
  assert.equal(await place(page), '1 of 5: pose changed: "Sit" at 30 s is "Stand" at 30 s');
  assert.equal(await page.locator("#lanes line.link.chosen").count(), 1);
  await press(page, "n");
  assert.equal(await place(page), "2 of 5: touched moved: 1 from 31 to 31.5 s");
  await press(page, "p");
  assert.match(await place(page), /^1 of 5/);
  await press(page, "p");
  assert.match(await place(page), /^1 of 5/);
  await press(page, "End");
  assert.match(await place(page), /^5 of 5: .* extra: "<b>" at 40 s$/);
  await press(page, "Home");
  assert.match(await place(page), /^1 of 5/);
  await page.locator("[data-step='1']").click();
  await nextFrame(page);
  assert.match(await place(page), /^2 of 5/);
  await page.locator("#differences tbody tr").nth(2).click();
  await nextFrame(page);
  assert.match(await place(page), /^3 of 5: left missing: 5 at 32 s$/);
  assert.equal(await page.locator("#differences tr.chosen").count(), 1);
});

test("it follows the dark mode and says in words what colours say", async () => {
  const paper = (page) => page.evaluate(() => getComputedStyle(document.body).backgroundColor);
  const light = await open({colorScheme: "light"});
  const dark = await open({colorScheme: "dark"});
  assert.notEqual(await paper(light), await paper(dark));
  assert.deepEqual(await light.locator("#differences td.kind").allTextContents(),
    ["\u2260 changed", "\u2192 moved", "\u2212 missing", "+ extra", "+ extra"]);
});
