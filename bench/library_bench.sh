#!/usr/bin/env bash
# Converts a generated library of models one at a time and two at a time, and compares
# both with copying the same output files into an empty folder, the floor of any
# conversion that writes them. Prints models/s, MB/s written, the ratios to the floor,
# user time per GB of animation files, allocations per animation file (from a build of the
# tool that counts them), peak memory, and a hash of every output file, so that a change
# can show it writes the same bytes.
#
# Usage: bench/library_bench.sh [PROFILE] [COUNT] [BUILD_DIR]
#   PROFILE mixed (default): COUNT models (default 1000), props and small characters.
#   PROFILE characters: COUNT characters (default 4) of 50-130 bones with 60-150
#     animations each, and as many props; 24 characters make a library of about 2 GB.
# Each figure is the median of RUNS runs (default 3). The library is generated with
# mdlforge into BENCH_DIR (default TMPDIR, else /tmp).
set -euo pipefail
cd "$(dirname "$0")/.."
profile=mixed
case "${1:-}" in mixed | characters) profile=$1; shift ;; esac
default_count=1000
[ "$profile" = characters ] && default_count=4
count=${1:-$default_count}
build=${2:-}
runs=${RUNS:-3}
if [ -z "$build" ]; then
  build=build-bench
  [ -x "$build/zv_mdl_import" ] || build=build
fi
build=$(cd "$build" && pwd)
tool=$build/zv_mdl_import
counted=$build/bench/zv_mdl_import_counted
forge=$build/tools/mdlforge/mdlforge
[ -x "$tool" ] && [ -x "$forge" ] || { echo "build $build first (make bench or make build)" >&2; exit 2; }
work=$(mktemp -d "${BENCH_DIR:-${TMPDIR:-/tmp}}/library_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

echo "generating the $profile library ($count)..."
python3 bench/make_library.py "$work/text" "$count" "$profile"
while read -r description folder; do
  echo "$work/text/$description $work/game/$folder"
done < "$work/text/list.txt" | xargs -P "$(nproc)" -n 2 "$forge" > /dev/null
rm -rf "$work/text"
models=$(find "$work/game" -name '*.mdl' | wc -l)
input_bytes=$(find "$work/game" -type f -printf '%s\n' | awk '{ s += $1 } END { print s }')

# wall seconds, peak KiB and user/system seconds of one command, in globals
measure() {
  local start end
  start=$(date +%s.%N)
  /usr/bin/time -f '%M %U %S' -o "$work/rss" "$@" > /dev/null 2>&1 || true
  end=$(date +%s.%N)
  seconds=$(echo "$end - $start" | bc)
  read -r peak user system < <(tail -1 "$work/rss")
}

median() { printf '%s\n' "$@" | sort -g | awk '{ v[NR] = $1 } END { print v[int((NR + 1) / 2)] }'; }

# sha1 of the sorted list of every output file's sha1 and path
output_hash() { (cd "$1" && find . -type f -print0 | sort -z | xargs -0 sha1sum) | sha1sum | cut -c1-16; }

cd "$work/game"
declare -A time_of user_of peak_of hash_of
for jobs in 1 2; do
  times=() users=() peaks=()
  for ((r = 0; r < runs; r++)); do
    rm -rf "$work/out$jobs"
    measure "$tool" -j "$jobs" -i . -o "$work/out$jobs" -r "models/*.mdl"
    times+=("$seconds") users+=("$user") peaks+=("$peak")
  done
  time_of[$jobs]=$(median "${times[@]}")
  user_of[$jobs]=$(median "${users[@]}")
  peak_of[$jobs]=$(median "${peaks[@]}")
  hash_of[$jobs]=$(output_hash "$work/out$jobs")
done
files=$(find "$work/out1" -type f | wc -l)
bytes=$(find "$work/out1" -type f -printf '%s\n' | awk '{ s += $1 } END { print s }')
anim_files=$(find "$work/out1" -path '*/anim/*.dmx' | wc -l)
anim_bytes=$(find "$work/out1" -path '*/anim/*.dmx' -printf '%s\n' | awk '{ s += $1 } END { print s + 0 }')

copies=()
for ((r = 0; r < runs; r++)); do
  rm -rf "$work/copy"
  measure cp -r "$work/out1" "$work/copy"
  copies+=("$seconds")
done
copy=$(median "${copies[@]}")
rm -rf "$work/copy"

allocations=""
if [ -x "$counted" ]; then
  rm -rf "$work/outcount"
  allocations=$(cd "$work/game" && ZV_COUNT_ALLOCATIONS=1 "$counted" -j 1 -i . -o "$work/outcount" -r "models/*.mdl" 2>&1 >/dev/null |
    sed -n 's/^allocations: //p' | tail -1)
  rm -rf "$work/outcount"
fi

# The same -j 1 run writing the report page: its thumbnails are rendered from the
# converter's own tables, so the run should stay within 15% of the plain one.
rm -rf "$work/outpage"
measure "$tool" -j 1 -i . -o "$work/outpage" -r "models/*.mdl" -report-html "$work/page/run.html"
page_time=$seconds
pictures=$(find "$work/page/run_files" -type f | wc -l)
rm -rf "$work/outpage" "$work/page"

ratio() { echo "$1 / $2" | bc -l; }
echo "profile $profile: $models models, $input_bytes input bytes; medians of $runs runs"
echo "output: $files files, $bytes bytes ($anim_files animation files, $anim_bytes bytes)"
for jobs in 1 2; do
  printf -- '-j %s: %.2fs, %.1f models/s, %.1f MB/s written, %ss user, peak memory %s KiB\n' "$jobs" \
    "${time_of[$jobs]}" "$(ratio "$models" "${time_of[$jobs]}")" "$(echo "$bytes / ${time_of[$jobs]} / 1000000" | bc -l)" \
    "${user_of[$jobs]}" "${peak_of[$jobs]}"
done
printf 'copying the output into an empty folder: %.2fs\n' "$copy"
printf -- '-j 1 / copy: %.2fx, -j 2 / copy: %.2fx (goal 1.3x at -j 1)\n' "$(ratio "${time_of[1]}" "$copy")" \
  "$(ratio "${time_of[2]}" "$copy")"
printf -- '-j 2 speed-up over -j 1: %.2fx (goal 1.85x)\n' "$(ratio "${time_of[1]}" "${time_of[2]}")"
if [ "$anim_bytes" -gt 0 ]; then
  printf 'user time per GB of animation files (-j 1): %.2fs (goal 2)\n' \
    "$(echo "${user_of[1]} / ($anim_bytes / 1000000000)" | bc -l)"
fi
if [ -n "$allocations" ] && [ "$anim_files" -gt 0 ]; then
  printf 'allocations: %s in all, %.0f per animation file written (the whole run'"'"'s, shared out)\n' \
    "$allocations" "$(ratio "$allocations" "$anim_files")"
fi
printf -- '-j 1 with -report-html: %.2fs, %s thumbnails, %+.1f%% over -j 1 (goal at most +15%%)\n' \
  "$page_time" "$pictures" "$(echo "($page_time / ${time_of[1]} - 1) * 100" | bc -l)"
echo "output hash: ${hash_of[1]}"
if [ "${hash_of[1]}" != "${hash_of[2]}" ]; then
  echo "-j 1 and -j 2 wrote different files (${hash_of[2]})" >&2
  exit 1
fi
