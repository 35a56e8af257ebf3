#!/usr/bin/env bash
# Builds for coverage, runs the tests of the library and fails when fewer than 97 % of its lines or 90 % of its
# branches were taken. What was not is in the report that it names.
#   scripts/gates-coverage.sh
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
build="$root/build/coverage"

cmake --preset coverage >/dev/null
programs=(pure_tests fakegl_tests stress_tests sweep_tests)
cmake --build --preset coverage -j"$(nproc)" --target dewarp_node "${programs[@]}" records_fuzz >/dev/null
find "$build" -name '*.gcda' -delete
# Counts are written when a process ends regularly, which the sweep's children do not.
for program in "${programs[@]}"; do
  DEWARP_SWEEP_TOGETHER=1 "$build/tests/$program" >/dev/null
done
"$build/tests/records_fuzz" "$root/tests/node/fuzz/corpus/records" >/dev/null
gcovr --root "$root" --filter "$root/node/" --filter "$root/utils/" --exclude-throw-branches \
  --exclude-unreachable-branches --object-directory "$build" --txt "$build/coverage.txt" --print-summary \
  --fail-under-line 97 --fail-under-branch 90 "$build"
echo "coverage: by file in $build/coverage.txt"
