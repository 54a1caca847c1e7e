#!/bin/sh
# Runs pytest with the package of a build. Where pytest or NumPy is missing it says so, and the test
# counts as not run (77).
# Usage: run.sh PYTHON PACKAGE_FOLDER MODULES ARGUMENTS...; MODULES are separated by commas
set -eu
python=$1
PYTHONPATH=$2
modules=$3
shift 3
export PYTHONPATH PYTHONDONTWRITEBYTECODE=1
for module in $(echo "$modules" | tr , ' '); do
  "$python" -c "import $module" 2>/dev/null || {
    echo "Left out: there is no $module. make web-tests installs it."
    exit 77
  }
done
exec "$python" -m "$@"
