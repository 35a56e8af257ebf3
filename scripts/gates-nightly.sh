#!/usr/bin/env bash
# What takes too long for every change: each fuzzer for a time (60 seconds unless named), the long runs at ten times
# their length, and the mutants.
#   scripts/gates-nightly.sh [SECONDS]
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"
seconds="${1:-60}"
targets=(records requests mesh dumps)

cmake --preset fuzz >/dev/null
cmake --build --preset fuzz -j"$(nproc)" --target "${targets[@]/%/_fuzz}"
for target in "${targets[@]}"; do
  grown="build/fuzz/grown/$target"
  mkdir -p "$grown"
  "build/fuzz/tests/${target}_fuzz" -max_total_time="$seconds" -print_final_stats=1 -artifact_prefix="$grown." \
    "$grown" tests/*/*/corpus/"$target"
done

cmake --preset desk >/dev/null
cmake --build --preset desk -j"$(nproc)" --target stress_tests
DEWARP_SOAK=10 build/desk/tests/stress_tests
scripts/mutants.sh
