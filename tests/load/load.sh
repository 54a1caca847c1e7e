#!/bin/sh
# Starts a host on a free port, puts load on it, and ends it.
# Usage: load.sh [--realtime] GK GATEWAY_LOAD RECORDING [SECONDS [CLIENTS [REQUESTS_A_SECOND]]]
set -eu
option=
if [ "$1" = --realtime ]; then
  option=$1
  shift
fi
gk=$1
load=$2
recording=$3
shift 3

messages=$(mktemp)
# shellcheck disable=SC2086 # none or one
"$gk" run $option --loop --listen 127.0.0.1:0 "$recording" >/dev/null 2>"$messages" &
host=$!
trap 'kill $host 2>/dev/null; rm -f "$messages"' EXIT
until grep -q listening "$messages"; do
  kill -0 $host
  sleep 0.1
done
address=$(sed -n 's,.*http://\([^/]*\)/.*,\1,p' "$messages")
# Stands for other machines: gives way to the host's loop, as they would.
nice -n 10 "$load" --host-pid $host "$address" "$@"
