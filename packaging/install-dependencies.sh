#!/bin/sh
# Installs the Debian packages of the given list that are missing, and those of the list beside it
# that is for this release; does nothing when all are there. While another program installs packages,
# as on the first start of a machine, it waits, for ten minutes at most.
set -eu

patience=600

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

# apt waits for one of its locks only, and not where the lists and the archives are kept.
waited=0
apt_get() {
  until said=$($sudo env LC_ALL=C DEBIAN_FRONTEND=noninteractive \
    apt-get -o DPkg::Lock::Timeout=$patience "$@" 2>&1 >/dev/null); do
    case $said in
      *"Could not get lock"* | *"Unable to acquire the dpkg frontend lock"*) ;;
      *)
        echo "$said" >&2
        exit 1
        ;;
    esac
    [ "$waited" -lt "$patience" ] || {
      printf 'install-dependencies: still not free after %s s:\n%s\n' "$patience" "$said" >&2
      exit 1
    }
    [ "$waited" -gt 0 ] || echo "Another program is installing packages: waiting for it to end"
    sleep 5
    waited=$((waited + 5))
  done
  [ -z "$said" ] || echo "$said" >&2
}

echo "Installing:$missing"
apt_get update -qq
# shellcheck disable=SC2086 # a list of words
apt_get install -y -qq --no-install-recommends $missing
