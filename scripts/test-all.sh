#!/usr/bin/env bash
# Builds and runs every test on both targets: native with AddressSanitizer
# and UndefinedBehaviorSanitizer, and armhf under qemu-arm; then the fuzz
# targets over their seed corpora and a short, fixed run of new inputs each.
set -uo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
cd "$root"
bash scripts/setup.sh || exit 1
jobs=$(nproc)
failed=()
for preset in native-asan armhf fuzz; do
  echo "=== $preset: configure and build"
  start=$SECONDS
  if ! { cmake --preset "$preset" > /dev/null && cmake --build --preset "$preset" -j "$jobs"; }; then
    failed+=("$preset (build)")
    continue
  fi
  echo "=== $preset: built in $((SECONDS - start)) s; testing"
  ctest --preset "$preset" -j "$jobs" --timeout 600 || failed+=("$preset (tests)")
  echo "=== $preset: done after $((SECONDS - start)) s"
done
if [ ${#failed[@]} -ne 0 ]; then
  echo "FAILED: ${failed[*]}"
  exit 1
fi
echo "All tests passed on native-asan and armhf; the fuzz targets ran clean."
