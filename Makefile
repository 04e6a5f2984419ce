# Set-up and everyday commands. Everything builds into build/ (sanitizer, fuzz and
# benchmark builds into build-asan/, build-fuzz/, build-bench/).
PRESET ?= default
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all build test demo asan fuzz bench clean

all: build

build/build.ninja:
	cmake --preset $(PRESET)

build: build/build.ninja
	cmake --build build -j $(JOBS)

test: build
	ctest --test-dir build --output-on-failure -j $(JOBS)

demo: build
	rm -rf out
	./build/zv_mdl_import -o out -i samples -r "samples/*.mdl"

asan:
	cmake --preset asan
	cmake --build build-asan -j $(JOBS)
	ctest --test-dir build-asan --output-on-failure -j $(JOBS)

fuzz:
	cmake --preset fuzz
	cmake --build build-fuzz -j $(JOBS)

bench:
	cmake --preset bench
	cmake --build build-bench -j $(JOBS)

clean:
	rm -rf build build-asan build-fuzz build-bench out
