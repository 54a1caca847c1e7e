// Pages that gk writes, opened from the disk in a browser without a network.
//
// GK_CHROMIUM is the browser.

import {pathToFileURL} from "node:url";

import {chromium} from "playwright-core";

export function startBrowser() {
  return chromium.launch({executablePath: process.env.GK_CHROMIUM, args: ["--no-sandbox", "--disable-gpu"]});
}

/// Opens a file; complaints and requests of the page are kept.
export async function openFile(browser, file, options = {}) {
  const context = await browser.newContext({offline: true, viewport: {width: 1250, height: 900}, ...options});
  const page = await context.newPage();
  page.complaints = [];
  page.requested = [];
  page.on("pageerror", (error) => page.complaints.push(String(error)));
  page.on("console", (message) => message.type() === "error" && page.complaints.push(message.text()));
  page.on("request", (request) => page.requested.push(request.url()));
  await page.goto(pathToFileURL(file).href);
  return page;
}

/// Drawing happens with the next frame.
export const nextFrame = (page) =>
  page.evaluate(() => new Promise((done) => requestAnimationFrame(() => requestAnimationFrame(done))));
