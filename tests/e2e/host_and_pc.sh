#!/usr/bin/env bash
# kavri-host starts, answers kavri-pc, refuses nothing it should serve and
# ends cleanly on SIGTERM. Usage: host_and_pc.sh KAVRI_HOST KAVRI_PC
set -u
host_bin=$1 pc_bin=$2
run=${KAVRI_RUN_PREFIX:-}
work=$(mktemp -d)
trap 'kill -9 $host_pid 2>/dev/null; rm -rf "$work"' EXIT
failures=0 passes=0
check() {  # check NAME CONDITION...
  local name=$1; shift
  if "$@"; then echo "ok: $name"; passes=$((passes + 1)); else echo "FAILED: $name"; failures=$((failures + 1)); fi
}
contains() { grep -q -- "$2" <<<"$1"; }

free_port() {
  local port
  for _ in $(seq 50); do
    # Below the kernel's ephemeral ports (32768 up): no client socket holds them.
    port=$((20000 + RANDOM % 12000))
    (exec 3<>/dev/tcp/127.0.0.1/$port) 2>/dev/null || { echo $port; return; }
  done
}
# Whether process $2 holds the socket listening on port $1: another test's
# server may hold the same port for a moment.
listens_on() {
  local inode
  inode=$(awk -v p="$(printf ':%04X' "$1")" '$4 == "0A" && substr($2, length($2) - 4) == p { print $10 }' /proc/net/tcp)
  [ -n "$inode" ] && ls -l "/proc/$2/fd" 2>/dev/null | grep -q "socket:\[$inode\]"
}
# A free port can be taken by a parallel test before the host binds it; the
# host then ends with its bind error and is started again on other ports.
start_host() {
  for _ in $(seq 20); do
    port=$(free_port)
    camera_port=$(free_port)
    [ "$port" != "$camera_port" ] || continue
    $run "$host_bin" --port "$port" --camera-port "$camera_port" --programs "$work/programs" \
      --sysversion "$work/sysversion" > "$work/host.log" 2>&1 &
    host_pid=$!
    for _ in $(seq 600); do
      listens_on "$port" $host_pid && return 0
      kill -0 $host_pid 2>/dev/null || break
      sleep 0.1
    done
    wait $host_pid 2>/dev/null
    grep -q "ERROR calling bind" "$work/host.log" || return 1
  done
  return 1
}
echo 4.0.2.1 > "$work/sysversion"
start_host
for _ in $(seq 600); do
  grep -q "PC link on port $port" "$work/host.log" 2>/dev/null && break
  sleep 0.1
done
check "host announces its ports" grep -q "PC link on port $port, camera stream on port $camera_port" "$work/host.log"
check "program directory is created" test -d "$work/programs"

status=$($run "$pc_bin" --port "$port" status)
check "status names the controller" contains "$status" "Controller: *QV2013"
check "status reports the system version" contains "$status" "System version: *4.0.2.1"
layout=$($run "$pc_bin" --port "$port" --json layout)
check "layout as JSON" contains "$layout" '"runAreaSize": *4194304, *.*"transAreaSize": *9216}'

refused=$($run "$pc_bin" --port "$camera_port" --timeout 2 status 2>&1); code=$?
check "no controller gives a clear error" contains "$refused" "kavri-pc: cannot connect to the controller"
check "no controller gives a non-zero exit" test "$code" -ne 0
usage=$($run "$pc_bin" --port "$port" frobnicate 2>&1); code=$?
check "unknown command is named" contains "$usage" "unknown command 'frobnicate'"
check "unknown command exits 2" test "$code" -eq 2

kill -TERM $host_pid
wait $host_pid; code=$?
check "host ends cleanly on SIGTERM" test "$code" -eq 0
check "host says it stops" grep -q "received, stopping" "$work/host.log"
if [ $failures -ne 0 ]; then cat "$work/host.log"; fi
echo "$passes passed, $failures failed"
exit $((failures != 0))
