#!/bin/sh
# Runs the page's tests. Where npm could not install what the page is made of there is no page to
# test: that is said, and the test counts as not run (77).
# Usage: run.sh WEB_DIR NODE unit|page
set -eu
if [ ! -e "$1/node_modules/.package-lock.json" ]; then
  echo "The page was left out, npm could not install its packages: nothing to test"
  exit 77
fi
exec "$2" "$1/test/run.mjs" "$3"
