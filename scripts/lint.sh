#!/usr/bin/env bash
# Checks the format of every source and runs clang-tidy's short list over what the clang preset has configured.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
git ls-files -- '*.h' '*.cpp' | xargs clang-format --dry-run --Werror
cmake --preset clang >/dev/null
# What the preset does not build has no compile command to check it by.
sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/clang/compile_commands.json | sort -u |
  xargs -P 2 -n 4 clang-tidy --quiet -p build/clang 2>/dev/null
echo "lint: no finding"
