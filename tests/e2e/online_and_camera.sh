#!/usr/bin/env bash
# kavri-pc drives a kavri-host controller through an online session read
# from a pipe, and saves frames of the simulated camera.
# Usage: online_and_camera.sh KAVRI_HOST KAVRI_PC
host_bin=$1 pc_bin=$2
source "$(dirname "$0")/common.sh"

check "host starts" start_host

session=$(printf '%s\n' 'set 332[0]=512 332[7]=9' 'exchange' 'config 0x105 motor=1,2,3,4' \
  'set 332[8]=1' 'stop' | $run "$pc_bin" --port "$port" online robot)
check "session starts online mode" contains "$session" "^ok: online"
check "outputs come back as the stand-in's inputs" contains "$session" "^252: 512 0 0 0 0 0 0 9$"
check "configuration is accepted" contains "$session" "^ok: config"
check "a field that does not exist is an error, not the end" contains "$session" "^error: no output field '332\[8\]'"
check "session stops online mode" contains "$session" "^ok: stop"
check "host hears of the start" grep -q 'program "robot": online mode started' "$work/host.log"
check "host hears of the stop" grep -q 'online mode stopped' "$work/host.log"
check "controller stores the configuration id" grep -q "Received update config command, id=261" "$work/host.log"

json=$(printf 'set 834=1,2,3\nx\n' | $run "$pc_bin" --port "$port" --json online robot)
check "JSON inputs, one object a line" contains "$json" '^{"reply":"inputs","252":\[0,0,0,0,0,0,0,0\],'
check "end of input stops online mode" contains "$json" '^{"reply":"stop"}$'

saved=$($run "$pc_bin" --port "$port" camera 160 120 15 --camera-port "$camera_port" --save "$work/frames" \
  --count 5)
check "camera reports the frames it received" contains "$saved" "^ok: 5 frames in"
check "five frames are saved" test "$(ls "$work/frames" | wc -l)" -eq 5
check "saved frames are JPEG pictures" test "$(head -c 2 "$work/frames/frame-000005.jpg" | od -An -tx1 | tr -d ' ')" = ffd8
check "camera is stopped afterwards" grep -q "Camera Server Thread terminated" "$work/host.log"

kill -TERM $host_pid
wait $host_pid
check "host ends cleanly" test $? -eq 0
finish
