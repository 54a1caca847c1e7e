#!/bin/sh
# How late the loop of `gk run --realtime` begins its ticks, beside a bare thread of the same priority
# and period on the same processor in the same minutes, with every processor loaded and 50 clients.
# Usage: realtime.sh GK GATEWAY_LOAD BARE_LOOP RECORDING [SECONDS [CLIENTS]]
# Ends with exit code 1 where the loop is more than LIMIT (0.5) ms later than the thread in 99.9 %.
set -eu
gk=$1
load=$2
bare=$3
recording=$4
seconds=${5:-600}
clients=${6:-50}

messages=$(mktemp)
figures=$(mktemp)
started=
stop() {
  # shellcheck disable=SC2086 # a list of processes
  [ -z "$started" ] || kill $started 2>/dev/null || true
  rm -f "$messages" "$figures"
}
trap stop EXIT

"$gk" run --realtime --loop --listen 127.0.0.1:0 --only error "$recording" >/dev/null 2>"$messages" &
host=$!
started=$host
until grep -q listening "$messages"; do
  kill -0 $host
  sleep 0.1
done
address=$(sed -n 's,.*http://\([^/]*\)/.*,\1,p' "$messages")
for _ in $(seq "$(nproc)"); do
  sh -c 'while :; do :; done' &
  started="$started $!"
done
# It warms up for a sixth of its time before it counts.
nice -n 10 "$load" "$address" "$seconds" "$clients" 200 >/dev/null &
viewers=$!
started="$started $viewers"
"$bare" $host "$seconds" >"$figures"
kill $viewers
kill $host
wait $host || true
cat "$messages" >>"$figures"

awk -v limit="${LIMIT:-0.5}" '
  function ms(number, unit) { return unit ~ /^ms/ ? number : 1000 * number }
  /^bare: / { for (i = 1; i <= 4; ++i) { bare[i] = $(i + 1) } }
  /^stolen: / { stolen = $0 }
  /began late/ {
    gsub(",", "")
    for (i = 1; i < NF; ++i) {
      if ($i == "within" || $i == "longest") { loop[++count] = ms($(i + 1), $(i + 2)) }
    }
  }
  function row(name, times) {
    printf "%-16s %8.2f %8.2f %8.2f %8.2f\n", name, times[1], times[2], times[3], times[4]
  }
  END {
    if (count != 4) { print "the host says nothing of its loop"; exit 1 }
    for (i = 1; i <= 4; ++i) { beyond[i] = loop[i] - bare[i] }
    printf "%-16s %8s %8s %8s %8s\n", "late by ms", "median", "99 %", "99.9 %", "longest"
    row("a bare thread", bare)
    row("the loop", loop)
    row("beyond", beyond)
    print stolen
    exit beyond[3] > limit
  }' "$figures"
