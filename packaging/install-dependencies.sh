#!/bin/sh
# Installs the Debian packages of the given list that are missing, and those of the list beside it
# that is for this release; does nothing when all are there.
set -eu

list=${1:-$(dirname "$0")/debian-packages.txt}
release=$(. /etc/os-release && echo "${VERSION_CODENAME:-$ID}")
own=${list%.txt}.$release.txt
if [ ! -e "$own" ]; then
  for other in "${list%.txt}".*.txt; do
    [ ! -e "$other" ] || {
      echo "install-dependencies: no $own: this release of Debian is not known" >&2
      exit 1
    }
  done
  own=/dev/null
fi

missing=
for package in $(sed 's/#.*//' "$list" "$own"); do
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
