#!/usr/bin/env bash
# Checks the format of every source and runs clang-tidy's short list over what the lint preset configures. What it
# needs and does not find it names.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
scripts/setup.sh --ci
scripts/setup.sh --bench
for tool in clang-format clang-tidy; do
  command -v "$tool" >/dev/null || { echo "lint.sh: expected $tool, which Debian's package of that name has" >&2; exit 1; }
done
git ls-files -- '*.h' '*.cpp' | xargs clang-format --dry-run --Werror
cmake --preset lint >/dev/null
# What the preset does not build has no compile command to check it by.
sed -n 's/^ *"file": "\(.*\)",\{0,1\}$/\1/p' build/lint/compile_commands.json | sort -u |
  xargs -P "$(nproc)" -n 1 clang-tidy --quiet -p build/lint 2>build/lint/stderr || { cat build/lint/stderr >&2; exit 1; }
echo "lint: no finding"
