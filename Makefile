# Front door. Every target installs what is missing, configures and builds first.
JOBS ?= $(shell nproc)
GEN  := -G Ninja
CMAKE_BUILD = cmake --build $(1) -j $(JOBS)

.PHONY: all deps build test demo bench asan fuzz install clean

all: build

deps:
	@scripts/install-deps

build: deps
	@cmake -S . -B build $(GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo >/dev/null
	@$(call CMAKE_BUILD,build)

test: build
	@cd build && ctest --output-on-failure -j $(JOBS)

demo: build
	@scripts/demo build/Oxa

# Real music for the benchmarks; without it they skip their music rows.
BENCH_MUSIC ?= $(abspath ../bench-music)

bench: deps
	@../shared/tools/make-bench-music.sh $(BENCH_MUSIC) >/dev/null || \
	    echo "bench music not built in $(BENCH_MUSIC): its rows will be skipped"
	@cmake -S . -B build-bench $(GEN) -DCMAKE_BUILD_TYPE=Release -DOXA_BENCH=ON -DOXA_TESTS=OFF \
	    -DOXA_BENCH_MUSIC=$(BENCH_MUSIC) >/dev/null
	@$(call CMAKE_BUILD,build-bench)
	@scripts/run-benchmarks build-bench

asan: deps
	@cmake -S . -B build-asan $(GEN) -DCMAKE_BUILD_TYPE=Debug -DOXA_SANITIZE=ON \
	    -DOXA_PLATFORM_ALLOCATOR=ON >/dev/null
	@$(call CMAKE_BUILD,build-asan)
	@cd build-asan && ASAN_OPTIONS=detect_leaks=1 UBSAN_OPTIONS=print_stacktrace=1 \
	    ctest --output-on-failure -j $(JOBS)

fuzz: deps
	@cmake -S . -B build-fuzz $(GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DOXA_FUZZ=ON \
	    -DOXA_PLATFORM_ALLOCATOR=ON -DCMAKE_C_COMPILER=clang -DCMAKE_CXX_COMPILER=clang++ >/dev/null
	@$(call CMAKE_BUILD,build-fuzz)
	@scripts/run-fuzzers build-fuzz $(FUZZ_SECONDS)

install: build
	@cmake --install build $(if $(PREFIX),--prefix $(PREFIX))

clean:
	rm -rf build build-asan build-bench build-fuzz
