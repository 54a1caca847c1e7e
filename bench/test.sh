#!/bin/sh
# What `gk test` costs beside the replays that it consists of: processor time of 10,000 scenarios of
# a second each, tested and replayed. Usage: test.sh GK [SCENARIOS]
set -eu
gk=$1
count=${2:-10000}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# Each touches the head at another time, and expects it.
awk -v count="$count" -v folder="$work" 'BEGIN {
  key = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value"
  for (i = 0; i < count; ++i) {
    file = sprintf("%s/%05d.jsonl", folder, i)
    at = 0.1 + (i % 80) / 100
    printf "{\"t\":%.2f,\"set\":{\"%s\":1.0}}\n", at, key > file
    printf "{\"t\":%.2f,\"expect\":{\"event\":\"FrontTactilTouched\",\"value\":1.0}}\n", at > file
    printf "{\"t\":1,\"end\":true}\n" > file
    close(file)
  }
}'
cd "$work"

# measure NAME COMMAND...: processor seconds of the command and all that it has started.
measure() {
  name=$1
  shift
  /usr/bin/time -f '%U %S %e' -o time.txt "$@" >out.txt 2>err.txt || cat err.txt
  awk -v name="$name" '{ printf "%-28s %8.1f s of processor time, %8.1f s\n", name, $1 + $2, $3 }' \
    time.txt
  awk '{ print $1 + $2 }' time.txt >"$name.cpu"
}

measure replay sh -c 'ls | grep "\.jsonl$" | xargs "$0" replay -q -j 2' "$gk"
measure test "$gk" test -j 2 .
tail -n 1 out.txt
awk -v test="$(cat test.cpu)" -v replay="$(cat replay.cpu)" \
  'BEGIN { printf "gk test: %.2f times the replays\n", test / replay }'
