#!/bin/sh
# Holds the platform's binary interface against the recorded one. Libraries that were built before must
# go on running as long as the number in the platform's file name stays; additions are told and pass.
# With --update the present interface is recorded, which has to be done when the number changes.
# Usage: abi-check.sh LIBRARY [--update]
set -eu
cd "$(dirname "$0")/.."
library=$1
kept=packaging/libgkplatform.abi.gz

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
present=$work/present.abi
recorded=$work/recorded.abi
abidw --no-corpus-path --no-comp-dir-path --no-show-locs --drop-private-types --exported-interfaces-only \
  --headers-dir platform/include --out-file "$work/all.abi" "$library"
# Where it was built is nobody's business.
sed "s|\(<abi-instr .*path='\)[^']*/|\1|" "$work/all.abi" >"$present"

soname() {
  sed -n "s/.*<abi-corpus .*soname='\([^']*\)'.*/\1/p" "$1" | head -1
}

if [ "${2:-}" = --update ]; then
  gzip -9 -n -c "$present" >$kept
  echo "recorded the interface of $(soname "$present")"
  exit 0
fi
gzip -d -c $kept >"$recorded"
if [ "$(soname "$present")" != "$(soname "$recorded")" ]; then
  echo "abi-check: the platform is $(soname "$present") now, what is recorded is $(soname "$recorded"):" \
    "abi-check.sh $library --update"
  exit 1
fi
# A sum of 1: error, 2: wrong use, 4: changed, 8: incompatible.
code=0
said=$(abidiff --no-show-locs "$recorded" "$present") || code=$?
[ -z "$said" ] || echo "$said"
if [ $code -ge 8 ] || [ $((code % 4)) -ne 0 ]; then
  echo "abi-check: libraries that were built before would not run on this platform: raise the version in" \
    "CMakeLists.txt, and record its interface"
  exit 1
fi
echo "the interface of $(soname "$recorded") is kept"
