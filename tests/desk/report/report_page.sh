#!/usr/bin/env bash
# Opens a report of dewarp-desk in a headless browser: the page must need no other file, its pictures must decode,
# and every section must be there. Leaves the screenshot in the working folder.
#   report_page.sh DEWARP_DESK
# Exit status 77, which ctest reads as skipped, without the browser or the photograph.
set -euo pipefail

desk="$1"
photo=/usr/share/backgrounds/life_by_Aitzol_Berasategi.jpg
browser="$(command -v chromium || true)"
if [ -z "$browser" ] || [ ! -f "$photo" ]; then
  echo "report_page.sh: expected chromium and $photo" >&2
  exit 77
fi

work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
# Without sandbox and shared memory, as in a container.
headless=("$browser" --headless --no-sandbox --disable-gpu --disable-dev-shm-usage --user-data-dir="$work/profile")
fail() {
  echo "report_page.sh: $1" >&2
  exit 1
}
# Runs the page's copy, whose script puts what the browser made of it into the title.
title_of() {
  sed 's#</body>#<script>onload=()=>{document.title=[document.images.length,\
[...document.images].filter(i=>i.naturalWidth>100).length,\
[...document.querySelectorAll("svg")].filter(s=>s.querySelector("polyline").getBBox().width>100).length\
].join(" ")}</script></body>#' \
    "$1" >"$work/page.html"
  "${headless[@]}" --virtual-time-budget=3000 --dump-dom "file://$work/page.html" 2>/dev/null |
    sed -n 's#.*<title>\([0-9 ]*\)</title>.*#\1#p'
}

common=(--size 640x360 --progress none)
"$desk" synth "$photo" -o "$work/shaky.mkv" --grids "$work/grids.txt" --truth "$work/truth.mkv" --length 12 "${common[@]}"
"$desk" stabilise "$work/shaky.mkv" -o "$work/steady.mp4" --report "$work/stabilise" --log-level none "${common[@]}"
"$desk" verify "$work/shaky.mkv" --grids "$work/grids.txt" --report "$work/verify" --log-level none "${common[@]}"

for command in stabilise verify; do
  page="$work/$command/report.html"
  if grep -qE "(src|href)='[^d#]" "$page"; then
    fail "$command: the page refers to another file"
  fi
  for section in "Before and after" "Margin" "Motion between frames" "Time per frame" "Counters" "Findings"; do
    grep -q "<h2>$section</h2>" "$page" || fail "$command: expected a section \"$section\""
  done
  "${headless[@]}" --hide-scrollbars --window-size=1040,3200 --screenshot="$PWD/report_$command.png" \
    "file://$page" 2>/dev/null
done
# Pictures, those that decode, and charts that are drawn.
[ "$(title_of "$work/stabilise/report.html")" = "1 1 6" ] || fail "stabilise: expected 1 picture and 6 charts"
[ "$(title_of "$work/verify/report.html")" = "2 2 2" ] || fail "verify: expected 2 pictures and 2 charts"
echo "both reports open: $PWD/report_stabilise.png, $PWD/report_verify.png"
