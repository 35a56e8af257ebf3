#!/usr/bin/env bash
# Builds the library with an NDK for both processors, with both of the NDK's toolchain files and two generators, looks
# at each file, and runs the tests in processes of Android's own C library on this machine, the dynamic linker's cases
# among them. The environment says where things lie:
#   ANDROID_NDK_HOME       the NDK
#   ANDROID_PLATFORM_TREE  the platform's lib64 and include for arm64-v8a; those for x86-64 in a folder x86_64 beside
#   ANDROID_BIONIC         bin/linker64 and lib64 of an Android for x86-64; the folder "system" beside the NDK unless
#                          named. Without it nothing is run.
# Where neither of the first two is set, a kit at ../shared/android is taken; without one there is nothing to do.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

say() { echo "gates-android: $*"; }
if [ -z "${ANDROID_NDK_HOME:-}${ANDROID_PLATFORM_TREE:-}" ]; then
  if [ ! -x ../shared/android/setup.sh ]; then
    say "skipped: ANDROID_NDK_HOME and ANDROID_PLATFORM_TREE are not set, and no kit lies at ../shared/android"
    exit 0
  fi
  eval "$(../shared/android/setup.sh build/android-kit | grep '^export ANDROID_')"
fi
scripts/setup.sh --ci
tree="${ANDROID_PLATFORM_TREE:-}"
bionic="${ANDROID_BIONIC:-${ANDROID_NDK_HOME:-}/../system}"

# Runs a command that has much to say, which is shown when it fails.
quietly() {
  "$@" >build/gates-android.log 2>&1 || { cat build/gates-android.log >&2; exit 1; }
}
# Makes a build folder of a preset anew; what was compiled stays.
configure() {  # NAME PRESET OPTION...
  quietly cmake --fresh --preset "$2" -B "build/$1" "${@:3}"
}
# The library is what a host may load, and the NDK's own flags are in force beside the project's.
look() {  # NAME [HOST_LIBRARY]
  local build="build/$1" library="build/$1/lib/com.oxa.node.dewarp.so"
  tests/node/file/library_file.sh "$library" "${@:2}"
  tests/node/file/record_layout.py "$library" | diff tests/node/file/record_layout.txt - >&2
  if grep -qaF -e "$ANDROID_NDK_HOME" -e "$tree" "$library"; then
    echo "gates-android.sh: expected nothing in $library to name $ANDROID_NDK_HOME or $tree" >&2
    exit 1
  fi
  if ! awk '/"command":/ { lines++; if (!/ -DANDROID /) lacking = 1 } END { exit lacking || !lines }' \
    "$build/compile_commands.json" ||
    ! grep -qse '--build-id=sha1 .*--fatal-warnings' "$build/build.ninja" \
      "$build/node/dewarp/CMakeFiles/dewarp_node.dir/link.txt"; then
    echo "gates-android.sh: expected the NDK's own flags on the command lines of $build" >&2
    exit 1
  fi
  say "$library is what a host may load, its records are laid out as stored"
}

mkdir -p build
for preset in android android-x86_64; do
  if [ "$preset" = android-x86_64 ]; then
    export ANDROID_PLATFORM_TREE="${tree%/*}/x86_64"
    if [ ! -d "$ANDROID_PLATFORM_TREE" ]; then
      say "skipped: $preset and all tests, no platform tree at $ANDROID_PLATFORM_TREE"
      exit 0
    fi
  fi
  configure "$preset-legacy" "$preset" -G Ninja -DANDROID_USE_LEGACY_TOOLCHAIN_FILE=ON
  configure "$preset" "$preset" -DANDROID_USE_LEGACY_TOOLCHAIN_FILE=OFF
  for name in "$preset-legacy" "$preset"; do
    quietly cmake --build "build/$name" -j"$(nproc)" --target dewarp_node
    look "$name"
  done
done

if [ ! -x "$bionic/bin/linker64" ]; then
  say "skipped: the tests, no bin/linker64 of an Android for x86-64 in $bionic"
  exit 0
fi
bionic="$(cd "$bionic" && pwd)"
tests="$root/build/android-x86_64/tests"
configure android-x86_64 android-x86_64 -DANDROID_USE_LEGACY_TOOLCHAIN_FILE=OFF -DDEWARP_TESTS=ON \
  -DANDROID_BIONIC="$bionic"
cmake --build build/android-x86_64 -j"$(nproc)"
say "the tests' programs are run by $(readelf -lW "$tests/stress_tests" | sed -n 's/.*interpreter: \(.*\)]/\1/p')"
ctest --test-dir build/android-x86_64 -j"$(nproc)" --output-on-failure

# The same library, told to need the one that the host's symbols stand in.
configure android-x86_64-host android-x86_64 -DDEWARP_HOST_LIBRARIES="$tests/loader/libloader_host.so"
quietly cmake --build build/android-x86_64-host -j"$(nproc)" --target dewarp_node
look android-x86_64-host libloader_host.so
LD_LIBRARY_PATH="$bionic/lib64:$ANDROID_PLATFORM_TREE/lib64" tests/node/loader/cases.sh "$tests/loader" \
  "$root"/build/android-x86_64{,-host}/lib/com.oxa.node.dewarp.so
