#!/bin/sh
# install-dependencies.sh with an apt that another one keeps waiting, one that stays away for ever,
# and one that fails for a reason of its own. No package is installed: what it calls is made up.
# Usage: packaging_test.sh SOURCE_DIR
set -eu
script=$1/packaging/install-dependencies.sh
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
mkdir "$folder/bin"
echo one-package >"$folder/list.txt"

fake() {
  printf '#!/bin/sh\n%s\n' "$2" >"$folder/bin/$1"
  chmod +x "$folder/bin/$1"
}
fail() {
  echo "$1" >&2
  cat "$folder/out" "$folder/err" >&2
  exit 1
}
# run BUSY TEXT: for so many times apt-get fails with this text.
run() {
  rm -f "$folder/calls" "$folder/naps"
  fake apt-get "echo \"\$*\" >>$folder/calls
[ \$(wc -l <$folder/calls) -gt $1 ] || { echo '$2' >&2; exit 100; }"
  code=0
  PATH="$folder/bin:$PATH" "$script" "$folder/list.txt" >"$folder/out" 2>"$folder/err" || code=$?
  naps=0
  [ ! -e "$folder/naps" ] || naps=$(wc -l <"$folder/naps")
}

fake dpkg-query 'exit 1'
# shellcheck disable=SC2016 # for the fake to expand
fake sudo 'exec "$@"'
fake sleep "echo nap >>$folder/naps"
busy='E: Could not get lock /var/lib/apt/lists/lock. It is held by process 7 (apt-get)'

run 2 "$busy"
[ "$code" -eq 0 ] || fail "two refusals ended it"
[ "$naps" -eq 2 ] || fail "it waited $naps times for two refusals"
[ "$(grep -c 'waiting for it to end' "$folder/out")" -eq 1 ] || fail "it did not say once that it waits"
tail -n 1 "$folder/calls" | grep -q 'install .* one-package$' || fail "nothing was installed"
[ ! -s "$folder/err" ] || fail "it complained"

run 0 ''
[ "$code$naps" = 00 ] || fail "it waited for nothing"
[ "$(cat "$folder/out")" = "Installing: one-package" ] || fail "it said more than what it does"

run 1000 "$busy"
[ "$code" -eq 1 ] || fail "it went on without an end"
grep -q 'held by process 7' "$folder/err" || fail "it did not say who holds the lock"

run 1 'E: Unable to locate package one-package'
[ "$code$naps" = 10 ] || fail "it waited for what will not come"
grep -q 'Unable to locate' "$folder/err" || fail "it kept the reason to itself"
