#!/usr/bin/env bash
# What the library file and its sources have to be, whatever the tests say: the file's exports, imports and
# hardening in every build that is there, no finding of cppcheck, every source accepted by the compiler of the
# device's platform, and the tests' coverage of the library.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

for build in desk clang aarch64; do
  library="build/$build/lib/com.oxa.node.dewarp.so"
  if [ -f "$library" ]; then
    tests/library_file.sh "$library"
    echo "gates: $library is what a host may load"
  fi
done

cppcheck --quiet --enable=warning,performance,portability --error-exitcode=1 --inline-suppr --std=c++17 \
  --language=c++ -D__x86_64__=1 -DPTHREAD_MUTEX_RECURSIVE=1 -I include -I . node utils desk/host desk/gl
echo "gates: cppcheck finds nothing"

# The platform's own headers are not here; those of the arm64 packages stand in for the C library.
sysroot="${DEWARP_AARCH64_SYSROOT:-build/aarch64-sysroot}"
if [ -d "$sysroot" ]; then
  for source in node/dewarp/*.cpp node/dewarp/gpu/*.cpp utils/*.cpp; do
    clang++ --target=aarch64-linux-android29 -fsyntax-only -std=c++17 -fno-exceptions -fno-rtti -Wall -Wextra \
      -Wconversion -Wsign-conversion -Wshadow -Wold-style-cast -Wformat=2 -Werror -nostdinc++ \
      -isystem "$sysroot/usr/include/c++/12" -isystem "$sysroot/usr/include/aarch64-linux-gnu/c++/12" \
      -isystem "$sysroot/usr/include/aarch64-linux-gnu" -isystem "$sysroot/usr/include" \
      -isystem "$sysroot/usr/include/android" -I include -I . "$source"
  done
  echo "gates: every source compiles for aarch64-linux-android29"
fi

scripts/gates-coverage.sh
