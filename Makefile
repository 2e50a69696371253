# Front door. The work is done by CMake presets (see CMakePresets.json); build folders are build/<preset>.
#
#   make demo     build, then show the main job end to end
#   make check    build with sanitizers and run every test; a short set runs on the release build too
#   make soak     the tests that are too long for check
#   make bench    benchmarks; SETS=<folder> adds the rule sets of that folder
#   make fuzz     every fuzz target for FUZZ_SECONDS (60) each
#   make lint     clang build, clang-tidy, formatting
#   make format   format the sources in place

JOBS ?= $(shell nproc)
FUZZ_SECONDS ?= 60
SETS ?=

.PHONY: all demo check soak bench fuzz lint format packages clean

all: build-release

packages:
	@scripts/install-packages

build-%: packages
	@cmake --preset $* --log-level=NOTICE
	@cmake --build --preset $* -j $(JOBS)

demo: packages
	@cmake --preset release --log-level=NOTICE
	@cmake --build --preset release -j $(JOBS) --target tarnc rulegen fpd fpctl filter_demo \
		tarn_loader ftmd ttmd peerctl
	@scripts/demo

# The death tests, a short set and one lab against the build that ships, then the full set with sanitizers.
check: packages
	@scripts/check-layers
	@$(MAKE) --no-print-directory build-check build-release
	@ctest --preset release -j $(JOBS) -R '(DeathTest|Short|Golden|Cli|frame_tarnd)' -LE soak
	@ctest --preset check -j $(JOBS) -LE soak

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
	@scripts/lint $(JOBS)

format:
	@scripts/install-packages lint
	@git ls-files '*.cc' '*.h' | xargs clang-format-14 -i

clean:
	@rm -rf build
