#!/usr/bin/env bash
# Has the emulator log every instruction of steady frames of an AArch64 build: how often each address ran, for two
# numbers of frames, and where the library was loaded.
#   bench/count-aarch64.sh BUILD SYSROOT FOLDER
set -euo pipefail

build="$1"
sysroot="$2"
folder="$3"
rm -rf "$folder"
mkdir -p "$folder"
for frames in 5 105; do
  qemu-aarch64 -L "$sysroot" -E LD_DEBUG=files -E LD_DEBUG_OUTPUT="$folder/loaded$frames" -singlestep \
    -d exec,nochain "$build/bench/bench-instructions" --frames $frames 2>&1 >/dev/null |
    awk -F/ '/^Trace/ { ++count[$2] } END { for (address in count) print address, count[address] }' \
      >"$folder/addresses$frames"
done
