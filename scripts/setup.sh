#!/usr/bin/env bash
# Installs what building, testing and the demo need on Debian 12. Does nothing when all of it is there.
#   scripts/setup.sh           for the build, the tests and the demo
#   scripts/setup.sh --ci      also the second compiler and the checkers
#   scripts/setup.sh --bench   also the measurements and what the node is measured against
set -euo pipefail

packages=(
  g++ cmake make binutils
  libegl-dev libgles-dev libegl1 libgles2 libgl1-mesa-dri
  android-liblog-dev android-libcutils-dev android-libutils-dev
  libavformat-dev libavcodec-dev libavutil-dev libavfilter-dev pkg-config
  python3 ffmpeg
  libopencv-dev libcli11-dev nlohmann-json3-dev libfmt-dev zlib1g-dev libgtest-dev libgmock-dev
  lomiri-wallpapers-16.04
)
if [ "${1:-}" = "--ci" ]; then
  packages+=(clang clang-format clang-tidy ninja-build cppcheck gcovr abigail-tools chromium)
elif [ "${1:-}" = "--bench" ]; then
  packages+=(valgrind libbenchmark-dev libvidstab-dev)
elif [ $# -gt 0 ]; then
  echo "setup.sh: expected no argument, --ci or --bench, got \"$1\"" >&2
  exit 2
fi

missing=()
for package in "${packages[@]}"; do
  if [ "$(dpkg-query -W -f '${db:Status-Status}' "$package" 2>/dev/null || true)" != "installed" ]; then
    missing+=("$package")
  fi
done
if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "setup.sh: installing ${missing[*]}" >&2
as_root=()
if [ "$(id -u)" -ne 0 ]; then
  as_root=(sudo)
fi
export DEBIAN_FRONTEND=noninteractive
"${as_root[@]}" apt-get update -q
"${as_root[@]}" apt-get install -y -q --no-install-recommends "${missing[@]}"
