#!/usr/bin/env bash
# Reruns every table generator into a scratch folder and compares its output
# with the committed source, so that a hand edit of a generated file or a
# generator change without its output shows up as a failing test.
#   scripts/check_generated.sh OUTPUT_DIR [PYTHON]
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
out=$1
python=${2:-python3}
mkdir -p "$out"
status=0
while read -r generator committed; do
  fresh="$out/$(basename "$committed")"
  "$python" "$root/scripts/$generator" --output "$fresh"
  if ! cmp -s "$fresh" "$root/$committed"; then
    echo "ERROR $committed differs from the output of scripts/$generator:"
    diff -u "$root/$committed" "$fresh" | head -20 || true
    status=1
  fi
done <<'LIST'
gen_float_tables.py src/float/FloatPowerTables.cpp
gen_float_coefficients.py src/float/FloatCoefficients48.cpp
gen_font8x8.py src/textgraphics/fnt8x8l.cpp
LIST
exit $status
