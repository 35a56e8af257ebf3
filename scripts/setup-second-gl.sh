#!/usr/bin/env bash
# Fetches a second OpenGL ES for the desk to run on, a stricter one than Mesa: ANGLE, which newer devices ship, over
# SwiftShader, a Vulkan of the CPU's. Both come from the npm package of a browser, pinned by version and checksum, into
# a folder of their own (build/second-gl unless named); docs/DESK.md says how the desk is run on it. Does nothing when
# the folder is complete. x86-64 only.
#   scripts/setup-second-gl.sh [FOLDER]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
folder="${1:-$root/build/second-gl}"
package=@sparticuz/chromium@143.0.4
checksum=ffa23bb904d18510c3dbf8063d0d4691ff83aa4d116030023c90d97d2cf3d0e5a4e099944e89cd1cf5dbae7e9422494e1e59c32dff31000ce4399281fdc2692c

fail() {
  echo "setup-second-gl.sh: $*" >&2
  exit 1
}
[ "$(uname -m)" = x86_64 ] || fail "expected an x86-64 machine, which $package is built for, got $(uname -m)"
if [ "$(cat "$folder/package" 2>/dev/null || true)" = "$checksum" ]; then
  exit 0
fi

missing=()
for command in npm brotli patchelf; do
  command -v "$command" >/dev/null || missing+=("$command") # each is its package's name too
done
if [ ${#missing[@]} -gt 0 ]; then
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -q
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
fi

# Only what an earlier run began is done anew.
[ ! -e "$folder" ] || [ -e "$folder/package" ] || rmdir "$folder" 2>/dev/null ||
  fail "expected $folder to be empty or not to exist"
rm -rf "$folder"
mkdir -p "$folder"
: >"$folder/package"
folder="$(cd "$folder" && pwd)"
work="$(mktemp -d "$folder/fetch.XXXXXX")"
trap 'rm -rf "$work"' EXIT
echo "setup-second-gl.sh: fetching $package" >&2
npm pack "$package" --pack-destination "$work" --cache "$work/cache" --loglevel error >/dev/null ||
  fail "$package could not be fetched from $(npm config get registry --loglevel error)"
archive=("$work"/*.tgz)
fetched="$(sha512sum <"${archive[0]}" | cut -d' ' -f1)"
[ "$fetched" = "$checksum" ] || fail "expected $package with the SHA-512 $checksum, got $fetched"
tar -xzO -f "${archive[0]}" package/bin/swiftshader.tar.br | brotli -dc |
  tar -x -C "$folder" --no-same-owner libEGL.so libGLESv2.so libvk_swiftshader.so libvulkan.so.1 vk_swiftshader_icd.json

# Under the names that the desk's libraries ask for, because theirs are also the desk's own. Its libEGL opens the
# other one by the plain name; a plain libEGL.so would stand in for the desk's.
mv "$folder/libEGL.so" "$folder/libEGL.so.1"
mv "$folder/libGLESv2.so" "$folder/libGLESv2.so.2"
patchelf --set-soname libEGL.so.1 "$folder/libEGL.so.1"
patchelf --set-soname libGLESv2.so.2 "$folder/libGLESv2.so.2"
ln -s libGLESv2.so.2 "$folder/libGLESv2.so"
echo "$checksum" >"$folder/package"
