#!/usr/bin/env bash
# Builds the controller (armhf) and runs kavri-host under qemu-arm: a
# simulated controller that a PC can talk to. Extra arguments go to kavri-host
# (see --help); by default it listens on 65000 (PC link) and 65001 (camera).
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh
cmake --preset armhf > /dev/null
cmake --build --preset armhf --target kavri-host kavri-pc
echo "Starting the simulated controller; stop it with Ctrl-C."
# SDL2's own libraries in the sysroot carry search paths of their own; only
# the loader's path reaches them there.
lib="$root/.deps/armhf-sysroot/usr/lib/arm-linux-gnueabihf"
exec qemu-arm -L /usr/arm-linux-gnueabihf -E LD_LIBRARY_PATH="$lib:$lib/pulseaudio:$root/.deps/armhf-sysroot/lib/arm-linux-gnueabihf" \
  build/armhf/apps/kavri-host/kavri-host "$@"
