#!/bin/sh
# Runs a test that needs what not every machine has. Where a file or program of that is missing it
# is named, and the test counts as not run (77).
# Usage: needs.sh HOW_TO_GET_IT FILE... -- COMMAND...; "GK_NODE-NOTFOUND" is a program that CMake
# has not found
set -eu
how=$1
shift
while [ "$1" != -- ]; do
  if [ ! -e "$1" ]; then
    missing=$1
    case $missing in
      GK_*-NOTFOUND) missing=$(echo "$missing" | sed 's/^GK_//; s/-NOTFOUND$//' | tr '[:upper:]' '[:lower:]') ;;
    esac
    echo "Left out: there is no $missing. $how"
    exit 77
  fi
  shift
done
shift
exec "$@"
