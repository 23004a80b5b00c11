# Two entry points: `make demo` and `make test`. Both install what is
# missing on a Debian 12 machine, then configure and build out of tree.
# `make deb` builds the Debian package, `make install` installs the build.
BUILD      ?= build
ASAN_BUILD ?= build-asan
DEB_BUILD  ?= build-deb
FUZZ_SECONDS ?= 300
PREFIX     ?=
JOBS       ?= $(shell nproc 2>/dev/null || echo 2)
# Ninja compiles a target's sources while the libraries it links are still
# being built; Make waits for them.
GENERATOR  ?= Ninja
CMAKE_ARGS ?=

.PHONY: FORCE all deps build build-asan build-fuzz demo test test-fast test-asan test-fuzz fuzz bench install deb clean

all: build

deps:
	@./scripts/install-deps.sh

$(BUILD)/CMakeCache.txt:
	cmake -S . -B $(BUILD) -G "$(GENERATOR)" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DTWKEY_LLD=ON $(CMAKE_ARGS)

build: deps $(BUILD)/CMakeCache.txt
	cmake --build $(BUILD) -j $(JOBS)

# The sanitizer build is clang's: the libFuzzer fuzzers are built in it,
# on the same objects the ASan+UBSan tests run. One made before (gcc, no
# fuzzers) is made anew.
ASAN_STALE := $(if $(wildcard $(ASAN_BUILD)/CMakeCache.txt),$(shell grep -qs '^TWKEY_FUZZ:BOOL=ON' $(ASAN_BUILD)/CMakeCache.txt || echo stale))
$(ASAN_BUILD)/CMakeCache.txt: $(if $(ASAN_STALE),FORCE)
	$(if $(ASAN_STALE),rm -rf $(ASAN_BUILD))
	cmake -S . -B $(ASAN_BUILD) -G "$(GENERATOR)" -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ -DCMAKE_BUILD_TYPE=Debug \
	  -DTWKEY_SANITIZE=ON -DTWKEY_FUZZ=ON -DTWKEY_BUILD_BENCH=OFF -DTWKEY_LLD=ON $(CMAKE_ARGS)

build-asan: deps $(ASAN_BUILD)/CMakeCache.txt
	cmake --build $(ASAN_BUILD) -j $(JOBS)

build-fuzz: build-asan

# Each fuzzer for FUZZ_SECONDS; make test gives each about 20 s.
fuzz: build-asan
	./scripts/fuzz.sh $(ASAN_BUILD)/bin $(FUZZ_SECONDS)

test-fuzz: build-asan
	./scripts/fuzz.sh $(ASAN_BUILD)/bin 20

# The benchmarks, in the normal build (not built by make build or make test).
bench: build
	cmake --build $(BUILD) -j $(JOBS) --target bench

demo: build
	./scripts/demo.sh $(BUILD)/bin

test-fast: build
	cd $(BUILD) && ctest --output-on-failure -j $(JOBS)

test-asan: build-asan
	cd $(ASAN_BUILD) && ctest --output-on-failure -j $(JOBS)

test: test-fast test-asan test-fuzz

install: build
	cmake --install $(BUILD) $(if $(PREFIX),--prefix $(PREFIX))

# The package: a build of its own under /usr with all of Debian's hardening
# flags, then CPack (dependencies by dpkg-shlibdeps) and lintian.
DEB_FLAGS = DEB_BUILD_MAINT_OPTIONS=hardening=+all dpkg-buildflags --get
deb:
	@./scripts/install-deps.sh deb
	cmake -S . -B $(DEB_BUILD) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCMAKE_INSTALL_PREFIX=/usr \
	  -DTWKEY_BUILD_TESTS=OFF -DTWKEY_BUILD_BENCH=OFF \
	  -DCMAKE_C_FLAGS="$$($(DEB_FLAGS) CFLAGS) $$($(DEB_FLAGS) CPPFLAGS)" \
	  -DCMAKE_CXX_FLAGS="$$($(DEB_FLAGS) CXXFLAGS) $$($(DEB_FLAGS) CPPFLAGS)" \
	  -DCMAKE_EXE_LINKER_FLAGS="$$($(DEB_FLAGS) LDFLAGS)" \
	  -DCMAKE_SHARED_LINKER_FLAGS="$$($(DEB_FLAGS) LDFLAGS)" $(CMAKE_ARGS)
	cmake --build $(DEB_BUILD) -j $(JOBS)
	cd $(DEB_BUILD) && cpack -G DEB
	lintian --fail-on error --display-info $(DEB_BUILD)/twkey_*.deb

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(DEB_BUILD) build-fuzz

FORCE:
