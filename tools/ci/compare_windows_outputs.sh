#!/usr/bin/env bash
# Converts the acceptance models (../shared/corpus, when present), samples/ and a generated
# library with the Linux tool and with the Windows tool under wine, and compares every
# output file byte for byte, and the exit statuses. The Windows run is given its output folder with a
# drive letter, so drive-letter roots are exercised too.
# Usage: compare_windows_outputs.sh LINUX_TOOL WINDOWS_TOOL.exe
set -euo pipefail
cd "$(dirname "$0")/../.."
linux=$(realpath "$1")
windows=$(realpath "$2")
export WINEDEBUG=-all WINEPREFIX=${WINEPREFIX:-$PWD/build-windows/wineprefix} NO_COLOR=1
wine=${WINE:-/usr/lib/wine/wine64}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# compare NAME FOLDER PATTERN: converts FOLDER/PATTERN (run inside FOLDER) both ways.
compare() {
  local name=$1 folder=$2 pattern=$3 linux_status=0 windows_status=0
  (cd "$folder" && "$linux" -i . -o "$work/linux/$name" -r "$pattern") >"$work/$name-linux.log" 2>&1 || linux_status=$?
  (cd "$folder" && "$wine" "$windows" -i . -o "Z:$work/windows/$name" -r "${pattern//\//\\}") \
    >"$work/$name-windows.log" 2>&1 || windows_status=$?
  if [ "$linux_status" != "$windows_status" ]; then
    echo "$name: exit status $linux_status on Linux, $windows_status on Windows"
    tail -5 "$work/$name-windows.log"
    return 1
  fi
  local files
  files=$(cd "$work/linux/$name" && find . -type f | wc -l)
  if [ "$files" = 0 ]; then
    echo "$name: nothing was written"
    return 1
  fi
  if ! diff -r "$work/linux/$name" "$work/windows/$name"; then
    echo "$name: outputs differ"
    return 1
  fi
  echo "$name: $files files identical (exit status $linux_status on both)"
}

status=0
if [ -d ../shared/corpus/models ]; then
  compare corpus ../shared/corpus "models/*.mdl" || status=1
else
  echo "corpus: ../shared/corpus is not there; skipped"
fi
compare samples samples "*.mdl" || status=1

# A generated library of props and animated characters: many more angles, poses and
# meshes than the samples, so that a last-bit difference between the platforms' maths
# libraries shows.
forge=$(dirname "$linux")/tools/mdlforge/mdlforge
if [ -x "$forge" ]; then
  python3 bench/make_library.py "$work/library-text" 200 >/dev/null
  while read -r description folder; do
    "$forge" "$work/library-text/$description" "$work/library/$folder" >/dev/null
  done <"$work/library-text/list.txt"
  compare library "$work/library" "models/*.mdl" || status=1
else
  echo "library: no mdlforge beside $linux; skipped"
fi
exit $status
