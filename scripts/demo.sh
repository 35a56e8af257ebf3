#!/usr/bin/env bash
# Films a photograph with a shaking hand, lets both variants of the node steady the clip, and measures them against
# what a camera standing still would have seen. Installs what is missing and builds first.
#   scripts/demo.sh [--photo FILE [--credit "AUTHOR, LICENCE"]] [--out DIR] [--size WxH] [--margin H[,V]]
#                   [--frames N] [--seed N] [--fps N]
# Leaves in DIR/realtime and DIR/lookahead (out/demo unless named): shaky.mp4, stabilised.mp4, before_after.jpg,
# report.html, report.json and the node's dumps. Exit status 1 when a limit is missed.
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
photo=/usr/share/backgrounds/life_by_Aitzol_Berasategi.jpg
credit="Aitzol Berasategi, CC-BY-4.0"
out="$root/out/demo"
size=1920x1080 margin=0.2 frames=96 seed=1 fps=30
while [ $# -gt 0 ]; do
  if [ "$1" = "--help" ] || [ $# -lt 2 ]; then
    sed -n '2,/^set/s/^# \{0,1\}//p' "$0"
    [ "$1" = "--help" ] && exit 0 || exit 2
  fi
  case "$1" in
    --photo) photo="$2" credit="author and licence unknown" ;;
    --credit) credit="$2" ;;
    --out) out="$2" ;;
    --size | --margin | --frames | --seed | --fps) declare "${1#--}=$2" ;;
    *)
      echo "demo.sh: expected an option that --help lists, got \"$1\"" >&2
      exit 2
      ;;
  esac
  shift 2
done

"$root/scripts/setup.sh"
(cd "$root" && cmake --preset desk && cmake --build --preset desk -j"$(nproc)" --target dewarp-desk)
desk="$root/build/desk/bin/dewarp-desk"

mkdir -p "$out"
work="$(mktemp -d "$out/clips.XXXXXX")" # lossless, so that the pixels compared are the node's own
trap 'rm -rf "$work"' EXIT
"$desk" synth "$photo" -o "$work/shaky.mkv" --grids "$work/grids.txt" --truth "$work/truth.mkv" \
  --size "$size" --margin "$margin" --length "$frames" --seed "$seed" --fps "$fps"
status=0
for variant in realtime lookahead; do
  folder="$out/$variant"
  mkdir -p "$folder"
  rm -f "$folder"/Warp?_{Grid,Vert,Tex}_*.txt
  "$desk" replay "$work/shaky.mkv" --grids "$work/grids.txt" --truth "$work/truth.mkv" --size "$size" \
    --variant "$variant" --before "$folder/shaky.mp4" -o "$folder/stabilised.mp4" --dump-dir "$folder" \
    --report "$folder" --max-motion 0.3 --min-psnr 32 -y \
    --credit "Photo $(basename "$photo"): $credit; cropped, scaled and moved along a simulated hand shake" ||
    status=$?
  [ "$status" -le 1 ] || exit "$status"
done
echo "Look at before_after.jpg, shaky.mp4, stabilised.mp4 and report.html in $out/realtime and $out/lookahead"
exit "$status"
