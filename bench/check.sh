#!/bin/sh
# Counts the instructions of a tick and holds them against the figures of tick_instructions.txt:
# more than a tenth above is a failure. Usage: check.sh PROGRAM
set -eu
program=$1
figures=$(dirname "$0")/tick_instructions.txt
profile=$(mktemp)
trap 'rm -f "$profile"' EXIT
ticks=1000
status=0

for kind in Steady Busy; do
  valgrind --tool=callgrind --callgrind-out-file="$profile" --collect-atstart=no \
    --toggle-collect="gk${kind}Ticks" "$program" 2>/dev/null
  count=$(($(sed -n 's/^summary: //p' "$profile") / ticks))
  allowed=$(awk -v kind="$kind" '$1 == kind { print $2 }' "$figures")
  echo "$kind tick: $count instructions, $allowed on record"
  if [ "$count" -gt $((allowed + allowed / 10)) ]; then
    echo "$kind tick: more than a tenth above the record" >&2
    status=1
  fi
done
exit $status
