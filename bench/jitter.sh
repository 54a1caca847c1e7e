#!/bin/sh
# How well the sensor loop keeps its time: idle and beside load on every core, with and without
# real-time priority. Usage: jitter.sh GK RECORDING [SECONDS]
set -eu
gk=$1
recording=$2
seconds=${3:-60}

load=
stop_load() {
  # shellcheck disable=SC2086 # a list of processes
  [ -z "$load" ] || kill $load 2>/dev/null || true
  load=
}
trap stop_load EXIT

for busy in idle loaded; do
  if [ "$busy" = loaded ]; then
    for _ in $(seq "$(nproc)"); do
      sh -c 'while :; do :; done' &
      load="$load $!"
    done
  fi
  for option in "" --realtime; do
    # shellcheck disable=SC2086 # none or one
    "$gk" run $option --loop --for "$seconds" --only error "$recording" 2>&1 >/dev/null |
      sed -n "s/^GKSensors: /$busy ${option:-ordinary}: /p; s/^gk: /$busy: /p"
  done
done
