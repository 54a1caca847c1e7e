#!/bin/sh
# Makes the packages once more, in another folder, and expects the same bytes.
# Usage: reproducible.sh PACKAGES OTHER_FOLDER
set -eu
cd "$(dirname "$0")/.."
./packaging/packages.sh "$2" >/dev/null
for package in "$1"/*.deb; do
  cmp "$package" "$2/${package##*/}" || exit 1
done
echo "the packages are the same, whatever folder they are made in"
