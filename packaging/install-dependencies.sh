#!/bin/sh
# Installs the Debian packages of the given list that are missing; does nothing when all are there.
set -eu

list=${1:-$(dirname "$0")/debian-packages.txt}
missing=
for package in $(sed 's/#.*//' "$list"); do
  status=$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)
  [ "$status" = installed ] || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

sudo=
[ "$(id -u)" -eq 0 ] || sudo=sudo
echo "Installing:$missing"
$sudo apt-get update -qq
# shellcheck disable=SC2086 # a list of words
$sudo env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $missing >/dev/null
