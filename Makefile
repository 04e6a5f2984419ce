# Set-up and everyday commands. Everything builds into build/ (sanitizer, fuzz, benchmark
# and Windows builds into build-asan/, build-tsan/, build-fuzz/, build-bench/, build-windows/).
PRESET ?= default
JOBS ?= $(shell nproc 2>/dev/null || echo 2)

.PHONY: all build test demo asan tsan fuzz bench windows cluster-test clean deps

# Debian packages the build and the tests use (command:package, or file:package for a
# library); installed when missing and apt-get can. Slurm and munge are for the cluster
# test's throwaway cluster; the PNG writer of the thumbnails is header-only and deflates
# with zlib; chromium opens the report page in the browser test.
DEB_PACKAGES := cmake:cmake ninja:ninja-build g++:g++ git:git parallel:parallel \
	slurmctld:slurm-wlm munged:munge /usr/include/stb/stb_image_write.h:libstb-dev \
	/usr/include/zlib.h:zlib1g-dev chromium:chromium

all: build

build/build.ninja:
	cmake --preset $(PRESET)

build: deps build/build.ninja
	cmake --build build -j $(JOBS)

deps:
	@missing=""; for pair in $(DEB_PACKAGES); do \
	  need="$${pair%%:*}"; \
	  case "$$need" in /*) [ -e "$$need" ] ;; *) command -v "$$need" >/dev/null 2>&1 ;; esac \
	    || missing="$$missing $${pair#*:}"; \
	done; \
	if [ -n "$$missing" ]; then \
	  if command -v apt-get >/dev/null 2>&1 && [ "$$(id -u)" = 0 ]; then \
	    echo "Installing$$missing"; \
	    export DEBIAN_FRONTEND=noninteractive; \
	    { apt-get install -y $$missing >/dev/null 2>&1 || { apt-get update >/dev/null && apt-get install -y $$missing; }; } \
	      || echo "Could not install$$missing (tests that need them are skipped)"; \
	  else echo "Missing packages:$$missing (tests that need them are skipped)"; fi; \
	fi

test: deps build
	ctest --test-dir build --output-on-failure -j $(JOBS)

demo: build
	rm -rf out
	./build/zv_mdl_import -o out -i samples -r "samples/*.mdl"

asan:
	cmake --preset asan
	cmake --build build-asan -j $(JOBS)
	ctest --test-dir build-asan --output-on-failure -j $(JOBS)

# The tests that run threads: parallel conversions, the log's thread sinks, shared archives.
TSAN_TESTS := Batch|Logging|SharedWork|QpkArchiveTest|ReportPage\.A
tsan:
	cmake --preset tsan
	cmake --build build-tsan -j $(JOBS) --target app_tests base_tests qpk_tests zv_mdl_import
	TSAN_OPTIONS=halt_on_error=1 ctest --test-dir build-tsan --output-on-failure -j $(JOBS) -R '$(TSAN_TESTS)'

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

# tools/cluster end to end on a throwaway one-node Slurm cluster: three minutes at most,
# ten seconds of them for tearing the cluster down should the test be stopped.
cluster-test: deps build/build.ninja
	cmake --build build -j $(JOBS) --target zv_mdl_import
	timeout -k 10 170 tests/cluster/cluster_test.sh build/zv_mdl_import

clean:
	rm -rf build build-asan build-tsan build-fuzz build-bench build-windows out
