import { chromium } from "playwright-core";

/** Long, for machines that draw in software while they build something. */
const kTimeout = 60_000;

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
