// Bundles the pages into dist/ and dist-fleet/, or its unit tests into a folder of their own.
import { build } from "esbuild";
import { copyFile, mkdir, readdir, rm } from "node:fs/promises";
import { dirname, join } from "node:path";
import { fileURLToPath } from "node:url";

const web = dirname(fileURLToPath(import.meta.url));
const common = {
  bundle: true,
  format: "esm",
  target: "es2022",
  logLevel: "warning",
  absWorkingDir: web,
};

/** The page as a host serves it: index.html, icon.svg, page.js with its parts, page.css. */
export async function buildPage(out = join(web, "dist")) {
  await rm(out, { recursive: true, force: true });
  await mkdir(out, { recursive: true });
  await build({
    ...common,
    entryPoints: ["src/page.ts", "src/styles/page.css"],
    entryNames: "[name]",
    // What draws in three dimensions is loaded once the rest is there.
    splitting: true,
    chunkNames: "[name]-[hash]",
    outdir: out,
    minify: true,
    legalComments: "eof",
  });
  for (const file of ["index.html", "icon.svg"]) {
    await copyFile(join(web, file), join(out, file));
  }
}

/** The fleet's page as gk fleet serve serves it: index.html, icon.svg, fleet.js, fleet.css. */
export async function buildFleetPage(out = join(web, "dist-fleet")) {
  await rm(out, { recursive: true, force: true });
  await mkdir(out, { recursive: true });
  await build({
    ...common,
    entryPoints: ["src/fleet/fleet.ts", "src/styles/fleet.css"],
    entryNames: "[name]",
    outdir: out,
    minify: true,
    legalComments: "eof",
  });
  await copyFile(join(web, "fleet.html"), join(out, "index.html"));
  await copyFile(join(web, "icon.svg"), join(out, "icon.svg"));
}

/** Returns the files of the unit tests, ready to run. */
export async function buildTests(out) {
  const sources = (await readdir(join(web, "test/unit"))).filter((file) =>
    file.endsWith(".test.ts"),
  );
  await build({
    ...common,
    entryPoints: sources.map((file) => `test/unit/${file}`),
    entryNames: "[name]",
    outExtension: { ".js": ".mjs" },
    outdir: out,
    platform: "node",
  });
  return sources.map((file) => join(out, file.replace(/\.ts$/, ".mjs")));
}

if (process.argv[1] === fileURLToPath(import.meta.url)) {
  await buildPage(process.argv[2]);
  await buildFleetPage(process.argv[3]);
}
