# Two entry points for a fresh Debian machine: `make run` and `make test`.
JOBS      ?= $(shell nproc)
ASAN_DIR  := build/asan
REL_DIR   := build/release
FUZZ_DIR  := build/fuzz
# make fuzz: seconds per target, and which targets (default: every fuzz/fuzz_*.cpp).
FUZZ_SECONDS ?= 180
FUZZ_TARGETS ?=
PREFIX    ?= /usr/local

.PHONY: deps build-asan build-release build-fuzz run test bench fuzz install clean

deps:
	@scripts/install-deps.sh

build-asan: deps
	cmake -S . -B $(ASAN_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Debug -DQUORVANE_SANITIZE=ON -DQUORVANE_WERROR=ON
	cmake --build $(ASAN_DIR) -j $(JOBS)

build-release: deps
	cmake -S . -B $(REL_DIR) -G Ninja -DCMAKE_BUILD_TYPE=Release -DQUORVANE_TESTS=OFF -DCMAKE_INSTALL_PREFIX=$(PREFIX)
	cmake --build $(REL_DIR) -j $(JOBS)

test: build-asan
	cd $(ASAN_DIR) && ctest --output-on-failure -j $(JOBS) --timeout 600

# Only the library and the harnesses: the command, tests and benchmarks are left out.
build-fuzz: deps
	@scripts/install-deps.sh --fuzz
	cmake -S . -B $(FUZZ_DIR) -G Ninja -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ \
	  -DCMAKE_BUILD_TYPE=RelWithDebInfo -DQUORVANE_FUZZ=ON -DQUORVANE_TESTS=OFF -DQUORVANE_BENCH=OFF
	cmake --build $(FUZZ_DIR) -j $(JOBS) --target fuzz_targets

fuzz: build-fuzz
	scripts/run-fuzz.py --build $(FUZZ_DIR) --seconds $(FUZZ_SECONDS) --targets "$(FUZZ_TARGETS)"

run: build-release
	@scripts/run-demo.sh $(REL_DIR)/tools/quorvane

bench: build-release
	@scripts/install-deps.sh --bench
	cmake -S . -B $(REL_DIR)
	cmake --build $(REL_DIR) -j $(JOBS)
	$(REL_DIR)/bench/quorvane_bench

install: build-release
	cmake --install $(REL_DIR)

clean:
	rm -rf build
