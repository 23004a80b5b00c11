# Two entry points: `make demo` and `make test`. Both install what is
# missing on a Debian 12 machine, then configure and build out of tree.
BUILD      ?= build
ASAN_BUILD ?= build-asan
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=

.PHONY: all deps build build-asan demo test test-fast test-asan clean

all: build

deps:
	@./scripts/install-deps.sh

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo $(CMAKE_ARGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

$(ASAN_BUILD)/CMakeCache.txt:
	cmake -S . -B $(ASAN_BUILD) -DCMAKE_BUILD_TYPE=Debug -DTWKEY_SANITIZE=ON -DTWKEY_BUILD_BENCH=OFF $(CMAKE_ARGS)

build-asan: deps $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j $(JOBS)

demo: build
	./scripts/demo.sh $(BUILD)/bin

test-fast: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-asan: build-asan
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

test: test-fast test-asan

clean:
	rm -rf $(BUILD) $(ASAN_BUILD)
