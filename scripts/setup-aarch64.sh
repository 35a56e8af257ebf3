#!/usr/bin/env bash
# Makes the AArch64 build and its tests possible on a Debian 12 workstation of another kind: installs the cross
# compiler and the emulator, and unpacks the arm64 packages into a folder of their own (build/aarch64-sysroot
# unless named). Several of them cannot be installed beside the workstation's own, so none is installed at all:
# a private package database resolves and fetches them. Does nothing when the folder is complete.
#   scripts/setup-aarch64.sh [SYSROOT]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
sysroot="${1:-$root/build/aarch64-sysroot}"
packages=(
  libc6-dev libstdc++-12-dev
  libegl-dev libgles-dev libegl1 libgles2 libgl1-mesa-dri libegl-mesa0
  android-liblog-dev android-libcutils-dev android-libutils-dev p7zip-full
  libfmt-dev libgtest-dev libgmock-dev
)

if ! command -v aarch64-linux-gnu-g++ >/dev/null || ! command -v qemu-aarch64 >/dev/null; then
  as_root=()
  [ "$(id -u)" -eq 0 ] || as_root=(sudo)
  "${as_root[@]}" apt-get update -q
  DEBIAN_FRONTEND=noninteractive "${as_root[@]}" apt-get install -y -q --no-install-recommends \
    g++-aarch64-linux-gnu qemu-user
fi
if [ "$(cat "$sysroot/packages" 2>/dev/null || true)" = "${packages[*]}" ]; then
  exit 0
fi

rm -rf "$sysroot"
apt="$sysroot/apt"
mkdir -p "$apt"/lists/partial "$apt"/archives/partial
: >"$apt/status"
options=(-q -o "APT::Architecture=arm64" -o "APT::Architectures::=arm64" -o "APT::Sandbox::User=root"
  -o "Dir::State::status=$apt/status" -o "Dir::State::lists=$apt/lists" -o "Dir::Cache=$apt"
  -o "Dir::Cache::archives=$apt/archives" -o "Dir::Etc::sourceparts=-" -o "Dir::Etc::sourcelist=$apt/sources.list"
  -o "Debug::NoLocking=true")
keyring=/usr/share/keyrings/debian-archive-keyring.gpg
printf 'deb [arch=arm64 signed-by=%s] http://deb.debian.org/debian %s main\n' \
  "$keyring" bookworm "$keyring" bookworm-updates >"$apt/sources.list"
printf 'deb [arch=arm64 signed-by=%s] http://deb.debian.org/debian-security bookworm-security main\n' \
  "$keyring" >>"$apt/sources.list"
apt-get "${options[@]}" update
apt-get "${options[@]}" install -y --no-install-recommends --download-only "${packages[@]}"

# One folder of libraries, as on an installed system; packages still name both.
mkdir -p "$sysroot/usr/lib"
ln -s usr/lib "$sysroot/lib"
for package in "$apt"/archives/*.deb; do
  dpkg-deb --fsys-tarfile "$package" | tar -x --keep-directory-symlink -C "$sysroot" \
    --exclude=./usr/share/doc --exclude=./usr/share/locale --exclude=./usr/share/man --exclude=./dev
done
# Links to absolute names lead out of the folder; they are made relative to it.
find "$sysroot" -type l -lname '/*' | while read -r link; do
  ln -sfn "$(realpath -m --relative-to="$(dirname "$link")" "$sysroot$(readlink "$link")")" "$link"
done
rm -rf "$apt"
echo "${packages[*]}" >"$sysroot/packages"
