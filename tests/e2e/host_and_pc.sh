#!/usr/bin/env bash
# kavri-host starts, answers kavri-pc, refuses nothing it should serve and
# ends cleanly on SIGTERM. Usage: host_and_pc.sh KAVRI_HOST KAVRI_PC
host_bin=$1 pc_bin=$2
source "$(dirname "$0")/common.sh"

echo 4.0.2.1 > "$work/sysversion"
start_host --sysversion "$work/sysversion"
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

stop_host
check "host says it stops" grep -q "received, stopping" "$work/host.log"
finish
