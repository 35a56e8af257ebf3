#!/usr/bin/env bash
# Installs what is missing, builds a preset (desk unless named) and runs its tests. Further arguments go to ctest.
#   scripts/test.sh
#   scripts/test.sh asan -R Mesh
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
preset="${1:-desk}"
[ $# -gt 0 ] && shift

"$root/scripts/setup.sh"
cd "$root"
cmake --preset "$preset"
cmake --build --preset "$preset" -j"$(nproc)"
ctest --preset "$preset" -j"$(nproc)" "$@"
