#!/bin/sh
# Keeps the layers: what each folder includes (layers.txt), that no two files include each other by
# any way round, and what the library exports.
# Usage: layers_test.sh SOURCE_DIR LIBRARY
set -u
cd "$1" || exit 1
library=$2
failed=0

houses='platform sdk modules messages extensions formats devices runtime gateway app'
# shellcheck disable=SC2086 # a list of words
includes=$(find $houses \( -name '*.h' -o -name '*.cpp' \) -not -path 'sdk/template/*' | xargs grep -HE '^#include "')

# A line for each include: folder and name of the file that includes, then of what is included. Public
# headers belong to the folder with their source, or to the one that is named here.
plain=$(echo "$includes" | awk '
  BEGIN {
    home["GKApi"] = home["GKConvert"] = home["GKMemoryPlace"] = home["GKTime"] = home["GKVersion"] = "platform/values"
    home["GKTurns"] = "platform/time"
    home["GKModuleLibrary"] = home["GKModuleNote"] = "platform/modules"
    while (("find platform sdk -name \"*.cpp\"" | getline file) > 0) {
      name = file; sub(/.*\//, "", name); sub(/\.cpp$/, "", name); sub(/\/[^\/]*$/, "", file)
      home[name] = file
    }
  }
  function place(path,   folder, name) {
    name = path; sub(/.*\//, "", name); sub(/\.(h|cpp)$/, "", name)
    folder = path; sub(/\/[^\/]*$/, "", folder)
    if (folder ~ /^(sdk\/include\/)?gk\/test$/) folder = "sdk/test"
    else if (folder ~ /^((platform|sdk)\/include\/)?(gk|zu)$/) folder = home[name]
    return folder " " name
  }
  { file = $1; sub(/:#include$/, "", file); gsub(/"/, "", $2); print place(file), place($2) }')

echo "$plain" | awk '
  NR == FNR {
    if ($0 ~ /^#/ || NF == 0) next
    house = $1; sub(/\/.*/, "", house)
    allowed[$1] = " " $1
    for (i = 2; i <= NF; ++i) {
      if ($i == "+") { allowed[$1] = allowed[$1] before[house]; continue }
      if (!($i in known)) { print "layers.txt: " $1 " stands before " $i ", which it may include"; bad = 1 }
      allowed[$1] = allowed[$1] " " $i ($i in before ? before[$i] : "")
    }
    before[house] = before[house] " " $1
    known[$1] = known[house] = 1
    next
  }
  !($1 in allowed) { print $1 " is not in layers.txt"; bad = 1; next }
  index(allowed[$1] " ", " " $3 " ") == 0 { print $1 "/" $2 " includes what it must not know: " $3 "/" $4; bad = 1 }
  END { exit bad }' tests/layers.txt - || failed=1

# A broker and its modules are one thing in two halves: they know each other.
circles=$(echo "$plain" | awk '
  function unit(folder, name) { return name ~ /^GK(Broker|BrokerManager|Module|ModuleCore|Proxy)$/ ? "GKBroker" : folder "/" name }
  { a = unit($3, $4); b = unit($1, $2); if (a != b) print a, b }' | tsort 2>&1 >/dev/null)
if [ -n "$circles" ]; then
  echo "$circles"
  failed=1
fi

exports=$(nm -D --defined-only "$library" | awk '{print $NF}' | sort | tr '\n' ' ')
if [ "$exports" != "_closeModule _createModule " ]; then
  echo "$library exports: $exports"
  failed=1
fi
exit $failed
