#!/usr/bin/env bash
# What the library file and its sources have to be, whatever the tests say: exports, imports, hardening and the
# shared records' layout in the builds of both compilers and for AArch64, Android.bp in step with CMake, no finding of
# cppcheck, every source accepted by the compiler of the device's platform, and the tests' coverage of the library.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

scripts/setup.sh --ci
scripts/setup-aarch64.sh
for preset in desk clang aarch64; do
  library="build/$preset/lib/com.oxa.node.dewarp.so"
  cmake --preset "$preset" >/dev/null
  cmake --build --preset "$preset" -j"$(nproc)" --target dewarp_node >/dev/null
  tests/node/file/library_file.sh "$library"
  tests/node/file/record_layout.py "$library" | diff tests/node/file/record_layout.txt - >&2
  echo "gates: $library is what a host may load, its records are laid out as stored"
done

scripts/compare-android-bp.py
echo "gates: Android.bp builds what CMake builds"

cppcheck --quiet --enable=warning,performance,portability --error-exitcode=1 --inline-suppr --std=c++17 \
  --language=c++ -D__x86_64__=1 -DPTHREAD_MUTEX_RECURSIVE=1 '-DElfW(type)=Elf64_##type' -I include -I . \
  node utils desk/host desk/gl
echo "gates: cppcheck finds nothing"

# For machines without an NDK, where scripts/gates-android.sh has nothing to build with: the headers of the arm64
# packages stand in for those of Android's C library.
headers=build/aarch64-sysroot/usr/include
for source in node/dewarp/*.cpp node/dewarp/gpu/*.cpp utils/*.cpp; do
  clang++ --target=aarch64-linux-android29 -fsyntax-only -std=c++17 -fno-exceptions -fno-rtti -Wall -Wextra \
    -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wformat=2 -Werror -nostdinc++ \
    -isystem "$headers/c++/12" -isystem "$headers/aarch64-linux-gnu/c++/12" \
    -isystem "$headers/aarch64-linux-gnu" -isystem "$headers" -isystem "$headers/android" -I include -I . "$source"
done
echo "gates: every source compiles for aarch64-linux-android29"

scripts/gates-coverage.sh
