#!/bin/sh
# What it costs to publish to ROS 2: the host's share of a processor and how its loop keeps time, without
# --ros2, with it and nobody reading, and with a subscriber of another vendor in another process that
# reads all topics; and how long after its tick a sample is there.
# Usage: ros2.sh GK SUBSCRIBER [SECONDS]
set -eu
gk=$1
subscriber=$2
seconds=${3:-20}
export ROS_DOMAIN_ID="${ROS_DOMAIN_ID:-98}"

work=$(mktemp -d)
reader=
stop() {
  [ -z "$reader" ] || kill "$reader" 2>/dev/null || true
  rm -rf "$work"
}
trap stop EXIT

# Ticks of a hundredth of a second that a process has used.
used() { awk '{print $14 + $15}' "/proc/$1/stat"; }

# measure NAME OPTION...
measure() {
  name=$1
  shift
  "$gk" run --no-tour --quiet --listen 127.0.0.1:0 --subscribe GKSonar "$@" >"$work/out" 2>&1 &
  host=$!
  sleep 2
  before=$(used $host)
  sleep "$seconds"
  after=$(used $host)
  address=$(sed -n 's|.*listening at http://\([^/]*\)/.*|\1|p' "$work/out")
  lateness=$("$gk" top --json --count 1 --host "$address" |
    sed -n 's/.*"lateness":{[^}]*"p50_s":\([^,]*\),"p99_s":\([^,]*\),.*/\1 \2/p')
  kill -INT $host
  wait $host || true
  echo "$before $after $seconds $lateness" | awk -v name="$name" '{
    printf "%s: %.1f %% of a processor; ticks are late by %.0f us, 99 %% of them by at most %.0f us\n",
      name, ($2 - $1) / $3, $4 * 1e6, $5 * 1e6 }'
}

measure "without --ros2"
measure "nobody reads" --ros2
"$subscriber" "$ROS_DOMAIN_ID" --silent --latency /imu/data >"$work/reader" 2>&1 &
reader=$!
measure "all topics are read" --ros2
kill $reader
wait $reader || true
reader=
tail -n 2 "$work/reader"
