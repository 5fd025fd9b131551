#!/usr/bin/env bash
# A newcomer's session: kavri-host as the controller, kavri-pc builds the
# examples for it, downloads, starts and stops them.
# Usage: programs_cli.sh KAVRI_HOST KAVRI_PC EXAMPLES_DIR
host_bin=$1 pc_bin=$2 examples=$3
source "$(dirname "$0")/common.sh"
wait_for_log() { wait_for 60 grep -q -- "$1" "$work/host.log"; }

check "host starts" start_host --display-image "$work/display.pbm"
pc() { $run "$pc_bin" --port "$port" --timeout 60 "$@"; }

built=$(pc build "$examples/sine_table.c" -o "$work/sine.img" 2>&1)
check "build links at the run area" contains "$built" "Linked at: *0x"

pc download "$work/sine.img" --name sine > /dev/null
check "download keeps the flash file" cmp -s "$work/sine.img" "$work/programs/sine"
started=$(pc start)
check "start reports a started program" contains "$started" "Started: *yes"
# The host writes the picture from its own watcher, a moment after the program drew.
check "the display shows the table" wait_for 30 test -s "$work/display.pbm"

pc build "$examples/blink.c" -o "$work/blink.img" > /dev/null
ran=$(pc run "$work/blink.img" --ram)
check "run downloads and starts" contains "$ran" "Started: *yes"
stopped=$(pc stop)
check "stop answers" contains "$stopped" "Stopped: *yes"

stop_host
finish
