# Front door. The work is done by CMake presets (see CMakePresets.json); build folders are build/<preset>.
#
#   make demo     build, then show the main job end to end
#   make lab      build, start a lab router and open its command line; it runs on until lab/lab stop router
#   make check    build with sanitizers and run every test; a short set runs on the release build too
#   make threads  the part of check that runs under the thread sanitizer
#   make soak     the tests that are too long for check
#   make bench    benchmarks; SETS=<folder> adds the rule sets of that folder
#   make fuzz     every fuzz target for FUZZ_SECONDS (60) each
#   make lint     clang build, clang-tidy, formatting
#   make format   format the sources in place

JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60
SETS ?=
ROUTER = tarnd mgmtd lumora-cli chmgrd fpd fpctl ftmd ttmd sysmgrd peerctl

.PHONY: all demo lab check threads soak bench fuzz lint format packages clean

all: build-release

packages:
	@scripts/install-packages

build-%: packages
	@cmake --preset $* --log-level=NOTICE
	@cmake --build --preset $* -j $(JOBS)

demo: packages
	@cmake --preset release --log-level=NOTICE
	@cmake --build --preset release -j $(JOBS) --target tarnc rulegen $(ROUTER)
	@scripts/demo

lab: packages
	@cmake --preset release --log-level=NOTICE
	@cmake --build --preset release -j $(JOBS) --target $(ROUTER)
	@scripts/lab-router

# The death tests, a short set and one lab against the build that ships, then the full set with sanitizers.
check: packages
	@scripts/check-layers
	@scripts/check-names
	@$(MAKE) --no-print-directory build-check build-release
	@ctest --preset release -j $(JOBS) -R '(DeathTest|Short|Golden|Cli|frame_tarnd)' -LE soak
	@ctest --preset check -j $(JOBS) -LE soak
	@$(MAKE) --no-print-directory threads

# The tests with the label threads under the thread sanitizer.
threads: packages
	@cmake --preset tsan --log-level=NOTICE
	@cmake --build --preset tsan -j $(JOBS) --target thread_tests
	@ctest --preset tsan -j $(JOBS) -L threads -LE soak

soak: build-release
	@ctest --preset release -j 1 -L soak

bench: packages
	@scripts/install-packages bench
	@cmake --preset release -DTARN_PEER_BENCH=ON >/dev/null
	@cmake --build --preset release -j $(JOBS)
	@scripts/bench $(SETS)

fuzz: packages
	@cmake --preset fuzz --log-level=NOTICE
	@cmake --build --preset fuzz -j $(JOBS) --target fuzz_targets
	@scripts/fuzz $(FUZZ_SECONDS)

lint: packages
	@scripts/install-packages lint
	@scripts/check-layers
	@scripts/check-names
	@scripts/lint $(JOBS)

format:
	@scripts/install-packages lint
	@git ls-files '*.cc' '*.h' | xargs clang-format-14 -i

clean:
	@rm -rf build
