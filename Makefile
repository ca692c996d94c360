# Two entry points for a fresh Debian machine: `make run` and `make test`.
JOBS      ?= $(shell nproc)
ASAN_DIR  := build/asan
REL_DIR   := build/release
PREFIX    ?= /usr/local

.PHONY: deps build-asan build-release run test bench install clean

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
