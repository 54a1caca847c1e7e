#!/bin/sh
# Lets each fuzz target look for new inputs, starting from the kept ones.
# Usage: run.sh BUILD_DIR SECONDS
# New inputs land in BUILD_DIR/found/TARGET, those that break something in BUILD_DIR/broken/.
set -eu
build=$1
seconds=$2
source=$(dirname "$0")

mkdir -p "$build/broken"
for program in "$build"/bin/*_fuzz; do
  name=$(basename "$program" _fuzz)
  mkdir -p "$build/found/$name"
  echo "$name: $seconds seconds"
  if ! "$program" -max_total_time="$seconds" -timeout=20 -print_final_stats=1 \
    -artifact_prefix="$build/broken/$name-" "$build/found/$name" "$source/corpus/$name" \
    >"$build/$name.log" 2>&1; then
    tail -n 40 "$build/$name.log"
    exit 1
  fi
  grep -E 'stat::(number_of_executed_units|new_units_added)' "$build/$name.log"
done
