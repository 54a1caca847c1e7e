#!/bin/sh
# How fast runs are compared, and the largest resident memory. Usage: diff.sh GK
set -eu
gk=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# measure NAME FILES AND OPTIONS
measure() {
  name=$1
  shift
  /usr/bin/time -f '%e %M' -o "$work/time" "$gk" diff --stat "$@" >"$work/out" || true
  printf '%-44s %8s s %10s KiB   %s\n' "$name" $(tail -n 1 "$work/time") "$(tail -n 1 "$work/out")"
}

# An hour of 25 keys at 50 Hz; every PLANTth value is another one.
sampled() {
  awk -v plant="$1" 'BEGIN {
    for (row = 0; row < 180000; ++row) {
      printf "{\"t\":%.2f,\"kind\":\"sample\",\"values\":{", row / 50
      for (c = 0; c < 25; ++c) {
        value = (row * (c + 7)) % 1000 / 997
        if (plant > 0 && (row * 25 + c) % plant == plant - 1) value = 2
        printf "%s\"Column/%d\":%.4f", (c > 0 ? "," : ""), c, value
      }
      print "}}"
    }
  }'
}

"$gk" run --speed max --until 3600 --quiet --subscribe GKSonar --record "$work/tour.mcap" 2>/dev/null
"$gk" replay "$work/tour.mcap" --out "$work/tour.jsonl" --only event,micro 2>/dev/null
awk 'NR % 500 == 250 { next } { print }' "$work/tour.jsonl" >"$work/planted.jsonl"
measure "an hour of the tour's events, same" "$work/tour.jsonl" "$work/tour.jsonl"
measure "an hour of the tour's events, planted" "$work/tour.jsonl" "$work/planted.jsonl"
measure "an hour's recording, run again" "$work/tour.mcap"
sampled 0 >"$work/a.jsonl"
sampled 45001 >"$work/few.jsonl"
sampled 1501 >"$work/many.jsonl"
measure "an hour of 25 keys, same" --only sample "$work/a.jsonl" "$work/a.jsonl"
measure "an hour of 25 keys, 99 planted" --only sample "$work/a.jsonl" "$work/few.jsonl"
measure "an hour of 25 keys, 2,998 planted" --only sample "$work/a.jsonl" "$work/many.jsonl"
awk '{ gsub(/:0\./, ":1."); print }' "$work/a.jsonl" >"$work/other.jsonl"
measure "an hour of 25 keys, nothing in common" --only sample "$work/a.jsonl" "$work/other.jsonl"
