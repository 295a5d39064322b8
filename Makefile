# Set-up and everyday commands. Each target first installs what is missing
# (Debian packages, with apt-get), then builds with CMake and Ninja.
#   make run    build and run the demonstration on its embedded default
#   make test   build normally and with ASan+UBSan, and run every test in both
#   make bench  build and run the benchmarks, writing JSON under build/bench/
#   make examples  regenerate the expected output of the example scenarios
#   make fuzz   build the libFuzzer targets with clang and fuzz for FUZZ_SECONDS
#   make stress run the randomized whole-stack driver for EVENTS events from SEED

BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 30
EVENTS     ?= 1000000
SEED       ?= 1
PREFIX     ?= /usr/local
JOBS       ?= $(shell nproc)
# libabsl-dev: the absl::flat_hash_map baselines of the benchmarks, nothing else.
PACKAGES   := cmake ninja-build g++ python3 libgtest-dev libgmock-dev libbenchmark-dev rapidjson-dev libboost-dev libabsl-dev pkg-config
SUDO       := $(shell [ "$$(id -u)" = 0 ] || echo sudo)

.PHONY: all deps fuzz-deps build asan run test bench examples fuzz stress install format clean

all: build

deps:
	@missing=$$(for p in $(PACKAGES); do \
	  dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; done); \
	if [ -n "$$missing" ]; then \
	  echo "Installing missing packages:" $$missing; \
	  $(SUDO) apt-get update -qq && \
	  $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	fi

# clang, and libFuzzer's runtime: the compiler-rt package of that clang's
# version (libclang-rt-14-dev for Debian 12's clang 14), which clang itself
# neither depends on nor recommends.
fuzz-deps: deps
	@install_missing() { \
	  missing=$$(for p in "$$@"; do \
	    dpkg-query -W -f='$${Status}' $$p 2>/dev/null | grep -q 'install ok installed' || echo $$p; done); \
	  if [ -n "$$missing" ]; then \
	    echo "Installing missing packages:" $$missing; \
	    $(SUDO) apt-get update -qq && \
	    $(SUDO) env DEBIAN_FRONTEND=noninteractive apt-get install -y -qq --no-install-recommends $$missing; \
	  fi; }; \
	install_missing clang && \
	install_missing libclang-rt-$$(clang -dumpversion | cut -d. -f1)-dev

$(BUILD)/build.ninja: | deps
	cmake -S . -B $(BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo

$(ASAN_BUILD)/build.ninja: | deps
	cmake -S . -B $(ASAN_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DFABVXLAN_SANITIZE=ON

$(FUZZ_BUILD)/build.ninja: | fuzz-deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DFABVXLAN_FUZZ=ON

build: deps $(BUILD)/build.ninja
	cmake --build $(BUILD) -j $(JOBS)

asan: deps $(ASAN_BUILD)/build.ninja
	cmake --build $(ASAN_BUILD) -j $(JOBS)

# The library, headers, schemas, generator, tools, docs, CMake package and
# fabvxlan.pc under PREFIX.
install: build
	cmake --install $(BUILD) --prefix $(PREFIX)

run: build
	$(BUILD)/sim/fabvxlan-sim

test: build asan
	ctest --test-dir $(BUILD) --output-on-failure -j $(JOBS)
	ctest --test-dir $(ASAN_BUILD) --output-on-failure -j $(JOBS)

# New corpus entries go to a scratch folder, crashes under $(FUZZ_BUILD)/.
fuzz: fuzz-deps $(FUZZ_BUILD)/build.ninja
	cmake --build $(FUZZ_BUILD) -j $(JOBS) --target fabvxlan-fuzz-learnframe
	@corpus=$$(mktemp -d) && trap 'rm -rf "$$corpus"' EXIT && \
	$(FUZZ_BUILD)/fuzz/fabvxlan-fuzz-learnframe -max_total_time=$(FUZZ_SECONDS) -max_len=130 \
	  -print_final_stats=1 -artifact_prefix=$(FUZZ_BUILD)/ "$$corpus" fuzz/corpus

# A failure is shrunk and written to $(BUILD)/stress-seed-$(SEED).json, which
# fabvxlan-sim replays.
stress: build
	$(BUILD)/sim/fabvxlan-stress --events $(EVENTS) --seed $(SEED) --out $(BUILD)

# Regenerates the expected output of every example scenario; review the diff.
examples: build
	@for scenario in examples/*.json; do \
	  $(BUILD)/sim/fabvxlan-sim $$scenario > $${scenario%.json}.expected || exit 1; \
	done

# The goal check comes last, so that a missed goal fails the command with
# every JSON file written. The runtime's repetitions are interleaved, so that
# a table and its baseline see the same load of a shared machine.
bench: build
	@mkdir -p $(BUILD)/bench
	$(BUILD)/bench/fabvxlan-bench-runtime --benchmark_repetitions=5 --benchmark_enable_random_interleaving=true \
	  --benchmark_out=$(BUILD)/bench/runtime.json --benchmark_out_format=json
	$(BUILD)/bench/fabvxlan-bench-vtep --benchmark_repetitions=3 \
	  --benchmark_out=$(BUILD)/bench/vtep.json --benchmark_out_format=json
	$(BUILD)/bench/fabvxlan-bench-vni --benchmark_repetitions=3 \
	  --benchmark_out=$(BUILD)/bench/vni.json --benchmark_out_format=json
	$(BUILD)/bench/fabvxlan-bench-mac --benchmark_out=$(BUILD)/bench/mac.json --benchmark_out_format=json
	python3 bench/ratios.py $(BUILD)/bench/runtime.json

format:
	git ls-files '*.h' '*.cpp' ':!tests/tools/rxngen/golden' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
