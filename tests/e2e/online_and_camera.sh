#!/usr/bin/env bash
# kavri-host and kavri-pc together: the PC link is announced only once it
# really listens (a port in use gives the bind error and no success line);
# status, layout and the live debug file; an online session read from a pipe;
# camera frames saved and, where kavri-pc was built with the browser view
# (KAVRI_PC_VIEW=1), served as a live stream; SIGTERM ends the host cleanly.
# Usage: online_and_camera.sh KAVRI_HOST KAVRI_PC
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

session=$(printf '%s\n' 'set 332[0]=512 332[7]=9' 'exchange' \
  'config 0x105 motor=1,2,3,4 input=10,11,12,13,14,15,16,17 counter=-1,20,30,40' \
  'set 332[8]=1' 'stop' | $run "$pc_bin" --port "$port" online robot)
check "session starts online mode" contains "$session" "^ok: online"
check "outputs come back as the stand-in's inputs" contains "$session" "^252: 512 0 0 0 0 0 0 9$"
check "configuration is accepted" contains "$session" "^ok: config"
check "a field that does not exist is an error, not the end" contains "$session" "^error: no output field '332\[8\]'"
check "session stops online mode" contains "$session" "^ok: stop"
check "host hears of the start" grep -q 'program "robot": online mode started' "$work/host.log"
check "host hears of the stop" grep -q 'online mode stopped' "$work/host.log"

json=$(printf 'set 834=1,2,3\nx\n' | $run "$pc_bin" --port "$port" --json online robot)
check "JSON inputs, one object a line" contains "$json" '^{"reply":"inputs","252":\[0,0,0,0,0,0,0,0\],'
check "end of input stops online mode" contains "$json" '^{"reply":"stop"}$'

# --rate: the session exchanges by itself and prints the inputs when they
# change. The stand-in returns the outputs at 332 as the inputs at 252, so
# the inputs change exactly once, when the script sets an output.
mkfifo "$work/commands"
timeout 120 $run "$pc_bin" --port "$port" online robot --rate 50 < "$work/commands" > "$work/rate.out" 2>&1 &
rate_pid=$!
trap '' PIPE  # a session that died must fail the checks, not end the script
exec 3> "$work/commands"
wait_for 60 grep -q "^252: 0 0 0 0 0 0 0 0$" "$work/rate.out"; first=$?
echo 'set 332[1]=77' >&3
wait_for 60 grep -q "^252: 0 77 0 0 0 0 0 0$" "$work/rate.out"; changed=$?
echo stop >&3
exec 3>&-
wait $rate_pid
check "--rate exchanges without being asked" test $first -eq 0
check "--rate shows the changed inputs" test $changed -eq 0
check "--rate prints the inputs only when they change" test "$(grep -c '^252:' "$work/rate.out")" -eq 2
check "--rate session stops online mode" grep -q "^ok: stop$" "$work/rate.out"

json=$($run "$pc_bin" --port "$port" --json camera 160 120 15 --camera-port "$camera_port" --count 3)
check "camera --json ends with the frame count" contains "$(tail -n 1 <<<"$json")" \
  '^{"reply":"camera","frames":3,"seconds":[0-9.e+-]*}$'
check "camera --json prints nothing but JSON objects" test "$(grep -cv '^{"reply":"\(progress\|camera\)",' <<<"$json")" -eq 0

saved=$($run "$pc_bin" --port "$port" camera 160 120 15 --camera-port "$camera_port" --save "$work/frames" \
  --count 5)
check "camera reports the frames it received" contains "$saved" "^ok: 5 frames in"
check "five frames are saved" test "$(ls "$work/frames" | wc -l)" -eq 5
check "saved frames are JPEG pictures" test "$(head -c 2 "$work/frames/frame-000005.jpg" | od -An -tx1 | tr -d ' ')" = ffd8
check "camera is stopped afterwards" grep -q "Camera Server Thread terminated" "$work/host.log"

hex() { printf '%s' "$1" | od -An -v -tx1 | tr -d ' \n'; }
# Parts of the multipart stream that hold a whole JPEG picture: a blank line,
# the start-of-image marker ... the end-of-image marker, the next boundary.
whole_pictures() {
  od -An -v -tx1 "$work/stream" | tr -d ' \n' |
    grep -oP "$(hex $'\r\n\r\n')ffd8[0-9a-f]*?ffd9$(hex $'\r\n--kavriframe')" | wc -l
}
stream_has_pictures() { [ "$(whole_pictures)" -ge 3 ]; }
view_settled() { grep -q "camera view at\|cannot serve" "$work/view.err" || ! kill -0 $view_pid 2>/dev/null; }
servers_ended() { grep -c "Camera Server Thread terminated" "$work/host.log"; }
servers_ended_are() { [ "$(servers_ended)" -eq "$1" ]; }
if [ "${KAVRI_PC_VIEW:-0}" = 1 ]; then
  ended_before=$(servers_ended)
  # A port another test took is given up for another one.
  for _ in $(seq 20); do
    view_port=$(random_port)
    $run "$pc_bin" --port "$port" camera 160 120 15 --camera-port "$camera_port" --serve "$view_port" \
      > "$work/view.out" 2> "$work/view.err" &
    view_pid=$!
    wait_for 60 view_settled
    grep -q "camera view at" "$work/view.err" && break
    kill $view_pid 2>/dev/null; wait $view_pid
  done
  check "view announces its address" grep -q "^camera view at http://127.0.0.1:$view_port/$" "$work/view.err"
  exec 4<>"/dev/tcp/127.0.0.1/$view_port"
  printf 'GET / HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n\r\n' >&4
  page=$(timeout 30 cat <&4)
  exec 4<&-
  check "view page shows the stream" contains "$page" '<img src="/stream"'
  exec 4<>"/dev/tcp/127.0.0.1/$view_port"
  printf 'GET /stream HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n' >&4
  timeout 60 cat <&4 > "$work/stream" &
  reader_pid=$!
  wait_for 60 stream_has_pictures
  kill $reader_pid 2>/dev/null; wait $reader_pid; exec 4<&-
  check "stream is multipart with its boundary" \
    grep -aq "Content-Type: multipart/x-mixed-replace; boundary=kavriframe" "$work/stream"
  check "stream carries whole JPEG pictures" stream_has_pictures
  kill -INT $view_pid
  wait $view_pid
  check "Ctrl-C ends the view cleanly" test $? -eq 0
  check "view reports the frames it received" grep -q "^ok: [1-9][0-9]* frames in" "$work/view.out"
  check "camera is stopped after the view" wait_for 30 servers_ended_are $((ended_before + 1))
fi

stop_host
check "host says it stops" grep -q "received, stopping" "$work/host.log"
finish "$work/second.log"
