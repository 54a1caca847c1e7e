// Runs tests:  node test/run.mjs unit | page
// The page's tests drive a browser: GK_CHROMIUM names it, /usr/bin/chromium when absent. With
// GK_PROGRAM they run against that gk program, else against the mock host.
import { spawnSync } from "node:child_process";
import { mkdtemp, readdir, rm } from "node:fs/promises";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";
import { buildPage, buildTests } from "../build.mjs";

const here = dirname(fileURLToPath(import.meta.url));

async function unitTests() {
  // Below this folder, where node finds the packages.
  const out = await mkdtemp(join(here, ".unit-"));
  try {
    return run(await buildTests(out));
  } finally {
    await rm(out, { recursive: true });
  }
}

async function pageTests() {
  if (process.env.GK_PROGRAM === undefined) {
    await buildPage();
  }
  const files = (await readdir(join(here, "page"))).filter((file) => file.endsWith(".test.mjs"));
  return run(files.map((file) => join(here, "page", file)));
}

function run(files) {
  return spawnSync(process.execPath, ["--test", ...files], { stdio: "inherit" }).status ?? 1;
}

process.exitCode = await (process.argv[2] === "page" ? pageTests() : unitTests());
