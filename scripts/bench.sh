#!/usr/bin/env bash
# Builds and runs all measurements, prints their table and writes docs/PERFORMANCE.md. Takes some minutes.
set -euo pipefail

export PYTHONDONTWRITEBYTECODE=1
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build/bench"
results="$build/results"
sysroot="${DEWARP_AARCH64_SYSROOT:-$root/build/aarch64-sysroot}"

"$root/scripts/setup.sh" --bench
"$root/scripts/setup-aarch64.sh" "$sysroot" >/dev/null
cd "$root"
cmake --preset bench >/dev/null
cmake --build --preset bench -j"$(nproc)" --target bench-instructions bench-node bench-desk >/dev/null
rm -rf "$results"
mkdir -p "$results"

echo "counting instructions" >&2
"$root/bench/count.sh" "$build" "$results/counts"

echo "counting AArch64 instructions" >&2
cmake --preset bench-aarch64 -DDEWARP_AARCH64_SYSROOT="$sysroot" >/dev/null
cmake --build --preset bench-aarch64 -j"$(nproc)" --target bench-instructions >/dev/null
"$root/bench/count-aarch64.sh" "$build-aarch64" "$sysroot" "$results/counts-aarch64"
python3 "$root/bench/aarch64_profile.py" "$results/counts-aarch64" \
  "$build-aarch64/lib/com.oxa.node.dewarp.so" >"$results/aarch64.json"

# Node and floor in turns, many times: what else the machine does then hits all of them.
echo "timing the node" >&2
"$build/bench/bench-node" --benchmark_min_time=0.05 --benchmark_repetitions=15 \
  --benchmark_enable_random_interleaving=true \
  --benchmark_out="$results/node.json" --benchmark_out_format=json >/dev/null 2>&1

# One thread means one core for everything; two is what the machine at hand has at least.
for threads in 1 2; do
  echo "timing real pictures, threads: $threads" >&2
  export LP_NUM_THREADS=$threads OMP_NUM_THREADS=$threads
  taskset -c "0-$((threads - 1))" "$build/bench/bench-desk" --benchmark_min_time=1 \
    --benchmark_out="$results/desk$threads.json" --benchmark_out_format=json >/dev/null 2>&1
done

python3 "$root/bench/report.py" "$results" "$root/docs/PERFORMANCE.md"
