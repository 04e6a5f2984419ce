#!/usr/bin/env bash
# The Windows build: cross-builds every target with MinGW-w64 into build-windows/, runs
# the whole test suite under wine, then checks that the Windows tool writes the same bytes
# as the Linux one. Installs the Debian packages it needs when they are missing; skips,
# saying so, only where they cannot be installed.
set -euo pipefail
cd "$(dirname "$0")/../.."
jobs=${JOBS:-2}
packages=(g++-mingw-w64-x86-64-posix libz-mingw-w64-dev wine64)

have_tools() {
  command -v x86_64-w64-mingw32-g++-posix >/dev/null && [ -f /usr/x86_64-w64-mingw32/lib/libz.a ] &&
    [ -x /usr/lib/wine/wine64 ]
}

if ! have_tools; then
  echo "== windows: installing ${packages[*]}"
  if [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
    export DEBIAN_FRONTEND=noninteractive
    { apt-get update -qq && apt-get install -y -qq --no-install-recommends "${packages[@]}"; } >/dev/null 2>&1 || true
  fi
  if ! have_tools; then
    echo "== windows: SKIPPED: the packages ${packages[*]} are not installed and cannot be installed here"
    exit 0
  fi
fi

echo "== windows: cross-build (MinGW-w64, warnings are errors)"
cmake --preset windows >/dev/null

# One wine server and one ready prefix for the whole run (the build lists each test
# program's tests under wine too): programs started while a server comes up or a prefix
# is being made can die before they run.
export WINEPREFIX="$PWD/build-windows/wineprefix" WINEDEBUG=-all
mkdir -p "$WINEPREFIX" # the server refuses a prefix that does not exist yet (a clean clone)
/usr/lib/wine/wineserver -p
trap '/usr/lib/wine/wineserver -k 2>/dev/null || true' EXIT
/usr/lib/wine/wine64 wineboot --init >/dev/null 2>&1
/usr/lib/wine/wine64 cmd /c exit >/dev/null 2>&1

cmake --build build-windows -j "$jobs"

echo "== windows: every test under wine"
python3 tools/ci/ctest_under_wine.py build-windows "$jobs"

if [ -x build/zv_mdl_import ]; then
  echo "== windows: outputs byte for byte against the Linux build"
  tools/ci/compare_windows_outputs.sh build/zv_mdl_import build-windows/zv_mdl_import.exe
else
  echo "== windows: no Linux build in build/ to compare outputs with (make build first)"
fi
