# Set-up and everyday commands. Everything builds into build/ (sanitizer, fuzz, benchmark
# and Windows builds into build-asan/, build-fuzz/, build-bench/, build-windows/).
PRESET ?= default
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all build test demo asan fuzz bench windows clean

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

# Cross-builds for Windows with MinGW-w64, runs every test under wine and compares the
# outputs with the Linux build's byte for byte (installs the packages when missing).
windows: build
	JOBS=$(JOBS) tools/ci/windows.sh

clean:
	rm -rf build build-asan build-fuzz build-bench build-windows out
