# The short commands. Each does all that is needed before it; a second call downloads and rebuilds nothing.
#
#   make demo [SONG=path]   separate a song, the demo's own or yours
#   make test               build everything and run the tests
#   make wheel              the Python package with everything inside, build/wheel
#   make test-wheel         and its tests, from a fresh environment
#   make test-arm64         cross build for arm64 and its unit tests, run by an emulator
#   make install            install below PREFIX
#   make bench              one table of the library's speed and memory against its transforms: two minutes
#   make stress             ten hours of audio, shared models, damaged models, failing memory: four minutes
#   make fuzz [SECONDS=300] each fuzzer for so long (clang)
#   make docs               the interface as a web site, build/docs/html (needs doxygen)
#   make format lint clean
#
# PRESET chooses the build: release, debug, static, clang, asan or tsan (CMakePresets.json).
PRESET ?= release
PREFIX ?= /usr/local
BUILD := build/$(PRESET)
JOBS := $(shell nproc 2>/dev/null || echo 2)
SOURCES = $(shell git ls-files '*.h' '*.cpp' '*.c')

.PHONY: all setup build demo test wheel test-wheel test-arm64 bench stress fuzz install docs format check-format lint clean
.NOTPARALLEL:

all: build

setup:
	@scripts/setup.sh

$(BUILD)/CMakeCache.txt: | setup
	cmake --preset $(PRESET)

build: setup $(BUILD)/CMakeCache.txt
	@cmake --build $(BUILD) --parallel $(JOBS)

demo: build
	@scripts/demo.sh $(BUILD) $(if $(SONG),"$(SONG)")

test: build
	@ctest --test-dir $(BUILD) --output-on-failure --parallel $(JOBS)

bench: setup
	@scripts/setup.sh bench
	@cmake --preset bench >/dev/null
	@cmake --build build/bench --parallel $(JOBS)
	@build/bench/bench/tavrin_bench

test-arm64: setup
	@scripts/setup.sh arm64
	@$(MAKE) --no-print-directory test PRESET=arm64

wheel: setup
	@scripts/wheel.sh

test-wheel: build
	@TAVRIN_HOST="$(CURDIR)/$(BUILD)/examples/minimal_host" scripts/wheel.sh test

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
