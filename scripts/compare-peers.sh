#!/usr/bin/env bash
# Steadies one clip, whose ideal result is known, with the desk, with FFmpeg's vidstab filters and with OpenCV's
# videostab, crops all results alike, and prints one table. Each gets 30 frames on either side.
#   scripts/compare-peers.sh [BUILD_DIR [WORK_DIR]]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
build="${1:-$root/build/desk}"
work="${2:-$root/out/peers}"
width=1280 height=720 frames=150
photo="${PHOTO:-/usr/share/backgrounds/life_by_Aitzol_Berasategi.jpg}"

cmake --build "$build" -j2 --target dewarp-desk desk-peers >&2
mkdir -p "$work"
cd "$work"
desk="$build/bin/dewarp-desk"
peers="$build/bin/desk-peers"
quiet=(-y --progress none --log-level none)

"$desk" synth "$photo" -o shaky.mkv --grids grids.txt --truth truth.mkv --size "${width}x$height" \
  --length "$frames" "${quiet[@]}" >&2

steady() { # NAME COMMAND...: runs the command, which writes NAME.mkv, and prints a row of the table
  local name="$1" start end
  shift
  start=$(date +%s.%N)
  "$@" >&2
  end=$(date +%s.%N)
  read -r count all worst motion < <("$peers" measure "$name.mkv" truth.mkv)
  printf '| %-28s | %6.2f | %6.2f | %6.3f | %5.1f |\n' "$name" "$all" "$worst" "$motion" \
    "$(echo "$count / ($end - $start)" | bc -l)"
}

vidstab() { # NAME DETECT_OPTIONS TRANSFORM_OPTIONS
  ffmpeg -v error -y -i shaky.mkv -vf vidstabdetect=shakiness=10:accuracy=15:result=vidstab.trf$2 -f null -
  ffmpeg -v error -y -i shaky.mkv \
    -vf "vidstabtransform=input=vidstab.trf:optzoom=0:crop=keep:interpol=bicubic$3,crop=$width:$height" \
    -c:v ffv1 -level 3 "$1.mkv"
}

centre() {
  ffmpeg -v error -y -i shaky.mkv -vf "crop=$width:$height" -c:v ffv1 -level 3 "$1.mkv"
}

echo "| ${frames} frames of ${width}x$height            | PSNR   | worst  | motion | fps   |"
echo "|------------------------------|--------|--------|--------|-------|"
steady shaky-centre centre shaky-centre
steady desk-known-grids "$desk" replay shaky.mkv --grids grids.txt -o desk-known-grids.mkv --size "${width}x$height" "${quiet[@]}"
steady desk-lookahead "$desk" stabilise shaky.mkv -o desk-lookahead.mkv --variant lookahead --window 30 \
  --size "${width}x$height" "${quiet[@]}"
steady desk-realtime "$desk" stabilise shaky.mkv -o desk-realtime.mkv --size "${width}x$height" "${quiet[@]}"
steady vidstab-smoothing-30 vidstab vidstab-smoothing-30 "" :smoothing=30
steady vidstab-tripod vidstab vidstab-tripod :tripod=1 :tripod=1
steady opencv-videostab "$peers" videostab shaky.mkv opencv-videostab.mkv "$width" "$height"
echo
echo "PSNR: luma against the still camera, dB over all frames and of the worst. motion: pixels RMS between frames."
echo "A real-time node sees no frame ahead; all the others do."
