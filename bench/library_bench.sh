#!/usr/bin/env bash
# Converts a generated library of models (props, and characters with animations) one at a
# time and two at a time, and compares both with copying the same output files, the floor
# of any conversion that writes them. Prints models/s, output MB/s, peak memory and the
# ratios. Usage: bench/library_bench.sh [MODELS] [BUILD_DIR]
# Defaults: 1000 models, build-bench/ (else build/); the library is generated with mdlforge.
set -euo pipefail
cd "$(dirname "$0")/.."
count=${1:-1000}
build=${2:-}
if [ -z "$build" ]; then
  build=build-bench
  [ -x "$build/zv_mdl_import" ] || build=build
fi
build=$(cd "$build" && pwd)
tool=$build/zv_mdl_import
forge=$build/tools/mdlforge/mdlforge
[ -x "$tool" ] && [ -x "$forge" ] || { echo "build $build first (make bench or make build)" >&2; exit 2; }
work=$(mktemp -d "${BENCH_DIR:-${TMPDIR:-/tmp}}/library_bench.XXXXXX")
trap 'rm -rf "$work"' EXIT

echo "generating $count models..."
python3 bench/make_library.py "$work/text" "$count"
while read -r description folder; do
  echo "$work/text/$description $work/game/$folder"
done < "$work/text/list.txt" | xargs -P "$(nproc)" -n 2 "$forge" > /dev/null
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

cd "$work/game"
declare -A time_of
for jobs in 1 2; do
  rm -rf "$work/out$jobs"
  measure "$tool" -j "$jobs" -i . -o "$work/out$jobs" -r "models/*.mdl"
  time_of[$jobs]=$seconds
  files=$(find "$work/out$jobs" -type f | wc -l)
  bytes=$(find "$work/out$jobs" -type f -printf '%s\n' | awk '{ s += $1 } END { print s }')
  printf -- '-j %s: %.2fs, %.1f models/s, %.1f MB/s written (%s files, %s bytes), peak memory %s KiB\n' \
    "$jobs" "$seconds" "$(echo "$count / $seconds" | bc -l)" "$(echo "$bytes / $seconds / 1000000" | bc -l)" \
    "$files" "$bytes" "$peak"
  printf '      %ss user, %ss system\n' "$user" "$system"
done
cmp -s <(cd "$work/out1" && find . -type f -print0 | sort -z | xargs -0 sha1sum) \
       <(cd "$work/out2" && find . -type f -print0 | sort -z | xargs -0 sha1sum) ||
  echo "warning: -j 1 and -j 2 wrote different files" >&2

# The same -j 1 run writing the report page: its thumbnails are rendered from the
# converter's own tables, so the run should stay within 15% of the plain one.
rm -rf "$work/outpage"
measure "$tool" -j 1 -i . -o "$work/outpage" -r "models/*.mdl" -report-html "$work/page/run.html"
page_time=$seconds
pictures=$(find "$work/page/run_files" -type f | wc -l)

measure cp -r "$work/out1" "$work/copy"
copy=$seconds
printf 'input: %s bytes; copying the output: %.2fs (%ss user, %ss system)\n' "$input_bytes" "$copy" "$user" "$system"
printf -- '-j 2 speed-up over -j 1: %.2fx (goal 1.7x)\n' "$(echo "${time_of[1]} / ${time_of[2]}" | bc -l)"
printf -- '-j 1 / copy: %.2fx, -j 2 / copy: %.2fx (goal within 2x)\n' \
  "$(echo "${time_of[1]} / $copy" | bc -l)" "$(echo "${time_of[2]} / $copy" | bc -l)"
printf -- '-j 1 with -report-html: %.2fs, %s thumbnails, %+.1f%% over -j 1 (goal at most +15%%)\n' \
  "$page_time" "$pictures" "$(echo "($page_time / ${time_of[1]} - 1) * 100" | bc -l)"
