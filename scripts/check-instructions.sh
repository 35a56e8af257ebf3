#!/usr/bin/env bash
# Fails when a steady frame of the node takes over 10 % more or fewer instructions than the stored figure.
#   scripts/check-instructions.sh            checks
#   scripts/check-instructions.sh --store    takes the count of this build as the new figure
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
stored="$root/bench/steady_frame_instructions.txt"
build="$root/build/bench"
counts="$build/check-instructions"
if [ $# -gt 0 ] && [ "$1" != "--store" ]; then
  echo "check-instructions.sh: expected no argument or --store, got \"$1\"" >&2
  exit 2
fi

"$root/scripts/setup.sh" --bench
cd "$root"
cmake --preset bench >/dev/null
cmake --build --preset bench -j"$(nproc)" --target bench-instructions >/dev/null
"$root/bench/count.sh" "$build" "$counts" --grid-only
# The dump named after the scenario; its sum is that of a hundred frames.
dump="$(grep -l '^desc: Trigger: Client Request: grid$' "$counts"/callgrind.out*)"
counted="$(awk '/^summary:/ { print int($2 / 100) }' "$dump")"

if [ "${1:-}" = "--store" ]; then
  echo "$counted" >"$stored"
  echo "stored: $counted instructions a frame"
  exit 0
fi
expected="$(cat "$stored")"
echo "steady frame: $counted instructions, stored: $expected"
if [ $((counted * 10)) -gt $((expected * 11)) ] || [ $((counted * 10)) -lt $((expected * 9)) ]; then
  echo "check-instructions.sh: expected $expected instructions a frame within 10 %, got $counted" >&2
  exit 1
fi
