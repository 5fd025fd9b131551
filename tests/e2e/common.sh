# What every end-to-end script shares: a scratch folder, the host's clean-up,
# counted checks and a controller started on ports no other test holds.
# Sourced after host_bin is set; reports with finish.
set -u
run=${KAVRI_RUN_PREFIX:-}
work=$(mktemp -d)
host_pid=
trap 'kill -9 $host_pid 2>/dev/null; rm -rf "$work"' EXIT
failures=0 passes=0
check() {  # check NAME CONDITION...
  local name=$1; shift
  if "$@"; then echo "ok: $name"; passes=$((passes + 1)); else echo "FAILED: $name"; failures=$((failures + 1)); fi
}
contains() { grep -q -- "$2" <<<"$1"; }
wait_for() {  # wait_for SECONDS CONDITION...
  local deadline=$((SECONDS + $1)); shift
  until "$@"; do [ $SECONDS -ge $deadline ] && return 1; sleep 0.1; done
}
# Below the kernel's ephemeral ports (32768 up): no client socket holds them.
random_port() { echo $((20000 + RANDOM % 12000)); }

# start_host [HOST OPTIONS...]: kavri-host on port and camera_port = port + 1,
# logging to $work/host.log; port_prefix, if set, is written before the port.
# A parallel test may take a port first; the host then ends with its bind
# error and is started again on other ports.
start_host() {
  for _ in $(seq 20); do
    port=$(random_port); camera_port=$((port + 1))
    $run "$host_bin" --port "${port_prefix:-}$port" --camera-port "$camera_port" --programs "$work/programs" "$@" \
      > "$work/host.log" 2>&1 &
    host_pid=$!
    for _ in $(seq 600); do
      grep -q "PC link on port $port" "$work/host.log" 2>/dev/null && return 0
      kill -0 $host_pid 2>/dev/null || break
      sleep 0.1
    done
    kill -9 $host_pid 2>/dev/null; wait $host_pid 2>/dev/null
  done
  return 1
}

# stop_host: SIGTERM, and the host must end cleanly.
stop_host() { kill -TERM $host_pid; wait $host_pid; check "host ends cleanly on SIGTERM" test $? -eq 0; }

# finish [MORE LOGS...]: the closing count, with the logs when a check failed.
finish() {
  [ $failures -ne 0 ] && cat "$work/host.log" "$@"
  echo "$passes passed, $failures failed"
  exit $((failures != 0))
}
