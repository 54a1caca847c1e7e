#!/bin/sh
# Counts the instructions of what is done most often and holds them against the figures of
# instructions.txt: more than a tenth above is a failure. Usage: check.sh PROGRAM
set -eu
program=$1
figures=$(dirname "$0")/instructions.txt
profile=$(mktemp)
trap 'rm -f "$profile"' EXIT
rounds=1000
status=0

while read -r kind allowed; do
  valgrind --tool=callgrind --callgrind-out-file="$profile" --instr-atstart=no \
    "$program" "$kind" 2>/dev/null
  count=$(($(sed -n 's/^totals: //p' "$profile") / rounds))
  echo "$kind: $count instructions, $allowed on record"
  if [ "$count" -eq 0 ]; then
    echo "$kind: nothing was counted" >&2
    status=1
  elif [ "$count" -gt $((allowed + allowed / 10)) ]; then
    echo "$kind: more than a tenth above the record" >&2
    status=1
  fi
done < "$figures"
exit $status
