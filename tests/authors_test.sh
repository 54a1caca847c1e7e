#!/bin/sh
# What others build on an installed platform: our examples, and the project that `gk new` writes.
# Installs into a folder of its own and builds them there, without anything of the sources.
# Usage: authors_test.sh SOURCE_DIR BUILD_DIR WORK_DIR COMPILER
set -eu
source=$1
build=$2
work=$3
compiler=$4

fail() {
  echo "authors_test: $*" >&2
  exit 1
}

rm -rf "$work"
mkdir -p "$work"
for component in program platform modules dev; do
  cmake --install "$build" --prefix "$work/prefix" --component $component >"$work/install.log" ||
    fail "component $component: $(cat "$work/install.log")"
done
PATH=$work/prefix/bin:$PATH
export PATH
gk --version | grep -q "platform" || fail "the installed gk does not run"

# As strict as users may be: no warning comes from our headers, no flag from our targets.
build_and_test() {
  cmake -S "$1" -B "$1/build" -G Ninja -DCMAKE_CXX_COMPILER="$compiler" \
    -DCMAKE_CXX_FLAGS="-Wall -Wextra -Wpedantic -Wshadow -Werror" \
    -DCMAKE_CXX_COMPILER_LAUNCHER="$(command -v ccache || true)" >"$1/log" 2>&1 &&
    cmake --build "$1/build" >>"$1/log" 2>&1 &&
    ctest --test-dir "$1/build" --output-on-failure --no-tests=error >>"$1/log" 2>&1 ||
    fail "$1: $(cat "$1/log")"
  grep -E "tests passed|ns a tick" "$1/log"
}

for example in fall_alarm step_counter; do
  cp -r "$source/examples/$example" "$work/$example"
  build_and_test "$work/$example"
done

cd "$work"
gk new module GKProbe | grep -q "cmake -B build" || fail "gk new does not say how to go on"
build_and_test "$work/GKProbe"
grep -q "$source" GKProbe/build/compile_commands.json 2>/dev/null && fail "a path of ours reaches others"

# A folder in which the platform was built does as well as one to which it was installed, and another
# version does not do.
cmake -S GKProbe -B GKProbe/build2 -G Ninja -DCMAKE_CXX_COMPILER="$compiler" -DCMAKE_PREFIX_PATH="$build" >GKProbe/log2 2>&1 &&
  grep -q "gkplatform_DIR:PATH=$build/" GKProbe/build2/CMakeCache.txt && cmake --build GKProbe/build2 --target GKProbe >>GKProbe/log2 2>&1 ||
  fail "the build folder is no prefix: $(cat GKProbe/log2)"
gk library check GKProbe/build2/libGKProbe.so >/dev/null || fail "what is built on the build folder does not fit"
sed 's/find_package(gkplatform [0-9.]*/find_package(gkplatform 0.1/' GKProbe/CMakeLists.txt >GKProbe/other
mv GKProbe/other GKProbe/CMakeLists.txt
! cmake -S GKProbe -B GKProbe/build3 -G Ninja >GKProbe/log3 2>&1 && grep -q "version: $(gk --version | cut -d " " -f 2)" GKProbe/log3 ||
  fail "another version of the platform is taken: $(cat GKProbe/log3)"

# Installed, a library is found by its name.
cmake --install GKProbe/build >>GKProbe/log
gk replay --library GKProbe --only event GKProbe/scenarios/held.jsonl | grep -q GKProbeHeld ||
  fail "an installed library is not found by its name"

# What the platform exports are its own names.
foreign=$(nm -DC --defined-only prefix/lib*/libgkplatform.so prefix/lib/*/libgkplatform.so 2>/dev/null |
  grep -v ':$' | sed 's/^[0-9a-f]* . //' |
  grep -vE '^((typeinfo|typeinfo name|vtable|VTT) for |non-virtual thunk to )?(GK|zu)::' | grep -v '^$' || true)
[ -z "$foreign" ] || fail "libgkplatform.so exports $foreign"
exports=$(nm -D --defined-only GKProbe/build/libGKProbe.so | awk '{print $NF}' | sort | tr '\n' ' ')
[ "$exports" = "_closeModule _createModule " ] || fail "a module library exports $exports"
readelf -nW GKProbe/build/libGKProbe.so | grep -q '\.note\.gk\.module' || fail "no note"

# Without /proc as well, where that can be tried; the loader then does not know where the program is.
if unshare -m mount -t tmpfs none /proc 2>/dev/null; then
  LD_LIBRARY_PATH=$(dirname "$work"/prefix/lib*/libgkextractor.a) unshare -m sh -c 'mount -t tmpfs none /proc && gk replay --library GKProbe --only event "$1"' - \
    GKProbe/scenarios/held.jsonl | grep -q GKProbeHeld || fail "without /proc no library is found"
fi

# What the page for authors shows is the source of a library.
awk '/^```cpp$/ {inside = 1; next} /^```$/ {inside = 0} inside' "$source/docs/modules.md" >Shown.cpp
"$compiler" -std=c++20 -Wall -Wextra -Wpedantic -Werror -shared -fPIC -I prefix/include/gkplatform Shown.cpp \
  -L "$(dirname prefix/lib*/libgkextractor.a)" -lgkextractor -lgkplatform -o libShown.so ||
  fail "docs/modules.md shows what does not compile"
gk replay --no-expect --library +./libShown.so --only log "$source/examples/touched.jsonl" >Shown.log 2>&1 || fail "$(cat Shown.log)"

# The pkg-config file names what a compiler needs.
if command -v pkg-config >/dev/null; then
  pc=$(dirname "$(find prefix -name gkplatform.pc)")
  # shellcheck disable=SC2046 # a list of words
  "$compiler" -std=c++20 -shared -fPIC $(PKG_CONFIG_PATH=$pc pkg-config --cflags gkplatform) \
    GKProbe/GKProbe.cpp $(PKG_CONFIG_PATH=$pc pkg-config --libs gkplatform) -o libByHand.so
  gk library check ./libByHand.so
fi
