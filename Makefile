# The short way in. The work is done by the CMake presets of the same names.

PRESET ?= release
# Options of `gk run` for `make run`, such as RUN="--for 60".
RUN ?=
OTHER_RELEASE ?= build/other-release
FUZZ_SECONDS ?= 60
SOAK_HOURS ?= 100
# Scenarios and shards.
SLURM ?= 200 4
CHAOS_SECONDS ?= 600
REALTIME_SECONDS ?= 600
# Options of the load: LOAD=--realtime.
LOAD ?=
# Robots, processes and seconds; smaller machines bear less: FLEET="--robots 100 --processes 10".
FLEET ?=
# What the host may take of time and memory; sanitizers keep what is freed for a while.
CHAOS ?= $(if $(filter asan tsan,$(PRESET)),1 --growth=64 --end=20000)

.PHONY: help run test test-all slurm other-release check lint coverage fuzz abi-check docs packages reproducible package-test soak bench bench-check load realtime fleet-load chaos web-tests screenshots dependencies check-dependencies build clean

help:
	@echo "make run       install what is missing, build, and watch a simulated robot in real time"
	@echo "make test      install what is missing, build, and run all tests"
	@echo "make check     run the tests under the sanitizers"
	@echo "make lint      run the static checks"
	@echo "make test-all  run all of that, with clang and in the other Debian release too"
	@echo "make slurm     test scenarios in shards on a Slurm of this machine alone, as root"
	@echo "make coverage  tell which lines and branches of platform/, sdk/ and modules/ the tests reach"
	@echo "make fuzz      look for inputs that break something, FUZZ_SECONDS=$(FUZZ_SECONDS) a target"
	@echo "make abi-check  hold the platform's binary interface against the recorded one"
	@echo "make docs      write the reference of the public headers, in build/docs"
	@echo "make packages  make the Debian packages, in build/packages; make package-test tries them on a bare system"
	@echo "make reproducible  make them twice, in two folders, and compare"
	@echo "make soak      run SOAK_HOURS=$(SOAK_HOURS) of the robot's time and watch memory and descriptors"
	@echo "make bench     run the benchmarks"
	@echo "make bench-check  count the instructions of ticks, events and look-ups and hold them against the record"
	@echo "make load      put load on a host for a minute: 200 viewers, 2000 requests a second"
	@echo "make fleet-load  1000 robots on one broker, which is killed now and then, as are some of them"
	@echo "make realtime  how late a loop of --realtime is beside a bare thread, for REALTIME_SECONDS=$(REALTIME_SECONDS)"
	@echo "make chaos     let clients do whatever they like with a host for CHAOS_SECONDS=$(CHAOS_SECONDS)"
	@echo "make web-tests install the clients from npm, the browser and the shells that make test then uses as well"
	@echo "make screenshots  make the pictures of the page in docs/images anew"
	@echo "make clean     remove what was built"

run: build
	@echo "A simulated robot is touched, moved, pushed over and picked up again, until Ctrl-C."
	./build/release/bin/gk run $(RUN)

test: dependencies
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET)
	ctest --preset $(PRESET)
	@sed -n '/^Left out: /p' build/$(PRESET)/Testing/Temporary/LastTest.log

# What takes too long for every day, or needs more than this machine has.
test-all: test check lint
	$(MAKE) test PRESET=clang
	$(MAKE) slurm
	$(MAKE) fleet-load
	$(MAKE) abi-check
	$(MAKE) packages
	$(MAKE) package-test
	$(MAKE) other-release

# One of the scenarios is wrong on purpose.
slurm: build
	./packaging/install-dependencies.sh packaging/debian-packages-slurm.txt
	PATH="$(CURDIR)/build/release/bin:$$PATH" ./examples/slurm/try.sh $(SLURM); test $$? = 1

other-release:
	./packaging/other-release.sh $(OTHER_RELEASE) $(RELEASE)

check: check-dependencies
	$(MAKE) test PRESET=asan
	$(MAKE) test PRESET=tsan

# Room by room, not file by file: a third of the time. What is generated is nobody's to mend.
# clang-tidy knows better than cppcheck which values are only passed on.
lint: check-dependencies
	cmake --preset lint
	run-clang-tidy -quiet -p build/lint '/(platform|sdk|modules|messages|extensions|formats|devices|runtime|gateway|app)/(?!StaticFilesData|FleetFilesData|ModuleTemplateData)'
	cppcheck --std=c++20 --quiet --error-exitcode=1 --enable=warning,performance,portability \
	  --suppress=passedByValue --suppress=accessMoved:gateway/server/WebSocketConnection.cpp \
	  --suppress=returnTempReference:platform/services/GKDelivery.cpp -I platform/include -I sdk/include -I . -i sdk/template platform sdk modules messages extensions formats devices runtime gateway app

coverage: check-dependencies
	$(MAKE) test PRESET=coverage
	gcovr --root . --object-directory build/coverage --filter platform/ --filter sdk/ --filter modules/ \
	  --exclude-throw-branches --exclude-unreachable-branches --print-summary

fuzz: check-dependencies
	cmake --preset fuzz
	cmake --build --preset fuzz
	./fuzz/run.sh build/fuzz $(FUZZ_SECONDS)

docs: check-dependencies
	mkdir -p build/docs
	doxygen docs/Doxyfile
	@echo "The reference of the public headers is in build/docs/html"

# Of the sources as git knows them, whatever else lies here.
PACKAGES = build/packages
packages: dependencies
	./packaging/install-dependencies.sh packaging/debian-packages-packages.txt
	./packaging/packages.sh $(PACKAGES)

# In a folder of another depth and length.
reproducible: packages
	./packaging/reproducible.sh $(PACKAGES) build/packages-again/elsewhere

package-test:
	./packaging/install-dependencies.sh packaging/debian-packages-other-release.txt
	./packaging/install-dependencies.sh packaging/debian-packages-packages.txt
	./packaging/package-test.sh $(PACKAGES) build/package-test

abi-check: check-dependencies
	cmake --preset abi
	cmake --build --preset abi --target gkplatform
	./packaging/abi-check.sh build/abi/lib/libgkplatform.so

soak: dependencies
	cmake --preset release
	cmake --build --preset release --target runtime_test
	GK_SOAK_HOURS=$(SOAK_HOURS) ./build/release/bin/runtime_test --gtest_filter='Soak.*'

bench: dependencies
	./packaging/install-dependencies.sh packaging/debian-packages-bench.txt
	cmake --preset bench
	cmake --build --preset bench --target benchmarks
	for bench in build/bench/bin/*_bench; do $$bench --benchmark_counters_tabular=true || exit 1; done

load: dependencies
	cmake --preset release
	cmake --build --preset release --target gk gateway_load
	./tests/load/load.sh $(LOAD) build/release/bin/gk build/release/bin/gateway_load data/us_wallrobot.csv

realtime: dependencies
	./packaging/install-dependencies.sh packaging/debian-packages-bench.txt
	cmake --preset bench
	cmake --build --preset bench --target gk gateway_load bare_loop
	./bench/realtime.sh build/bench/bin/gk build/bench/bin/gateway_load build/bench/bin/bare_loop data/us_wallrobot.csv $(REALTIME_SECONDS)

fleet-load: dependencies
	./packaging/install-dependencies.sh packaging/debian-packages-tests.txt
	cmake --preset release
	cmake --build --preset release --target gk gkfleet fleet_robots
	python3 tests/load/fleet_load.py build/release/bin/fleet_robots build/release/bin/gk $(FLEET)

chaos: dependencies
	cmake --preset $(PRESET)
	cmake --build --preset $(PRESET) --target gk gateway_chaos
	./build/$(PRESET)/bin/gateway_chaos build/$(PRESET)/bin/gk $(CHAOS_SECONDS) 300 $(CHAOS)

web-tests:
	@command -v npm >/dev/null || ./packaging/install-dependencies.sh packaging/debian-packages-web.txt
	./packaging/install-dependencies.sh packaging/debian-packages-tests.txt
	for folder in tests/web tests/mcap; do (cd $$folder && npm ci --no-audit --no-fund --prefer-offline) || exit 1; done

screenshots: build web-tests
	cd web && GK_PROGRAM=../build/release/bin/gk node test/screenshots.mjs ../docs/images

bench-check: dependencies
	./packaging/install-dependencies.sh packaging/debian-packages-bench.txt
	cmake --preset bench
	cmake --build --preset bench --target instruction_guard
	./bench/check.sh build/bench/bin/instruction_guard

build: dependencies
	cmake --preset release
	cmake --build --preset release --target gk

dependencies:
	./packaging/install-dependencies.sh
	@command -v npm >/dev/null || ./packaging/install-dependencies.sh packaging/debian-packages-web.txt

check-dependencies: dependencies
	./packaging/install-dependencies.sh packaging/debian-packages-check.txt

clean:
	rm -rf build
