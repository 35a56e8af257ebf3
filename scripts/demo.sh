#!/usr/bin/env bash
# Installs what is missing, builds, and leaves the demo's clips and reports in out/demo. Arguments go to
# dewarp-demo: see scripts/demo.sh --help.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"

"$root/scripts/setup.sh"
(cd "$root" && cmake --preset desk && cmake --build --preset desk -j2 --target dewarp-demo)
# The caller's folder stays the current one, so that the caller's file names hold.
exec "$root/build/desk/desk/demo/dewarp-demo" --out "$root/out/demo" "$@"
