#!/bin/sh
# Makes the Debian packages of what git has of this folder, changes included.
# Usage: packages.sh FOLDER
set -eu
cd "$(dirname "$0")/.."
mkdir -p "$1"
folder=$(realpath "$1")
version=$(dpkg-parsechangelog -S Version)
[ "$version" = "$(sed -n 's/^project(gksensors VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)" ] || {
  echo "packages: debian/changelog is of version $version" >&2
  exit 1
}
sources=$folder/gksensors-$version
rm -rf "$sources"
rm -f "$folder"/*.deb
mkdir -p "$sources"
# A file that is installed as it is keeps its time, which is otherwise that of this checkout.
git ls-files -z | tar --null --files-from=- --mtime="@$(dpkg-parsechangelog -S Timestamp)" -c | tar -x -C "$sources"
commit=$(git rev-parse --short=10 HEAD)
cd "$sources"
GK_CMAKE_OPTIONS="-DGK_COMMIT=$commit ${GK_CMAKE_OPTIONS:-}" dpkg-buildpackage -b -us -uc
rm -rf "$sources"
ls -l "$folder"/*.deb
