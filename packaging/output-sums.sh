#!/bin/sh
# The checksums of what gk writes for each recording that comes with the project, and for 80 s of the
# simulated robot: the same on every machine. In the project's folder.
# Usage: output-sums.sh GK
set -eu
for recording in data/*.csv; do
  "$1" replay "$recording" --subscribe GKSonar --out - 2>/dev/null | sha256sum | sed "s|-|$recording|"
done
"$1" run --speed max --until 80 --out - 2>/dev/null | sha256sum | sed 's|-|tour|'
