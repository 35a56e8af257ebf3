#!/usr/bin/env bash
# Builds for AArch64 and runs the tests under the emulator, real frames through the machine's arm64 renderer among
# them. Arguments go to ctest.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

scripts/setup-aarch64.sh
cmake --preset aarch64
cmake --build --preset aarch64 -j"$(nproc)"
ctest --preset aarch64 -j"$(nproc)" "$@"
