#!/usr/bin/env bash
# What kavri-host tells people: the PC link is announced only once it really
# listens (a port in use gives the bind error and no success line), and the
# debug file is written while the host runs, not when it ends.
# Usage: host_messages.sh KAVRI_HOST
host_bin=$1
source "$(dirname "$0")/common.sh"
rates_flag=1  # debug flag: the rates line once a second
port_prefix=0 start_host --debug-flags $rates_flag --debug-file "$work/debug.log"
check "host announces the port once listening, read as decimal despite the leading 0" test $? -eq 0

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
