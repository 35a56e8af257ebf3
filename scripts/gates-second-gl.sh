#!/usr/bin/env bash
# Runs the desk on a second OpenGL ES, ANGLE over SwiftShader, which is stricter than Mesa: the pictures of a clip
# against the reference, the tests that render real pixels, and their long run.
set -euo pipefail
root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
cd "$root"

scripts/setup.sh
scripts/setup-second-gl.sh
cmake --preset desk
cmake --build --preset desk -j"$(nproc)" --target gl_tests pixel_tests stress_tests dewarp-desk
desk="$root/build/desk/bin/dewarp-desk"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT

"$desk" synth /usr/share/backgrounds/life_by_Aitzol_Berasategi.jpg -o "$work/shaky.mkv" --grids "$work/grids.txt" \
  --truth "$work/truth.mkv" --size 1280x720 --length 24 --seed 7 --progress none
cd "$work" # the driver has to be found from any folder
export LD_LIBRARY_PATH="$root/build/second-gl${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
for variant in realtime lookahead; do
  "$desk" verify shaky.mkv --grids grids.txt --size 1280x720 --variant "$variant" --in-flight 4 --json "$variant.json" \
    --progress none
  renderer="$(sed -n 's/.*"gl_renderer": "\(.*\)".*/\1/p' "$variant.json")"
  case "$renderer" in
    ANGLE*SwiftShader*) echo "gates-second-gl: the $variant node rendered on $renderer" ;;
    *)
      echo "gates-second-gl.sh: expected ANGLE on SwiftShader as the renderer, got \"$renderer\"" >&2
      exit 1
      ;;
  esac
done
"$desk" replay shaky.mkv --grids grids.txt --truth truth.mkv --size 1280x720 -o steady.mkv --min-psnr 32 \
  --progress none
"$root/build/desk/tests/gl_tests"
"$root/build/desk/tests/pixel_tests"
"$root/build/desk/tests/stress_tests" --gtest_filter='Pixel*'
