#!/usr/bin/env bash
# Converts a folder of legacy models several times and reports models per second and the
# peak memory of one run. Usage: bench/corpus_bench.sh [TOOL] [MODELS_ROOT] [RUNS]
# Defaults: build-bench/zv_mdl_import (else build/), ../shared/corpus, 5 runs.
set -euo pipefail
cd "$(dirname "$0")/.."
tool=${1:-}
if [ -z "$tool" ]; then
  tool=build-bench/zv_mdl_import
  [ -x "$tool" ] || tool=build/zv_mdl_import
fi
tool=$(cd "$(dirname "$tool")" && pwd)/$(basename "$tool")
root=$(cd "${2:-../shared/corpus}" && pwd)
runs=${3:-5}
out=$(mktemp -d)
trap 'rm -rf "$out"' EXIT

count=$(find "$root" -name '*.mdl' | wc -l)
best=""
for ((i = 0; i < runs; i++)); do
  rm -rf "$out/o"
  start=$(date +%s.%N)
  "$tool" -i "$root" -o "$out/o" -r "$root/*.mdl" > /dev/null 2>&1
  end=$(date +%s.%N)
  t=$(echo "$end - $start" | bc)
  if [ -z "$best" ] || [ "$(echo "$t < $best" | bc)" = 1 ]; then best=$t; fi
done
rm -rf "$out/o"
/usr/bin/time -f '%M' -o "$out/rss" "$tool" -i "$root" -o "$out/o" -r "$root/*.mdl" > /dev/null 2>&1
rss=$(tail -1 "$out/rss")
bytes=$(find "$root" -name '*.mdl' -o -name '*.qvd' -o -name '*.vtx' -o -name '*.phy' | xargs cat | wc -c)
echo "models: $count ($bytes input bytes)"
echo "best of $runs runs: ${best}s, $(echo "scale=1; $count / $best" | bc) models/s, $(echo "scale=1; $bytes / $best / 1048576" | bc) MiB/s"
echo "peak memory of one run: ${rss} KiB"
