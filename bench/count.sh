#!/usr/bin/env bash
# Has callgrind count the instructions and system calls of steady frames: one dump per scenario.
#   bench/count.sh BUILD FOLDER [--grid-only]
set -euo pipefail

build="$1"
folder="$2"
shift 2
rm -rf "$folder"
mkdir -p "$folder"
valgrind --tool=callgrind --callgrind-out-file="$folder/callgrind.out" \
  --collect-atstart=no --collect-systime=yes --compress-strings=no --compress-pos=no \
  --toggle-collect='*DewarpNodeProcRequest*' \
  --toggle-collect='bench::FloorFrame*' --toggle-collect='bench::DumpCallsFrame*' \
  "$build/bench/bench-instructions" "$@" >"$folder/callgrind.log" 2>&1 ||
  { cat "$folder/callgrind.log" >&2; exit 1; }
