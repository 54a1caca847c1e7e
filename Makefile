# The short way in. The work is done by the CMake presets of the same names.

PRESET ?= release

.PHONY: help run test check bench load web-tests dependencies build clean

help:
	@echo "make run    install what is missing, build, and watch a recorded robot in real time"
	@echo "make test   install what is missing, build, and run all tests"
	@echo "make check  run all tests under the sanitizers"
	@echo "make bench  run the benchmarks"
	@echo "make load   put load on a host for a minute: 200 viewers, 2000 requests a second"
	@echo "make web-tests  install the clients from npm that make test then runs as well"
	@echo "make clean  remove what was built"

run: build
	@echo "A robot drives along walls and, after 8 seconds, falls: recorded data in real time."
	./build/release/bin/gk run --subscribe GKSonar --for 20 \
	  data/us_wallrobot.csv data/imu_fall_forward.csv

test: dependencies
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET)
	ctest --preset $(PRESET)

bench: dependencies
	./packaging/install-dependencies.sh packaging/debian-packages-bench.txt
	cmake --preset bench
	cmake --build --preset bench
	for bench in build/bench/bin/*_bench; do $$bench --benchmark_counters_tabular=true || exit 1; done

load: dependencies
	cmake --preset release
	cmake --build --preset release --target gk gateway_load
	./tests/load/load.sh build/release/bin/gk build/release/bin/gateway_load data/us_wallrobot.csv

web-tests:
	./packaging/install-dependencies.sh packaging/debian-packages-web.txt
	cd tests/web && npm ci --no-audit --no-fund

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
