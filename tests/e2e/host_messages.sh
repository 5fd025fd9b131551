#!/usr/bin/env bash
# What kavri-host tells people: the PC link is announced only once it really
# listens (a port in use gives the bind error and no success line), and the
# debug file is written while the host runs, not when it ends.
# Usage: host_messages.sh KAVRI_HOST
host_bin=$1
source "$(dirname "$0")/common.sh"
port_free() { ! (exec 3<>/dev/tcp/127.0.0.1/$1) 2>/dev/null; }
for _ in $(seq 50); do
  port=$(random_port)
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

stop_host
finish "$work/second.log"
