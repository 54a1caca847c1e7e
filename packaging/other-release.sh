#!/bin/sh
# Tries the other Debian release: a bare one in a folder, with this commit, `make run` and
# `make test` in it, and compares what both releases' programs write, byte for byte. As root.
# Usage: other-release.sh FOLDER [RELEASE]; the folder is kept, and used again where it is there
# already. RELEASE may be this machine's own: a bare system of it.
set -eu

folder=$1
source=$(cd "$(dirname "$0")/.." && pwd)
here=$(. /etc/os-release && echo "$VERSION_CODENAME")
other=trixie
[ "$here" != trixie ] || other=bookworm
other=${2:-$other}
[ "$(id -u)" -eq 0 ] || { echo "other-release: needs root: it mounts and changes its root" >&2; exit 1; }

# shellcheck disable=SC2016 # apt's own names
mirror=$(apt-get indextargets --format '$(RELEASE) $(REPO_URI)' 'Created-By: Packages' |
  awk -v release="$here" '$1 == release {print $2; exit}')
[ -n "$mirror" ] || { echo "other-release: apt knows no source for $here" >&2; exit 1; }

"$source/packaging/install-dependencies.sh" "$source/packaging/debian-packages-other-release.txt"
if [ ! -e "$folder/etc/os-release" ]; then
  echo "Making a bare $other in $folder"
  debootstrap --variant=minbase --include=make,git,ca-certificates "$other" "$folder" "$mirror" >/dev/null
fi

mounted=
unmount() {
  for place in $mounted; do umount --recursive --lazy "$folder/$place"; done
}
trap unmount EXIT
for place in proc dev dev/shm; do
  mkdir -p "$folder/$place"
  mount --rbind "/$place" "$folder/$place"
  mount --make-rslave "$folder/$place"
  mounted="$place $mounted"
done
cp /etc/resolv.conf "$folder/etc/" 2>/dev/null || true
# How this machine reaches its packages.
cp /etc/apt/apt.conf.d/99* "$folder/etc/apt/apt.conf.d/" 2>/dev/null || true
registry=$(npm config get registry 2>/dev/null || true)
cp /etc/ssl/certs/ca-certificates.crt "$folder/etc/ssl/certs/" 2>/dev/null || true

work=$folder/root/gksensors
rm -rf "$work"
git clone --quiet "$source" "$work"
inside() {
  chroot "$folder" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LANG=C.UTF-8 \
    ${registry:+npm_config_registry="$registry"} \
    NODE_EXTRA_CA_CERTS=/etc/ssl/certs/ca-certificates.crt sh -c "cd /root/gksensors && $*"
}
inside 'make run RUN="--for 20"'
inside make test

# The same recordings and the same robot, by both.
make -C "$source" build >/dev/null
(cd "$source" && packaging/output-sums.sh build/release/bin/gk) >"$folder/root/outputs.here"
inside packaging/output-sums.sh build/release/bin/gk >"$folder/root/outputs.other"
diff "$folder/root/outputs.here" "$folder/root/outputs.other"
echo "$here and $other write the same: $(wc -l <"$folder/root/outputs.here") outputs"
