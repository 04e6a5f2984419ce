# shellcheck shell=bash
# A throwaway one-node Slurm cluster in a temporary folder, for the cluster tests.
# Sourced, not run. sandbox_start FOLDER starts munged, slurmctld and slurmd as children
# of this shell, every file of theirs in FOLDER, and exports SLURM_CONF so that sbatch,
# squeue, scontrol and scancel talk to it; sandbox_stop ends the jobs and the daemons.
# Nothing outside FOLDER is read or written but the system's own Slurm plugins.

sandbox_pids=()
sandbox_dir=
sandbox_script=$(realpath "${BASH_SOURCE[0]}")
sandbox_reaper=
# The daemons are started in sessions of their own (setsid; from a shell without job
# control it runs them as they are, so $! is the daemon): a signal to the test's process
# group, from timeout(1) or a terminal's ^C, must reach the test alone, which then ends
# the jobs before the daemons rather than leaving job steps without a slurmd.

sandbox_log() { echo "cluster: $*"; }

# Prints the TCP ports in use on this machine, one a line (any state, IPv4 and IPv6).
sandbox_used_ports() {
  local hex
  awk 'FNR > 1 { split($2, local, ":"); print local[2] }' /proc/net/tcp /proc/net/tcp6 2>/dev/null |
    while read -r hex; do echo $((16#$hex)); done
}

# Prints two distinct free ports below the ephemeral range, so that no outgoing
# connection of the system takes them between this choice and the daemons' bind. A port
# taken all the same makes a daemon fail to start, and sandbox_start tries again.
sandbox_free_ports() {
  local low used port chosen=()
  read -r low _ </proc/sys/net/ipv4/ip_local_port_range
  used=" $(sandbox_used_ports | tr '\n' ' ') "
  while [ ${#chosen[@]} -lt 2 ]; do
    port=$((10000 + RANDOM % (low > 20000 ? low - 10000 : 10000)))
    [[ $used == *" $port "* || " ${chosen[*]} " == *" $port "* ]] && continue
    chosen+=("$port")
  done
  echo "${chosen[@]}"
}

# sandbox_wait SECONDS DESCRIPTION COMMAND...: runs COMMAND every tenth of a second until
# it succeeds; fails, saying what was awaited, when SECONDS pass first, or the shell's
# time $sandbox_deadline (in $SECONDS) when that is set and earlier.
sandbox_deadline=
# A daemon whose end makes the awaited thing impossible: waits then fail at once.
sandbox_watched=
sandbox_wait() {
  local limit=$1 what=$2
  shift 2
  local end=$((SECONDS + limit))
  if [ -n "$sandbox_deadline" ] && [ "$sandbox_deadline" -lt "$end" ]; then
    end=$sandbox_deadline
    limit=$((end > SECONDS ? end - SECONDS : 0))
  fi
  until "$@" >/dev/null 2>&1; do
    if [ -n "$sandbox_watched" ] && ! sandbox_alive "$sandbox_watched"; then
      sandbox_log "stopped waiting for $what: process $sandbox_watched has ended"
      return 1
    fi
    if [ "$SECONDS" -ge "$end" ]; then
      sandbox_log "gave up after ${limit}s waiting for $what"
      return 1
    fi
    sleep 0.1
  done
}

# A child that has ended but is not yet waited for is not alive.
sandbox_alive() {
  local state
  { read -r _ _ state _ <"/proc/$1/stat"; } 2>/dev/null && [ "$state" != Z ]
}

sandbox_write_config() {
  local dir=$1 controller_port=$2 node_port=$3 user cpus memory
  user=$(id -un)
  cpus=$(nproc)
  memory=$(awk '/^MemTotal:/ { print int($2 / 1024 / 2) }' /proc/meminfo)
  cat >"$dir/slurm.conf" <<EOF
ClusterName=zvsandbox
SlurmctldHost=localhost
SlurmctldPort=$controller_port
SlurmdPort=$node_port
SlurmUser=$user
AuthType=auth/munge
CredType=cred/munge
AuthInfo=socket=$dir/munge/socket
StateSaveLocation=$dir/state
SlurmdSpoolDir=$dir/spool
SlurmctldPidFile=$dir/slurmctld.pid
SlurmdPidFile=$dir/slurmd.pid
SlurmctldLogFile=$dir/slurmctld.log
SlurmdLogFile=$dir/slurmd.log
SlurmctldDebug=info
SlurmdDebug=info
ProctrackType=proctrack/linuxproc
TaskPlugin=task/none
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SwitchType=switch/none
MpiDefault=none
JobAcctGatherType=jobacct_gather/none
AccountingStorageType=accounting_storage/none
JobCompType=jobcomp/none
MailProg=/bin/true
ReturnToService=2
# Finished jobs stay visible to scontrol for the whole test (there is no accounting).
MinJobAge=600
KillWait=5
# Schedule every second rather than every minute, so that dependent jobs start at once.
SchedulerParameters=sched_interval=1
NodeName=localhost NodeAddr=127.0.0.1 CPUs=$cpus RealMemory=$memory State=UNKNOWN
PartitionName=sandbox Nodes=localhost Default=YES MaxTime=INFINITE State=UP
EOF
}

# sandbox_launch DIR: one attempt with fresh ports. Returns 2 when a port was taken.
sandbox_launch() {
  local dir=$1 ports
  read -r -a ports <<<"$(sandbox_free_ports)"
  sandbox_write_config "$dir" "${ports[0]}" "${ports[1]}"
  rm -rf "$dir/state" "$dir/spool" && mkdir -p "$dir/state" "$dir/spool"
  : >"$dir/slurmctld.log" && : >"$dir/slurmd.log"

  sandbox_daemon "$dir" slurmctld "slurmctld to answer" sandbox_controller_up slurmctld -D -i -f "$dir/slurm.conf" || return
  sandbox_daemon "$dir" slurmd "the node to be idle" sandbox_node_idle slurmd -D -N localhost -f "$dir/slurm.conf"
}

# sandbox_daemon DIR NAME WHAT CHECK COMMAND...: starts a daemon that logs to DIR/NAME.log
# and DIR/NAME.out, and waits up to 30 s until CHECK passes for it. Returns 2 when its
# port was taken (the caller retries on other ports), 1 when it did not come up.
sandbox_daemon() {
  local dir=$1 name=$2 what=$3 check=$4
  shift 4
  setsid "$@" >>"$dir/$name.out" 2>&1 &
  local pid=$!
  sandbox_pids+=("$pid")
  sandbox_watched=$pid
  if ! sandbox_wait 30 "$what" "$check" "$pid"; then
    grep -qi 'address already in use' "$dir/$name.log" "$dir/$name.out" && return 2
    return 1
  fi
}

sandbox_controller_up() { sandbox_alive "$1" && scontrol ping | grep -q 'is UP'; }
sandbox_node_idle() { sandbox_alive "$1" && [ "$(sinfo -h -n localhost -o %t)" = idle ]; }

sandbox_start() {
  sandbox_dir=$1
  local dir=$1
  mkdir -p "$dir/munge"
  # munged serves its socket only from folders everyone may pass through.
  chmod 711 "$dir" "$dir/munge"
  if command -v mungekey >/dev/null; then
    mungekey --create --keyfile="$dir/munge/key" >/dev/null
  else
    dd if=/dev/urandom of="$dir/munge/key" bs=1024 count=1 status=none
  fi
  chmod 600 "$dir/munge/key"
  setsid munged --foreground --key-file="$dir/munge/key" --socket="$dir/munge/socket" \
    --pid-file="$dir/munge/pid" --log-file="$dir/munge/log" --seed-file="$dir/munge/seed" \
    >"$dir/munge/out" 2>&1 &
  local munge=$!
  sandbox_pids+=("$munge")
  sandbox_watched=$munge
  sandbox_wait 20 "munged to answer" sandbox_munge_up "$munge" "$dir/munge/socket" || return 1

  export SLURM_CONF=$dir/slurm.conf
  local status
  for _ in 1 2 3; do
    status=0
    sandbox_launch "$dir" || status=$?
    sandbox_watched=
    if [ "$status" = 0 ]; then
      sandbox_watch
      return 0
    fi
    sandbox_stop_daemons slurm
    [ "$status" = 2 ] || break
    sandbox_log "a chosen port was taken; trying others"
  done
  sandbox_log "the cluster did not start; its logs:"
  tail -n 20 "$dir"/slurmctld.log "$dir"/slurmd.log "$dir"/*.out 2>/dev/null
  return 1
}

# Should this shell be killed before it stops the cluster, a watcher in a session of its
# own does it (the same steps, from this file) once the shell is gone.
sandbox_watch() {
  setsid bash -c 'tail --pid="$1" -f /dev/null
    . "$2"
    sandbox_dir=$3 SLURM_CONF=$4
    export SLURM_CONF
    shift 4
    sandbox_pids=("$@")
    sandbox_stop' sandbox-watcher "$$" "$sandbox_script" "$sandbox_dir" "$SLURM_CONF" "${sandbox_pids[@]}" \
    >"$sandbox_dir/watcher.out" 2>&1 &
  sandbox_reaper=$!
}

sandbox_munge_up() {
  sandbox_alive "$1" && munge -n -S "$2" | unmunge -S "$2"
}

# sandbox_stop_daemons [slurm]: ends the daemons this shell started (only slurmctld and
# slurmd with "slurm"), newest first, and waits for each.
sandbox_stop_daemons() {
  local keep=() pid i name
  for ((i = ${#sandbox_pids[@]} - 1; i >= 0; i--)); do
    pid=${sandbox_pids[i]}
    name=$(cat "/proc/$pid/comm" 2>/dev/null || true)
    if [ "${1:-}" = slurm ] && [ "$name" = munged ]; then
      keep=("$pid" "${keep[@]}")
      continue
    fi
    if sandbox_alive "$pid"; then
      kill -TERM "$pid" 2>/dev/null || true
      # A daemon that does not end on TERM within five seconds is killed.
      local end=$((SECONDS + 5))
      while sandbox_alive "$pid" && [ "$SECONDS" -lt "$end" ]; do sleep 0.1; done
      sandbox_alive "$pid" && kill -KILL "$pid" 2>/dev/null
    fi
    wait "$pid" 2>/dev/null || true
  done
  sandbox_pids=("${keep[@]}")
}

# Cancels every job of the sandbox and waits, bounded, for them to be gone from the node
# (so that no job step outlives slurmd), then stops the daemons.
sandbox_stop() {
  if [ -n "$sandbox_reaper" ]; then
    kill -- "-$sandbox_reaper" 2>/dev/null || true
    wait "$sandbox_reaper" 2>/dev/null || true
    sandbox_reaper=
  fi
  if [ -n "$sandbox_dir" ] && [ ${#sandbox_pids[@]} -gt 0 ] && [ -n "${SLURM_CONF:-}" ]; then
    sandbox_deadline=
    if scancel --quiet --user="$(id -un)" 2>/dev/null; then
      sandbox_wait 10 "the jobs to end" sandbox_no_jobs || true
    fi
  fi
  sandbox_stop_daemons
}

sandbox_no_jobs() { [ -z "$(squeue -h -o %i -t PENDING,RUNNING,COMPLETING,SUSPENDED)" ]; }
