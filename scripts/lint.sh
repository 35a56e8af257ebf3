#!/usr/bin/env bash
# Checks the format of every source and runs clang-tidy's short list over what the clang preset configures, the
# measurements added.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
git ls-files -- '*.h' '*.cpp' | xargs clang-format --dry-run --Werror
scripts/setup.sh --bench
cmake --preset clang -B build/lint -DDEWARP_BENCH=ON >/dev/null
# What the preset does not build has no compile command to check it by.
sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/lint/compile_commands.json | sort -u |
  xargs -P 2 -n 4 clang-tidy --quiet -p build/lint 2>/dev/null
echo "lint: no finding"
