#!/bin/sh
# How fast recordings are replayed, and the simulated robot is moved: seconds of the robot's time a
# second, and the largest resident memory. Usage: replay.sh GK DATA_DIR
set -eu
gk=$1
data=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
hour=3600

# repeat FILE: its rows over and over until an hour is full, 20 ms between the rounds.
repeat() {
  awk -F, -v hour="$hour" '
    NR == 1 { print; next }
    { time[NR] = $1; rest[NR] = substr($0, length($1) + 1); last = NR }
    END {
      for (start = 0; start < hour; start += time[last] + 0.02)
        for (i = 2; i <= last && start + time[i] < hour; ++i)
          printf "%.6f%s\n", start + time[i], rest[i]
    }' "$1"
}

# An hour of 25 columns at 50 Hz, every cell filled.
wide() {
  awk -v hour="$hour" 'BEGIN {
    printf "time"
    for (c = 0; c < 25; ++c) printf ",Column/%d", c
    print ""
    for (row = 0; row < hour * 50; ++row) {
      printf "%.2f", row / 50
      for (c = 0; c < 25; ++c) printf ",%.4f", (row * (c + 7)) % 1000 / 997
      print ""
    }
  }'
}

# measure NAME COMMAND OPTIONS
measure() {
  name=$1
  shift
  /usr/bin/time -f '%M' -o "$work/memory" "$gk" "$@" >/dev/null 2>"$work/summary"
  speed=$(tail -n 1 "$work/summary" | sed 's/.*in \([0-9.]*\) s, \([0-9.]*\) times.*/\1 \2/')
  printf '%-44s %10s %12s %10s\n' "$name" $speed "$(cat "$work/memory")"
}

printf '%-44s %10s %12s %10s\n' "an hour of" "seconds" "x real time" "KiB"
for file in "$data"/*.csv; do
  base=$(basename "$file")
  repeat "$file" >"$work/$base"
  measure "$base, events" replay --out /dev/null --only event,micro "$work/$base"
  measure "$base, everything" replay --out /dev/null "$work/$base"
  rm "$work/$base"
done
wide >"$work/wide.csv"
measure "25 columns at 50 Hz, events" replay --out /dev/null --only event,micro "$work/wide.csv"
measure "25 columns at 50 Hz, everything" replay --out /dev/null "$work/wide.csv"
echo "{\"t\":$hour,\"get\":[\"footContact\"]}" >"$work/empty.jsonl"
measure "an almost empty scenario, events" replay --out /dev/null --only event,micro "$work/empty.jsonl"
measure "an almost empty scenario, everything" replay --out /dev/null "$work/empty.jsonl"
measure "the simulated robot's tour" run --robot sim --speed max --no-listen --until "$hour" --out /dev/null
measure "the same, recorded" run --robot sim --speed max --no-listen --until "$hour" --out /dev/null \
  --record "$work/tour.mcap"
measure "its recording, events" replay --out /dev/null --only event,micro "$work/tour.mcap"
measure "its recording, everything" replay --out /dev/null "$work/tour.mcap"
