#!/usr/bin/env bash
# A newcomer's session: kavri-host as the controller, kavri-pc builds the
# examples for it, downloads, starts and stops them.
# Usage: programs_cli.sh KAVRI_HOST KAVRI_PC EXAMPLES_DIR
set -u
host_bin=$1 pc_bin=$2 examples=$3
run=${KAVRI_RUN_PREFIX:-}
work=$(mktemp -d)
trap 'kill -9 $host_pid 2>/dev/null; rm -rf "$work"' EXIT
failures=0 passes=0
check() {  # check NAME CONDITION...
  local name=$1; shift
  if "$@"; then echo "ok: $name"; passes=$((passes + 1)); else echo "FAILED: $name"; failures=$((failures + 1)); fi
}
contains() { grep -q -- "$2" <<<"$1"; }
wait_for_log() {  # wait_for_log TEXT: up to 60 s
  for _ in $(seq 600); do grep -q -- "$1" "$work/host.log" && return 0; sleep 0.1; done
  return 1
}

# The controller's bind fails if a parallel test took the port: try others.
for _ in $(seq 20); do
  # Below the kernel's ephemeral ports (32768 up): no client socket holds them.
  port=$((20000 + RANDOM % 12000))
  $run "$host_bin" --port "$port" --camera-port $((port + 1)) --programs "$work/programs" \
    --display-image "$work/display.pbm" > "$work/host.log" 2>&1 &
  host_pid=$!
  for _ in $(seq 600); do
    grep -q "PC link on port $port" "$work/host.log" 2>/dev/null && break
    kill -0 $host_pid 2>/dev/null || break
    sleep 0.1
  done
  grep -q "PC link on port $port" "$work/host.log" && break
done
pc() { $run "$pc_bin" --port "$port" --timeout 60 "$@"; }

table=$(pc --json libtable)
check "libtable names all 59 services" test "$(grep -o '"[A-Za-z0-9_]*":' <<<"$table" | wc -l)" -eq 59
check "libtable ends with TextGrph_Update" contains "$table" '"TextGrph_Update":[0-9]*}'

built=$(pc build "$examples/sine_table.c" -o "$work/sine.img" 2>&1)
check "build links at the run area" contains "$built" "Linked at: *0x"
check "build writes the image" test -s "$work/sine.img"
broken=$(printf 'int32_t KavriSlice(void) { return }\n' > "$work/broken.c"; pc build "$work/broken.c" -o "$work/b.img" 2>&1)
check "a compile error is shown and fails" contains "$broken" "error"

sent=$(pc download "$work/sine.img" --name sine)
check "download prints plain progress lines" contains "$sent" "Sent [0-9]* of [0-9]* bytes"
check "download keeps the flash file" cmp -s "$work/sine.img" "$work/programs/sine"
started=$(pc start)
check "start reports a started program" contains "$started" "Started: *yes"
check "the program ends with its exit code" wait_for_log "Program terminated with code 0"
check "the display shows the table" test -s "$work/display.pbm"

pc build "$examples/blink.c" -o "$work/blink.img" > /dev/null
ran=$(pc run "$work/blink.img" --ram)
check "run downloads and starts" contains "$ran" "Started: *yes"
check "the blinking program runs" wait_for_log "Program thread started"
stopped=$(pc stop)
check "stop answers" contains "$stopped" "Stopped: *yes"
check "the controller stops the program" wait_for_log "Received stop code command"
check "a RAM program writes no flash file" test ! -e "$work/programs/blink.img"

kill -TERM $host_pid
wait $host_pid
if [ $failures -ne 0 ]; then cat "$work/host.log"; fi
echo "$passes passed, $failures failed"
exit $((failures != 0))
