# The short way in. The work is done by the CMake presets of the same names.

PRESET ?= release

.PHONY: help run test check bench dependencies build clean

help:
	@echo "make run    install what is missing, build, and watch a simulated robot in real time"
	@echo "make test   install what is missing, build, and run all tests"
	@echo "make check  run all tests under the sanitizers"
	@echo "make bench  run the benchmarks"
	@echo "make clean  remove what was built"

run: build
	@echo "A simulated robot is touched, moved, pushed over and picked up again, until Ctrl-C."
	./build/release/bin/gk run

test: dependencies
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET)
	ctest --preset $(PRESET)

bench: dependencies
	./packaging/install-dependencies.sh packaging/debian-packages-bench.txt
	cmake --preset bench
	cmake --build --preset bench
	for bench in build/bench/bin/*_bench; do $$bench --benchmark_counters_tabular=true || exit 1; done

check:
	$(MAKE) test PRESET=asan
	$(MAKE) test PRESET=tsan

build: dependencies
	cmake --preset release
	cmake --build --preset release --target gk

dependencies:
	./packaging/install-dependencies.sh

clean:
	rm -rf build
