#!/bin/sh
# Installs the packages on a bare system, made in a folder, uses them, and removes them again. As root.
# Usage: package-test.sh PACKAGES ROOT
set -eu
cd "$(dirname "$0")/.."
packages=$(realpath "$1")
root=$2

fail() {
  echo "package-test: $*" >&2
  exit 1
}

# What the packages say of themselves.
lintian --fail-on error "$packages"/*.deb
systemd-analyze security --offline=true --threshold=20 debian/gksensors.service >/dev/null ||
  fail "the service is exposed by 2.0 or more"

release=$(. /etc/os-release && echo "$VERSION_CODENAME")
[ -x "$root/bin/sh" ] || debootstrap --variant=minbase "$release" "$root"
# With a /proc that goes with the command.
run() {
  unshare -m sh -c 'mount -t proc proc "$1/proc"; root=$1; shift
    exec chroot "$root" env DEBIAN_FRONTEND=noninteractive LC_ALL=C.UTF-8 "$@"' - "$root" "$@"
}
mkdir -p "$root/packages"
cp "$packages"/*.deb "$root/packages"
cp examples/touched.jsonl "$root/packages"
rm -f "$root"/packages/*-dbgsym_*
run apt-get update -qq
run sh -c 'apt-get install -y -qq --no-install-recommends /packages/*.deb man-db cmake g++ make libgmock-dev' >"$root/packages/log" 2>&1 ||
  fail "$(cat "$root/packages/log")"

run gk --version
run gk test /packages/touched.jsonl
run sh -c 'gk library check /usr/lib/*/gksensors/modules/libgksensors.so'
run sh -c 'gk library check /usr/lib/*/gksensors/modules/libgkros2.so'
run gk run --ros2 --for 1 --quiet --no-listen
# Its libraries are found without /proc as well.
chroot "$root" env LC_ALL=C.UTF-8 gk replay --quiet /packages/touched.jsonl
chroot "$root" env LC_ALL=C.UTF-8 gk test /packages/touched.jsonl
[ -z "$(ls "$root/tmp")" ] || fail "gk test leaves $(ls "$root/tmp")"
run sh -c 'gk run --speed max --until 2 --quiet && gk run --config /etc/gksensors/gk.conf --speed max --no-listen --until 1'
run man -w gk gk-run >/dev/null || fail "no page of the manual"
[ -z "$(find "$root/etc/systemd" -name 'gksensors*' 2>/dev/null)" ] || fail "installing has enabled the service"
run getent passwd gksensors >/dev/null || fail "the service has no user"
[ "$(run stat -c %a /etc/gksensors/token)" = 600 ] || fail "others can read the token"
# No file knows where it was built, nor where libraries are.
! run sh -c 'readelf -d /usr/bin/gk /usr/lib/*/libgkplatform.so.0.2 | grep -E "RPATH|RUNPATH"' || fail "a path of the build is in a file"
run python3 -c 'import gksensors; assert gksensors.replay("/packages/touched.jsonl").events' ||
  fail "Python does not find the package"
# Whoever writes modules has all that it takes.
run sh -c 'cd /tmp && rm -rf GKMine && gk new module GKMine && cd GKMine && cmake -B build >/dev/null &&
  cmake --build build >/dev/null && ctest --test-dir build | grep "tests passed"' || fail "a new module does not build"

# The service, in a system that systemd has booted.
run apt-get install -y -qq --no-install-recommends systemd systemd-sysv dbus procps >>"$root/packages/log" 2>&1 || fail "no systemd"
cp packaging/service-try.sh "$root/packages"
cat >"$root/etc/systemd/system/try.service" <<'END'
[Unit]
After=multi-user.target
[Service]
Type=oneshot
ExecStart=/bin/sh -c '/packages/service-try.sh >/packages/tried 2>&1; systemctl poweroff'
[Install]
WantedBy=multi-user.target
END
run systemctl enable -q try
# With a network of its own: whatever listens on this machine neither answers nor is in the way.
timeout 300 systemd-nspawn -q -D "$root" --boot --register=no --keep-unit --private-network >"$root/packages/boot" 2>&1 ||
  fail "$(tail "$root/packages/boot")"
cat "$root/packages/tried"
grep -qx "the service works" "$root/packages/tried" || fail "the service does not work"

run sh -c 'apt-get purge -y -qq python3-gksensors gksensors gksensors-fleet gksensors-modules gksensors-ros2 libgkplatform0.2 libgkplatform-dev' >/dev/null 2>&1
left=$(run sh -c 'find /usr /etc \( -name "*gksensors*" -o -name "*gkplatform*" \) -not -path "*/passwd*" -not -path "/etc/group*"')
[ -z "$left" ] || fail "purging leaves $left"
echo "the packages install, work, and go again"
