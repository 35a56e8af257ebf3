#!/usr/bin/env bash
# Builds and runs all measurements, prints their table and writes docs/PERFORMANCE.md. Takes some minutes.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="$root/build/bench"
results="$build/results"

"$root/scripts/setup.sh" --bench
cmake -S "$root" -B "$build" -DCMAKE_CXX_COMPILER=g++ -DDEWARP_BENCH=ON -DDEWARP_TESTS=OFF >/dev/null
cmake --build "$build" -j2 --target bench-instructions bench-node bench-desk >/dev/null
rm -rf "$results"
mkdir -p "$results"

echo "counting instructions" >&2
"$root/bench/count.sh" "$build" "$results/counts"

echo "timing the node" >&2
"$build/bench/bench-node" --benchmark_min_time=0.5 \
  --benchmark_out="$results/node.json" --benchmark_out_format=json >/dev/null 2>&1

# Only where scripts/setup-aarch64.sh has been: the emulator logs every instruction, and the difference between
# two numbers of frames is what a hundred frames take.
sysroot="${DEWARP_AARCH64_SYSROOT:-$root/build/aarch64-sysroot}"
if [ -d "$sysroot/usr" ] && command -v qemu-aarch64 >/dev/null; then
  echo "counting AArch64 instructions" >&2
  cmake -S "$root" -B "$build-aarch64" -DCMAKE_TOOLCHAIN_FILE="$root/cmake/aarch64.cmake" \
    -DDEWARP_AARCH64_SYSROOT="$sysroot" -DDEWARP_DESK=OFF -DDEWARP_TESTS=OFF -DDEWARP_BENCH=ON >/dev/null
  cmake --build "$build-aarch64" -j2 --target bench-instructions >/dev/null
  counts=()
  for frames in 5 105; do
    counts+=("$(qemu-aarch64 -L "$sysroot" -singlestep -d exec,nochain \
      "$build-aarch64/bench/bench-instructions" --frames $frames 2>&1 >/dev/null | grep -c '^Trace')")
  done
  soft="$(nm "$build-aarch64/lib/com.oxa.node.dewarp.so" | grep -cE ' __(add|sub|mul|div)[sdt]f3$' || true)"
  echo "{\"instructions\": $(((counts[1] - counts[0]) / 100)), \"soft_float\": $soft}" >"$results/aarch64.json"
fi

# One thread means one core for everything; two is what the machine at hand has at least.
for threads in 1 2; do
  echo "timing real pictures, threads: $threads" >&2
  export LP_NUM_THREADS=$threads OMP_NUM_THREADS=$threads
  taskset -c "0-$((threads - 1))" "$build/bench/bench-desk" --benchmark_min_time=1 \
    --benchmark_out="$results/desk$threads.json" --benchmark_out_format=json >/dev/null 2>&1
  taskset -c "0-$((threads - 1))" python3 "$root/bench/filter_peer.py" "$build/bench/bench-desk" "$threads" \
    >"$results/filter$threads.json"
done

PYTHONDONTWRITEBYTECODE=1 python3 "$root/bench/report.py" "$results" "$root/docs/PERFORMANCE.md"
