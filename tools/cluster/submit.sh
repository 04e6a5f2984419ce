#!/usr/bin/env bash
# Submits a conversion run to Slurm: a job array of SHARDS tasks, task K converting
# shard K of SHARDS, and a merge job that starts when every task has ended and joins the
# shards' reports into the run's report.
#
#   submit.sh INPUT OUTPUT SHARDS [SBATCH OPTIONS...] [-- TOOL ARGUMENTS...]
#
# INPUT is the game directory and input root (the tool runs there, with -i .), OUTPUT the
# output root. The sbatch options (partition, time per shard, CPUs per shard, account...)
# apply to every task and to the merge; a task converts -j <its CPUs> models at once.
# The tool arguments are the run's options and file specifications, the same for every
# shard (default: -r "*.mdl"); add -incremental to re-run only what is not up to date.
# Environment: ZV_MDL_IMPORT, the tool (default: zv_mdl_import on the PATH, else this
# checkout's build); ZV_RUN_DIR, the run folder (default OUTPUT.run) with shards/K.json,
# the task logs in logs/, and run.json. Every path must be on a file system all nodes
# share. Prints the array's and the merge's job ids.
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)

usage() {
  echo "usage: $0 INPUT OUTPUT SHARDS [SBATCH OPTIONS...] [-- TOOL ARGUMENTS...]" >&2
  exit 2
}
[ $# -ge 3 ] || usage
input=$1 output=$2 shards=$3
shift 3
[[ $shards =~ ^[1-9][0-9]*$ ]] || { echo "$0: SHARDS must be a positive number, not '$shards'" >&2; exit 2; }
[ -d "$input" ] || { echo "$0: no folder $input" >&2; exit 2; }

sbatch_options=() tool_arguments=()
while [ $# -gt 0 ]; do
  if [ "$1" = -- ]; then
    shift
    tool_arguments=("$@")
    break
  fi
  case $1 in
    -a | --array | --array=*)
      echo "$0: the array is always 1-$shards, one task a shard; to re-run failed or killed shards," >&2
      echo "submit the same command again with -incremental after --" >&2
      exit 2 ;;
  esac
  sbatch_options+=("$1")
  shift
done
[ ${#tool_arguments[@]} -gt 0 ] || tool_arguments=(-r "*.mdl")

tool=${ZV_MDL_IMPORT:-}
if [ -z "$tool" ]; then
  tool=$(command -v zv_mdl_import || true)
  [ -n "$tool" ] || tool=$here/../../build/zv_mdl_import
fi
[ -x "$tool" ] || { echo "$0: no tool at $tool (set ZV_MDL_IMPORT)" >&2; exit 2; }
tool=$(cd "$(dirname "$tool")" && pwd)/$(basename "$tool")

input=$(cd "$input" && pwd)
mkdir -p "$output"
output=$(cd "$output" && pwd)
run=${ZV_RUN_DIR:-$output.run}
mkdir -p "$run/shards" "$run/logs"
run=$(cd "$run" && pwd)

# The exit files tell the merge which shards of this submission finished; the run's
# report is written again only when they all did. The shards' reports stay: an
# incremental run reads them.
rm -f "$run"/shards/*.exit "$run/run.json"

array=$(sbatch --parsable --array="1-$shards" --output="$run/logs/%a.out" "${sbatch_options[@]}" \
  "$here/convert-array.sbatch" "$tool" "$input" "$output" "$run" "$shards" "${tool_arguments[@]}")
array=${array%%;*}
merge=$(sbatch --parsable --dependency="afterany:$array" --kill-on-invalid-dep=yes \
  --output="$run/logs/merge.out" "${sbatch_options[@]}" --cpus-per-task=1 \
  "$here/merge.sbatch" "$tool" "$run" "$shards")
merge=${merge%%;*}
echo "Submitted $shards shards as job array $array and their merge as job $merge;" >&2
echo "the run's report will be $run/run.json, the logs are in $run/logs." >&2
echo "$array $merge"
