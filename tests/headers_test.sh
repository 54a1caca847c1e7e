#!/bin/sh
# Every public header compiles by itself, without our options.
# Usage: headers_test.sh PREFIX COMPILER
set -eu
include=$1/include/gkplatform
compiler=$2
cd "$include"
find . -name '*.h' | sed 's|^\./||' | sort |
  xargs -P "$(nproc)" -I {} sh -c 'echo "#include \"$1\"" |
    "$0" -std=c++20 -Wall -Wextra -Wpedantic -Werror -fsyntax-only -I . -x c++ - ||
    { echo "$1 does not compile by itself" >&2; exit 255; }' "$compiler" {}
