#!/usr/bin/env bash
# What kavri-host tells people and kavri-pc reads from it: the PC link is
# announced only once it really listens (a port in use gives the bind error
# and no success line), status and layout reach kavri-pc, the debug file is
# written while the host runs, and SIGTERM ends the host cleanly.
# Usage: host_messages.sh KAVRI_HOST KAVRI_PC
host_bin=$1 pc_bin=$2
source "$(dirname "$0")/common.sh"
rates_flag=1  # debug flag: the rates line once a second
echo 4.0.2.1 > "$work/sysversion"
port_prefix=0 start_host --debug-flags $rates_flag --debug-file "$work/debug.log" --sysversion "$work/sysversion"
check "host announces the port once listening, read as decimal despite the leading 0" test $? -eq 0
check "host announces both ports" grep -q "PC link on port $port, camera stream on port $camera_port" "$work/host.log"
check "program directory is created" test -d "$work/programs"

$run "$host_bin" --port "$port" --camera-port $((port + 1)) --programs "$work/programs" > "$work/second.log" 2>&1
code=$?
check "a second host on the same port fails" test "$code" -eq 1
check "and says why" grep -q "ERROR calling bind" "$work/second.log"
check "and claims no port" bash -c "! grep -q 'PC link on port' '$work/second.log'"

status=$($run "$pc_bin" --port "$port" status)
check "status names the controller" contains "$status" "Controller: *QV2013"
check "status reports the system version" contains "$status" "System version: *4.0.2.1"
layout=$($run "$pc_bin" --port "$port" --json layout)
check "layout as JSON" contains "$layout" '"runAreaSize": *4194304, *.*"transAreaSize": *9216}'

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
check "host says it stops" grep -q "received, stopping" "$work/host.log"
finish "$work/second.log"
