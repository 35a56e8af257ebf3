#!/usr/bin/env bash
# Fetches real clips, which nobody made for this project, out of Debian's package opencv-doc (Apache-2.0 AND
# BSD-3-Clause): box.mkv, a tripod and a box moved by a hand; cup.mkv, a hand-held camera before a bare wall and a cup
# that is moved; vtest.mkv, a camera on a building and people walking. They are decoded once, without loss.
#   scripts/fetch-clips.sh DIR
set -euo pipefail

[ $# -eq 1 ] || { sed -n '2,/^set/s/^# \{0,1\}//p' "$0" >&2; exit 2; }
mkdir -p "$1"
cd "$1"
[ -f box.mkv ] && [ -f cup.mkv ] && [ -f vtest.mkv ] && exit 0
work="$(mktemp -d "$PWD/fetch.XXXXXX")"
trap 'rm -rf "$work"' EXIT
(cd "$work" && apt-get download -q opencv-doc >&2 && dpkg-deb -x opencv-doc_*.deb .)
doc="$work/usr/share/doc/opencv-doc"
decode() { # SOURCE CLIP FFMPEG_OPTION...
  ffmpeg -v error -y -i "$1" -an "${@:3}" -fps_mode passthrough -c:v ffv1 -level 3 "$work/$2"
}
gunzip -c "$doc/opencv4/html/box.mp4.gz" >"$work/box.mp4"
gunzip -c "$doc/opencv4/html/cup.mp4.gz" >"$work/cup.mp4"
decode "$work/box.mp4" box.mkv -vf "select=gte(n\,1),setpts=PTS-STARTPTS" 2>/dev/null # its first frame is broken
decode "$work/cup.mp4" cup.mkv
decode "$doc/examples/data/vtest.avi" vtest.mkv -frames:v 200
mv "$work"/*.mkv .
