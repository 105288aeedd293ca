# The short commands. Each does all that is needed before it; a second call downloads and rebuilds nothing.
#
#   make demo [SONG=path]   separate a song, the demo's own or yours
#   make test               build everything and run the tests
#   make wheel              the Python package with everything inside, build/wheel
#   make test-wheel         and its tests, from a fresh environment
#   make package            Debian packages and a tree to unpack anywhere, build/packages
#   make test-packages      installs them in empty Debian 12 and 13 systems (as root: ten minutes at first)
#   make release-check      all that a release needs, as a list
#   make test-arm64         cross build for arm64 and its unit tests, run by an emulator
#   make install            install below PREFIX
#   make bench [ROUNDS=3]   tables of the library's speed and memory, around nothing and around a network: six minutes
#   make stress             ten hours of audio, shared models, damaged models: four minutes
#   make fuzz [SECONDS=300] each fuzzer for so long (clang)
#   make docs               the interface as a web site, build/docs/html (needs doxygen)
#   make format lint clean
#
# PRESET chooses the build: release, debug, static, clang, asan or tsan (CMakePresets.json).
PRESET ?= release
PREFIX ?= /usr/local
BUILD := build/$(PRESET)
# Of the benchmark around a network, over a song of ten minutes.
ROUNDS ?= 3
JOBS := $(shell nproc 2>/dev/null || echo 2)
SOURCES = $(shell git ls-files '*.h' '*.cpp' '*.c')
# A file's name is data, also one with $ or quotes in it: neither make nor a shell reads it.
override SONG := $(value SONG)
export SONG

.PHONY: all setup setup-tests build demo test wheel test-wheel package test-packages release-check test-arm64 bench \
	stress fuzz install docs format check-format lint clean
.NOTPARALLEL:

all: build

setup:
	@scripts/setup.sh

setup-tests: setup
	@scripts/setup.sh tests

$(BUILD)/CMakeCache.txt: | setup
	@mkdir -p $(BUILD)
	@echo "make: configuring $(BUILD)"
	@cmake --preset $(PRESET) -DTAVRIN_BUILD_TESTS=OFF >$(BUILD)/configure.log || { cat $(BUILD)/configure.log; rm -f $@; exit 1; }

# The demo builds without the tests, and without what only they need.
$(BUILD)/tests.configured: | setup-tests
	@mkdir -p $(BUILD)
	cmake --preset $(PRESET) -DTAVRIN_BUILD_TESTS=ON -UTAVRIN_BUILD_PYTHON
	@touch $@

build: setup-tests $(BUILD)/tests.configured
	@cmake --build $(BUILD) --parallel $(JOBS)

demo: setup $(BUILD)/CMakeCache.txt
	@echo "make: building the commands"
	@cmake --build $(BUILD) --parallel $(JOBS) --target tavrin-separate tavrin-demo-audio >$(BUILD)/build.log 2>&1 || { cat $(BUILD)/build.log; exit 1; }
	@scripts/demo.sh $(BUILD) "$$SONG"

test: build
	@ctest --test-dir $(BUILD) --output-on-failure --parallel $(JOBS)

bench: setup
	@scripts/setup.sh bench
	@cmake --preset bench >/dev/null
	@cmake --build build/bench --parallel $(JOBS) --target tavrin_bench tavrin_latency tavrin_network tavrin-separate
	@build/bench/bench/tavrin_bench
	@build/bench/bench/tavrin_network .deps/models/vocals.onnx build/bench/tools/tavrin-separate $(ROUNDS)

test-arm64: setup
	@scripts/setup.sh arm64
	@$(MAKE) --no-print-directory test PRESET=arm64

wheel: setup
	@scripts/wheel.sh

test-wheel: build
	@TAVRIN_HOST="$(CURDIR)/$(BUILD)/examples/minimal_host" scripts/wheel.sh test

package: setup
	@scripts/setup.sh packages
	@scripts/package.sh

test-packages: package
	@scripts/setup.sh arm64-commands
	@scripts/package.sh arm64
	@scripts/test_packages.sh

release-check:
	@scripts/release_check.sh

stress: setup
	@scripts/stress.sh

fuzz: setup
	@scripts/fuzz.sh $(SECONDS)

install: build
	cmake --install $(BUILD) --prefix "$(PREFIX)"

docs:
	@command -v doxygen >/dev/null || { echo "make docs: doxygen is missing: apt-get install doxygen" >&2; exit 1; }
	@mkdir -p build
	doxygen docs/Doxyfile

format:
	clang-format -i $(SOURCES)

check-format:
	@clang-format --dry-run --Werror $(SOURCES)

# With clang's own flags: the compile commands of g++ are not all known to it.
lint: setup
	@cmake --preset clang >/dev/null
	@printf '%s\n' $(filter src/%.cpp tools/%.cpp,$(SOURCES)) | xargs -P $(JOBS) -n 4 clang-tidy --quiet -p build/clang

clean:
	rm -rf build demo
