#!/usr/bin/env bash
# tools/cluster end to end on a throwaway one-node Slurm cluster (sandbox.sh):
#  1. a library (the real models of ../shared/corpus and one broken model) converted as a
#     4-task array plus its merge gives the single-machine run's report, byte for byte but
#     for the wall times, and the same output files; the shard holding the broken model
#     exits 1 and the merge still runs and says so.
#  2. a task cancelled while it converts (its source control hangs after the first file it
#     wrote) leaves whole files only; the merge runs and names the shard; submitted again
#     with -incremental, the run completes converting only that shard's models.
# Usage: cluster_test.sh [TOOL]; skips, with one line, where Slurm and munge cannot be had.
set -euo pipefail
export LC_ALL=C
root=$(cd "$(dirname "$0")/../.." && pwd)
tool=$(realpath "${1:-$root/build/zv_mdl_import}")
corpus=${ZV_CORPUS:-$root/../shared/corpus}
submit=$root/tools/cluster/submit.sh
shards=4

# The daemons live in sbin, which not every user's PATH has.
export PATH=$PATH:/usr/sbin:/sbin
have_packages() {
  local program
  for program in munged munge unmunge slurmctld slurmd sbatch squeue scontrol scancel sinfo; do
    command -v "$program" >/dev/null || return 1
  done
}
if ! have_packages && [ "$(id -u)" = 0 ] && command -v apt-get >/dev/null; then
  echo "cluster test: installing slurm-wlm and munge"
  { DEBIAN_FRONTEND=noninteractive apt-get install -y -qq slurm-wlm munge ||
    { apt-get update -qq && DEBIAN_FRONTEND=noninteractive apt-get install -y -qq slurm-wlm munge; }; } >/dev/null 2>&1 || true
fi
if ! have_packages; then
  echo "cluster test: SKIPPED: slurm-wlm and munge are not installed and cannot be installed here"
  exit 0
fi
[ -x "$tool" ] || { echo "cluster test: no tool at $tool (make build)"; exit 1; }
[ -d "$corpus/models" ] || { echo "cluster test: no corpus at $corpus (set ZV_CORPUS)"; exit 1; }
corpus=$(realpath "$corpus")

# shellcheck source=tests/cluster/sandbox.sh
. "$root/tests/cluster/sandbox.sh"
# Every wait of the test ends by then, leaving time to tear the cluster down within the
# three minutes make cluster-test grants.
sandbox_deadline=$((SECONDS + 140))

work=$(mktemp -d "${TMPDIR:-/tmp}/zv-cluster.XXXXXX")
passed=0
finish() {
  local status=$?
  trap - EXIT INT TERM
  if [ "$status" != 0 ]; then
    echo "cluster test: logs of the failed run:"
    for log in "$work"/run*/logs/*.out "$work"/*.log "$work"/sandbox/*.log; do
      [ -f "$log" ] && { echo "--- $log"; tail -n 15 "$log"; }
    done
  fi
  sandbox_stop
  # ZV_KEEP_WORK=1 keeps the folder of a failed run for a look.
  if [ "$status" != 0 ] && [ -n "${ZV_KEEP_WORK:-}" ]; then echo "cluster test: kept $work"; else rm -rf "$work"; fi
  echo "cluster: $passed passed, $([ "$status" = 0 ] && echo 0 || echo 1) failed"
  exit "$status"
}
trap finish EXIT
trap 'exit 143' INT TERM

check() {
  local what=$1
  shift
  if "$@"; then
    passed=$((passed + 1))
    echo "ok: $what"
  else
    echo "FAILED: $what"
    exit 1
  fi
}

# Reports compared byte for byte once the wall times, the only values that differ between
# two runs of the same input into the same output root, are set to 0.
without_times() { sed -E 's/("seconds": *)[0-9][0-9.eE+-]*/\10/g' "$1"; }
same_report() { cmp <(without_times "$1") <(without_times "$2"); }

# Same files, same bytes, nothing else in either folder (no temporary files either).
same_outputs() { diff -r "$1" "$2" >/dev/null; }

# job_states JOB: "K STATE EXIT" for every task of array JOB, or "0 STATE EXIT" for a job.
job_states() {
  scontrol -o show job "$1" | tr ' ' '\n' | awk -F= '
    $1 == "ArrayTaskId" { task = $2 }
    $1 == "JobState" { state = $2 }
    $1 == "ExitCode" { print (task == "" ? 0 : task), state, $2; task = "" }' | sort -n
}

jobs_ended() {
  local job
  for job; do
    job_states "$job" | awk '$2 ~ /^(PENDING|RUNNING|COMPLETING|CONFIGURING|SUSPENDED|REQUEUED|RESIZING)$/ { busy = 1 } END { exit busy }' || return 1
    [ -n "$(job_states "$job")" ] || return 1
  done
}

await_jobs() { sandbox_wait 90 "jobs $* to end" jobs_ended "$@"; }

# models_of REPORT [STATUS]: the inputs of a report's models (with that status), sorted.
models_of() {
  python3 - "$1" "${2:-}" <<'EOF'
import json, sys
report = json.load(open(sys.argv[1]))
for name in sorted(m["input"] for m in report["models"] if not sys.argv[2] or m["status"] == sys.argv[2]):
    print(name)
EOF
}

# The library: the corpus's folders linked in, and a model that cannot convert.
library=$work/library
mkdir -p "$library/broken"
ln -s "$corpus/models" "$library/models"
ln -s "$corpus/materials" "$library/materials"
broken=$library/broken/empty_header.mdl
head -c 256 /dev/zero >"$broken"

echo "== the single-machine run"
single_status=0
# Into the folder the array writes to later, then moved aside: the output root is one of
# the settings a report records.
(cd "$library" && "$tool" -j 2 -o "$work/out" -i . -r "*.mdl" -report "$work/single.json") \
  >"$work/single.log" 2>&1 || single_status=$?
mv "$work/out" "$work/single"
check "the single-machine run fails for the broken model only (exit 1, one failure)" \
  test "$single_status" = 1 -a "$(models_of "$work/single.json" failed)" = "$broken"
models=$(models_of "$work/single.json" | wc -l)
check "the single-machine run saw the corpus ($models models)" test "$models" -ge 10

echo "== submit.sh refuses what would make a wrong run, before anything is submitted"
# refused TOOL ARGUMENTS...: submit.sh exits 2 and makes no folder.
refused() {
  local with=$1 status=0
  shift
  ZV_MDL_IMPORT=$with ZV_RUN_DIR=$work/refused "$submit" "$@" >"$work/refused.log" 2>&1 || status=$?
  [ "$status" = 2 ] && [ ! -e "$work/refused" ] && [ ! -e "$work/never" ]
}
check "no shard count" refused "$tool" "$library" "$work/never"
check "a shard count of 0" refused "$tool" "$library" "$work/never" 0
check "an input folder that is not there" refused "$tool" "$work/nothing" "$work/never" 4
check "an array of its own" refused "$tool" "$library" "$work/never" 4 -p any --array=1-2
check "a tool that is not there" refused "$work/nothing" "$library" "$work/never" 4

echo "== starting a one-node cluster"
started=$SECONDS
mkdir -m 711 "$work/sandbox"
chmod 711 "$work"
sandbox_start "$work/sandbox"
echo "cluster up in $((SECONDS - started))s"

echo "== case 1: $shards shards and their merge"
started=$SECONDS
ids=$(ZV_MDL_IMPORT=$tool ZV_RUN_DIR=$work/run1 "$submit" "$library" "$work/out" "$shards" --time=5 -- -r "*.mdl")
read -r array merge <<<"$ids"
await_jobs "$array" "$merge"
echo "array and merge done in $((SECONDS - started))s"
run=$work/run1
broken_shard=$(grep -lF "\"$broken\"" "$run"/shards/*.json | xargs -n1 basename | cut -d. -f1)
expected=$(for ((k = 1; k <= shards; k++)); do
  if [ "$k" = "$broken_shard" ]; then echo "$k FAILED 1:0"; else echo "$k COMPLETED 0:0"; fi
done)
check "every task ran; the one with the broken model (shard $broken_shard) exited 1" \
  test "$(job_states "$array")" = "$expected"
check "the merge ran after it all the same and exited 1" test "$(job_states "$merge")" = "0 FAILED 1:0"
check "the merge names the shard whose models failed" \
  grep -q "^shard $broken_shard/$shards: models failed to convert" "$run/logs/merge.out"
check "the shards' models together are the run's, each once" \
  test "$(for f in "$run"/shards/*.json; do models_of "$f"; done | sort)" = "$(models_of "$work/single.json")"
check "at least two shards have models" \
  test "$(for f in "$run"/shards/*.json; do models_of "$f" | head -1; done | grep -c .)" -ge 2
check "the merged report is the single run's, times aside" same_report "$run/run.json" "$work/single.json"
check "the outputs are the single run's files, byte for byte" same_outputs "$work/out" "$work/single"

echo "== case 2: a task cancelled mid-run, then the run submitted again with -incremental"
# The shard with the most models that convert is held: its first model then has more
# than one file to write, so it is stopped inside a model.
victim=$(for ((k = 1; k <= shards; k++)); do
  echo "$(models_of "$run/shards/$k.json" converted | wc -l) $k"
done | sort -n | tail -1 | cut -d' ' -f2)
mkdir -p "$work/bin"
cp "$root/tests/cluster/p4" "$work/bin/p4"
run=$work/run2
started=$SECONDS
ids=$(PATH=$work/bin:$PATH ZV_TEST_HANG_TASK=$victim ZV_TEST_HANG_MARK=$work/hung ZV_MDL_IMPORT=$tool \
  ZV_RUN_DIR=$run "$submit" "$library" "$work/killed" "$shards" --time=5 -- -scm p4 -r "*.mdl")
read -r array merge <<<"$ids"
sandbox_wait 60 "task $victim to write its first file" test -s "$work/hung"
check "task $victim is running when it is cancelled" \
  test "$(job_states "$array" | awk -v k="$victim" '$1 == k { print $2 }')" = RUNNING
scancel "${array}_$victim"
await_jobs "$array" "$merge"
expected=$(for ((k = 1; k <= shards; k++)); do
  if [ "$k" = "$victim" ]; then echo "$k CANCELLED"; elif [ "$k" = "$broken_shard" ]; then echo "$k FAILED"; else echo "$k COMPLETED"; fi
done)
check "task $victim was cancelled, the others ran to their end" test "$(job_states "$array" | cut -d' ' -f1-2)" = "$expected"
check "the merge ran, exited 1 and named the unfinished shard" \
  test "$(job_states "$merge")" = "0 FAILED 1:0" -a -n "$(grep "^shard $victim/$shards did not finish" "$run/logs/merge.out")"
check "no run report without that shard" test ! -e "$run/run.json" -a ! -e "$run/shards/$victim.json"
written=$(cat "$work/hung")
written=${written#"$work/killed/"}
check "the file the cancelled task had written ($written) is whole" cmp "$work/killed/$written" "$work/single/$written"
check "of the cancelled shard's outputs, that one file alone was written" test \
  "$(python3 - "$work/single.json" "$work/run1/shards/$victim.json" "$work/killed" <<'EOF'
import json, os, sys
shard = {m["input"] for m in json.load(open(sys.argv[2]))["models"]}
outputs = [o["path"] for m in json.load(open(sys.argv[1]))["models"] if m["input"] in shard for o in m["outputs"]]
print(len(outputs) > 1, [p for p in outputs if os.path.exists(os.path.join(sys.argv[3], p))])
EOF
)" = "True ['$written']"
check "every file there is whole, none temporary" bash -c '
  cd "$1" && find . -type f | while read -r f; do cmp -s "$f" "$2/$f" || { echo "$f"; exit 1; }; done' - "$work/killed" "$work/single"

ids=$(PATH=$work/bin:$PATH ZV_MDL_IMPORT=$tool ZV_RUN_DIR=$run \
  "$submit" "$library" "$work/killed" "$shards" --time=5 -- -scm p4 -incremental -r "*.mdl")
read -r array merge <<<"$ids"
await_jobs "$array" "$merge"
echo "both submissions done in $((SECONDS - started))s"
check "every task of the re-run ran to its end, the broken model's shard exiting 1" \
  test "$(job_states "$array" | cut -d' ' -f1-2)" = "$(for ((k = 1; k <= shards; k++)); do
    if [ "$k" = "$broken_shard" ]; then echo "$k FAILED"; else echo "$k COMPLETED"; fi; done)"
check "the re-run's merge wrote the run's report and exited 1 for the broken model" \
  test -f "$run/run.json" -a "$(job_states "$merge")" = "0 FAILED 1:0"
check "the re-run converted the cancelled shard's models, nothing else" test \
  "$(models_of "$run/run.json" converted)" = "$(models_of "$work/run1/shards/$victim.json" | grep -vxF "$broken")"
check "the re-run tried the failed model again" test "$(models_of "$run/run.json" failed)" = "$broken"
check "the re-run skipped every other model" test \
  "$(models_of "$run/run.json" skipped)" = "$(models_of "$work/single.json" converted | grep -vxF -f <(models_of "$work/run1/shards/$victim.json"))"
check "the outputs are the single run's files, byte for byte" same_outputs "$work/killed" "$work/single"
