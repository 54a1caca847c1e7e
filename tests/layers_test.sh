#!/bin/sh
# Keeps the layers: what each folder includes, and what the library exports.
# Usage: layers_test.sh SOURCE_DIR LIBRARY
set -u
cd "$1" || exit 1
library=$2
failed=0

# allow FOLDER PATTERN: includes in double quotes of FOLDER must match the pattern.
allow() {
  found=$(grep -rnE '^#include "' "$1" --include='*.h' --include='*.cpp' |
    grep -vE "#include \"($2)")
  if [ -n "$found" ]; then
    echo "$1 includes what it must not know:"
    echo "$found"
    failed=1
  fi
}

allow platform '(gk|zu)/|GK[A-Za-z]*\.h'
allow modules '(gk|zu|modules)/'
allow formats '(gk|zu|formats)/'
allow devices '(gk|zu|formats|devices)/'
allow runtime '(gk|zu|formats|devices|runtime)/'
allow gateway '(gk|zu|formats|devices|gateway)/'
allow app '(gk|zu|formats|devices|runtime|gateway|app)/'

# Within the platform, values, errors and time know nothing of what comes after them.
for header in GKValue GKError GKConvert GKTime GKClock GKMutex; do
  if grep -nE '#include "(gk/(GKModule|GKBroker|GKProxy|GKMemory|DCM|GKObserver|GKResource)|zu/)' \
    "platform/include/gk/$header.h"; then
    echo "platform/include/gk/$header.h knows what comes after it"
    failed=1
  fi
done

exports=$(nm -D --defined-only "$library" | awk '{print $NF}' | sort | tr '\n' ' ')
if [ "$exports" != "_closeModule _createModule " ]; then
  echo "$library exports: $exports"
  failed=1
fi
exit $failed
