// Makes the pictures of the documentation:  GK_PROGRAM=gk node test/screenshots.mjs FOLDER
import { execFileSync } from "node:child_process";
import { mkdir, mkdtemp, rm } from "node:fs/promises";
import { tmpdir } from "node:os";
import { join } from "node:path";
import { openPage, startBrowser, untilLive } from "./page/browser.mjs";
import { startHost, write } from "./page/host.mjs";

const kFolder = process.argv[2] ?? "../docs/images";
const kDesk = { viewport: { width: 1440, height: 900 }, deviceScaleFactor: 1 };
const kPhone = {
  viewport: { width: 390, height: 844 },
  isMobile: true,
  hasTouch: true,
  deviceScaleFactor: 2,
};
/** A short recording of a fall, beside the program's sources. */
const kRecording = new URL("../../data/imu_fall_forward.csv", import.meta.url).pathname;
const kTour = new URL("../../examples/tour.jsonl", import.meta.url).pathname;

const browser = await startBrowser();
await mkdir(kFolder, { recursive: true });

/** Opens the page in this way, waits for `ready(page)` and takes a picture. */
async function shoot(name, url, options, ready) {
  const { page } = await openPage(browser, "about:blank", options);
  await page.addInitScript((view) => {
    localStorage.setItem("gksensors.robotView", JSON.stringify(view));
  }, options.view ?? "3d");
  await page.goto(url);
  await ready(page);
  await settle(page);
  await page.screenshot({ path: join(kFolder, `page-${name}.png`) });
  console.log(name);
  await page.close();
}

/** Until the robot's picture does not change any more. */
async function settle(page) {
  const canvas = page.locator("#robot canvas");
  let before;
  let now = await canvas.screenshot();
  do {
    before = now;
    await page.waitForTimeout(400);
    now = await canvas.screenshot();
  } while (!before.equals(now));
}

const untilSolid = (page) => page.locator('.solid[aria-pressed="true"]').waitFor();
const untilSaid = (page, text) => page.locator("#verdict").getByText(text).first().waitFor();

async function touchHead(host) {
  await write(host.url, "Simulation/Touch/Head/Touch/Front", true);
  await new Promise((resolve) => setTimeout(resolve, 700));
  await write(host.url, "Simulation/Touch/Head/Touch/Front", false);
}

async function pose(host, name) {
  await write(host.url, "Simulation/Posture", name);
  await new Promise((resolve) => setTimeout(resolve, 3_500));
}

const host = await startHost();
try {
  await touchHead(host);
  await pose(host, "Sit");
  await pose(host, "Stand");
  const live = async (page) => {
    await untilLive(page);
    await untilSolid(page);
    await untilSaid(page, "All is well");
  };
  await shoot("light", host.url, kDesk, live);
  await shoot("dark", host.url, { ...kDesk, colorScheme: "dark" }, live);
  await shoot("phone", host.url, { ...kPhone, colorScheme: "dark" }, live);
  await write(host.url, "Simulation/Push/X", 59.5);
  await new Promise((resolve) => setTimeout(resolve, 1_200));
  await write(host.url, "Simulation/Push/X", 0);
  const fallen = async (page) => {
    await untilLive(page);
    await untilSolid(page);
    await untilSaid(page, /^Fell onto/);
  };
  await shoot("fallen", host.url, kDesk, fallen);
  await shoot(
    "forced",
    host.url,
    { ...kDesk, forcedColors: "active", view: "2d" },
    async (page) => {
      await untilLive(page);
      await untilSaid(page, /^Fell onto/);
    },
  );
  await shoot("past", host.url, kDesk, async (page) => {
    await fallen(page);
    await page
      .getByRole("button", { name: /Head touched in front/ })
      .first()
      .click();
    await untilSaid(page, /^Looking back/);
    await page.locator("#touch", { hasText: "Head, front" }).waitFor();
  });
  await shoot("stale", host.url, kDesk, async (page) => {
    await fallen(page);
    host.pause();
    await page.getByText(/^Connected, but the values are [6-9] s old/).waitFor();
  });
  host.resume();
} finally {
  await host.stop();
}
const over = await startHost(0, "", [kRecording]);
try {
  await shoot("ended", over.url, kDesk, async (page) => {
    await untilSolid(page);
    await page.getByText("Ended", { exact: true }).waitFor();
  });
} finally {
  await over.stop();
}

// The report of the tour.
const folder = await mkdtemp(join(tmpdir(), "gk-report-"));
try {
  const gk = (...words) => execFileSync(process.env.GK_PROGRAM, words, { cwd: folder, stdio: "ignore" });
  gk("run", "--robot", "sim", "--speed", "max", "--until", "64", "--no-listen", "--record", "tour.mcap", kTour);
  gk("replay", "--report", "tour.html", "--quiet", "tour.mcap");
  const page = await browser.newPage({ viewport: { width: 1250, height: 1150 } });
  await page.goto(`file://${join(folder, "tour.html")}`);
  await page.locator("#plots svg").first().hover();
  await page.screenshot({ path: join(kFolder, "report.png") });
  console.log("report");
} finally {
  await rm(folder, { recursive: true });
  await browser.close();
}
