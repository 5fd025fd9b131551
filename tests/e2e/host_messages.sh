#!/usr/bin/env bash
# What kavri-host tells people: the PC link is announced only once it really
# listens (a port in use gives the bind error and no success line), and the
# debug file is written while the host runs, not when it ends.
# Usage: host_messages.sh KAVRI_HOST
set -u
host_bin=$1
run=${KAVRI_RUN_PREFIX:-}
work=$(mktemp -d)
host_pid=
trap 'kill -9 $host_pid 2>/dev/null; rm -rf "$work"' EXIT
failures=0 passes=0
check() {  # check NAME CONDITION...
  local name=$1; shift
  if "$@"; then echo "ok: $name"; passes=$((passes + 1)); else echo "FAILED: $name"; failures=$((failures + 1)); fi
}
wait_for() {  # wait_for SECONDS CONDITION...
  local deadline=$((SECONDS + $1)); shift
  until "$@"; do [ $SECONDS -ge $deadline ] && return 1; sleep 0.1; done
}
port_free() { ! (exec 3<>/dev/tcp/127.0.0.1/$1) 2>/dev/null; }
for _ in $(seq 50); do
  # Below the kernel's ephemeral ports (32768 up): no client socket holds them.
  port=$((20000 + RANDOM % 12000))
  port_free $port && port_free $((port + 1)) && break
done

$run "$host_bin" --port "0$port" --camera-port $((port + 1)) --programs "$work/programs" \
  --debug-flags 1 --debug-file "$work/debug.log" > "$work/host.log" 2>&1 &
host_pid=$!
check "host announces the port once listening, read as decimal despite the leading 0" \
  wait_for 120 grep -q "PC link on port $port," "$work/host.log"

$run "$host_bin" --port "$port" --camera-port $((port + 1)) --programs "$work/programs" > "$work/second.log" 2>&1
code=$?
check "a second host on the same port fails" test "$code" -eq 1
check "and says why" grep -q "ERROR calling bind" "$work/second.log"
check "and claims no port" bash -c "! grep -q 'PC link on port' '$work/second.log'"

# Two status queries more than a second apart: the server writes the rates
# line to the debug file between them.
status_twice() {
  exec 3<>/dev/tcp/127.0.0.1/$port || return 1
  printf '\x9a\x21\x21\xdc' >&3 && head -c 24 <&3 >/dev/null
  sleep 1.5
  printf '\x9a\x21\x21\xdc' >&3 && head -c 24 <&3 >/dev/null
  exec 3>&-
}
status_twice
check "rates line is in the debug file while the host runs" wait_for 30 grep -q "IOs/s" "$work/debug.log"

kill -TERM $host_pid
wait $host_pid
if [ $failures -ne 0 ]; then cat "$work/host.log" "$work/second.log"; fi
echo "$passes passed, $failures failed"
exit $((failures != 0))
