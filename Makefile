# Two entry points: `make demo` and `make test`. Both install what is
# missing on a Debian 12 machine, then configure and build out of tree.
BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
FUZZ_SECONDS ?= 300
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
CMAKE_ARGS ?=

.PHONY: all deps build build-asan build-fuzz demo test test-fast test-asan test-fuzz fuzz clean

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

$(FUZZ_BUILD)/CMakeCache.txt:
	cmake -S . -B $(FUZZ_BUILD) -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DTWKEY_FUZZ=ON $(CMAKE_ARGS)

build-fuzz: deps $(FUZZ_BUILD)/CMakeCache.txt
	cmake --build $(FUZZ_BUILD) -j $(JOBS)

# Each fuzzer for FUZZ_SECONDS; make test gives each about 20 s.
fuzz: build-fuzz
	./scripts/fuzz.sh $(FUZZ_BUILD)/bin $(FUZZ_SECONDS)

test-fuzz: build-fuzz
	./scripts/fuzz.sh $(FUZZ_BUILD)/bin 20

demo: build
	./scripts/demo.sh $(BUILD)/bin

test-fast: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-asan: build-asan
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

test: test-fast test-asan test-fuzz

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
