#!/bin/sh
# What it costs to publish to ROS 2: the host's share of a processor and how its loop keeps time, without
# --ros2, with it and nobody reading, and with a subscriber of another vendor in another process that
# reads all topics; and how long after its tick a sample is there.
# Usage: ros2.sh GK SUBSCRIBER [SECONDS]
set -eu
gk=$1
subscriber=$2
seconds=${3:-20}
export ROS_DOMAIN_ID=${ROS_DOMAIN_ID:-98}

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
  "$gk" run --no-tour --no-listen --quiet --subscribe GKSonar --for $((seconds + 3)) "$@" >"$work/out" 2>&1 &
  host=$!
  sleep 2
  before=$(used $host)
  sleep "$seconds"
  after=$(used $host)
  wait $host
  echo "$name: $(echo "$before $after $seconds" | awk '{printf "%.1f", ($2 - $1) / $3}') % of a processor;" \
    "$(sed -n 's/^GKSensors: //p' "$work/out")"
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
