#!/usr/bin/env bash
# Builds everything and runs the demo; arguments go to dewarp-demo (see --help).
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
out="$root/out/demo"

"$root/scripts/setup.sh"
cd "$root"
cmake --preset desk
cmake --build --preset desk -j2
"$(find "$root/build/desk" -name dewarp-demo -type f -perm -u+x | head -n 1)" --out "$out" "$@"
