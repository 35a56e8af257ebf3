#!/usr/bin/env bash
# What a run of dewarp-desk leaves of what was there before it: everything, unless -y and a complete output replace it.
#   keeps.sh DEWARP_DESK LIBRARY
# The library, which is preloaded, makes renameat2 fail as on file systems that have no flags for renaming.
set -euo pipefail

desk="$(realpath "$1")"
flags_library="$(realpath "$2")"
work="$(mktemp -d)"
trap 'kill $(jobs -p) 2>/dev/null || true; rm -rf "$work"' EXIT
in="$work/in"
failures=0
preload=""

# The options that every run of a clip needs.
clip=("$in/shaky.y4m" --progress none --log-level none)
grids=(--grids "$in/grids.txt" --size 64x48)

# Every file with its content, every folder, link and pipe below this folder.
listing() {
  { find . -mindepth 1 \( -type d -o -type p -o -type l \) -printf '%y %P %l\n'; find . -type f -exec sha256sum {} +; } |
    sed -E 's#^([0-9a-f]{64})  \./(.*)#f \2 \1#' | sort
}

# What two listings differ in: "-a" for what went or changed, "+a" for what came; the digits of names that the
# program makes up as N.
difference() {
  { comm -23 "$1" "$2" | sed 's/^/-/'; comm -13 "$1" "$2" | sed 's/^/+/'; } |
    sed -E 's#^([+-])[a-z] ([^ ]*).*#\1\2#; s#unfinished-[0-9]{6}$#unfinished-N#; s#unfinished-[0-9]{6}/#unfinished-N/#
      s#[0-9]{6}\.png$#N.png#; s#Warp2_([A-Za-z]*)_[0-9_]*\.txt#\1#' | LC_ALL=C sort -u | paste -sd' '
}

# A folder of its own for a row, in which files are made from the names that are given; NAME/ is a folder.
scene() {
  row="$1"
  mkdir "$work/row"
  cd "$work/row"
  shift
  local name
  for name in "$@"; do
    case "$name" in
      */) mkdir -p "$name" ;;
      *)
        mkdir -p "$(dirname "$name")"
        echo "the user's $name" >"$name"
        ;;
    esac
  done
  listing >"$work/before"
}

# Runs the program. What it says goes to a file.
run() {
  status=0
  LD_PRELOAD="$preload" "$desk" "$@" >/dev/null 2>"$work/said" || status=$?
}

# Ends a row: the status, a part of what was said, and what differs now.
expect() {
  listing >"$work/after"
  local differs
  differs="$(difference "$work/before" "$work/after")"
  if [ "$status" != "$1" ] || [[ "$(cat "$work/said")" != *"$2"* ]] || [ "$differs" != "$3" ]; then
    failures=$((failures + 1))
    printf '%s\n  expected status %s, "%s", "%s"\n  got      status %s, "%s"\n  said: %s\n' "$row" "$1" "$2" "$3" \
      "$status" "$differs" "$(tail -n 2 "$work/said")"
  fi
  cd "$work"
  rm -rf "$work/row"
}

# Starts the program on a clip that comes through a pipe and stops after some frames; `go` sends the rest. Returns when
# the program has begun its output, the first argument, and as a clip written to it, however long that takes.
start() {
  mkfifo "$work/clip.y4m" "$work/go"
  { head -c 150000 "$in/shaky.y4m"; read -r _ <"$work/go"; tail -c +150001 "$in/shaky.y4m"; } >"$work/clip.y4m" 2>"$work/pipe" &
  feeder=$!
  LD_PRELOAD="$preload" "$desk" stabilise "$work/clip.y4m" --variant realtime --progress none -o "$@" >/dev/null 2>"$work/said" &
  program=$!
  come_so_far -path "./$1.unfinished-*" \( -type d -o -size +4k \)
}

# Waits until something can be found; the program must not end before.
come_so_far() {
  until [ -n "$(find . "$@")" ]; do
    if ! kill -0 "$program" 2>/dev/null; then
      echo "$row: the program did not come so far: $(cat "$work/said")"
      exit 1
    fi
    sleep 0.05
  done
}

go() {
  echo >"$work/go"
  finish
}

finish() {
  status=0
  wait "$program" 2>/dev/null || status=$?
  wait "$feeder" 2>/dev/null || true
  rm "$work/clip.y4m" "$work/go"
}

mkdir "$in"
cd "$in"
{ printf 'P6\n800 600\n255\n'; head -c 1440000 /dev/urandom; } >photo.ppm
synth=(synth "$in/photo.ppm" --size 64x48 --shake 0.2 --progress none)
"$desk" "${synth[@]}" -o shaky.y4m --grids grids.txt --truth truth.y4m --length 40
"$desk" "${synth[@]}" -o short.y4m --grids short.txt --truth short_truth.y4m --length 3
all=(-o out.mkv --before pictures --json out.json --report report --dump-dir dumps)
made="+out.json +out.mkv +pictures +pictures/N.png"
report="+report/before_after.jpg +report/report.html +report/report.json"
dumps="+dumps/Grid +dumps/Tex +dumps/Vert"

# ---- Names that only look like the program's ----
scene "the user's own unfinished files and folders stay" out.mkv.unfinished out.mkv.unfinished-1/a \
  pictures.unfinished/a out.json.unfinished dumps/unfinished/a dumps/dumps.unfinished/ report/report.html.unfinished/a
run replay "${clip[@]}" "${grids[@]}" "${all[@]}"
expect 0 "" "$dumps $made $report"

scene "a run that fails leaves what was there, also with -y" out.mkv out.mkv.unfinished pictures/000001.png out.json \
  report/report.html dumps/Warp2_Grid_20261115_171203.txt dumps/unfinished/a
run replay "${clip[@]}" "${grids[@]}" "${all[@]}" -y --truth "$in/short_truth.y4m"
expect 2 "short_truth.y4m ends before the clip" ""

scene "a full disk leaves what was there, also with -y" out.mkv truth.mkv grids.txt
run_limited() (
  trap '' XFSZ
  ulimit -f 8
  run "$@"
  exit "$status"
)
run_limited "${synth[@]}" -o out.mkv --truth truth.mkv --grids grids.txt -y || status=$?
expect 3 "out.mkv cannot be written" ""

# ---- Replaced with -y only ----
# only_with_y FILE "WHAT ELSE COMES" COMMAND...
only_with_y() {
  scene "$1 stays without -y" "$1"
  run "${@:3}"
  expect 2 "exists; -y replaces it" ""
  scene "$1 is replaced with -y" "$1"
  run "${@:3}" -y
  local name="${1//[0-9]*./N.}"
  expect 0 "" "$(printf '%s\n' "+$name" "-$name" $2 | LC_ALL=C sort | paste -sd' ')"
}
replay=(replay "${clip[@]}" "${grids[@]}")
synth_all=("${synth[@]}" --length 3 -o out.mkv --truth truth.mkv --grids grids.txt)
only_with_y out.mkv "" "${replay[@]}" -o out.mkv
only_with_y out.y4m "" "${replay[@]}" -o out.y4m
only_with_y pictures/000001.png "" "${replay[@]}" -o pictures
only_with_y before.mp4 "+out.mkv" "${replay[@]}" -o out.mkv --before before.mp4
only_with_y out.json "+out.mkv" "${replay[@]}" -o out.mkv --json out.json
for file in report.html report.json before_after.jpg; do
  only_with_y "report/$file" "+out.mkv ${report/+report\/$file/}" "${replay[@]}" -o out.mkv --report report
done
only_with_y heat.png "" verify "${clip[@]}" "${grids[@]}" --limit 255 --heat-map heat.png
only_with_y pictures/grids_mesh.svg "" inspect "$in/grids.txt" --pictures pictures
only_with_y out.json "" inspect "$in/grids.txt" --json out.json
only_with_y out.json "" diff "$in/grids.txt" "$in/grids.txt" --json out.json
only_with_y out.mkv "+grids.txt +truth.mkv" "${synth_all[@]}"
only_with_y truth.mkv "+grids.txt +out.mkv" "${synth_all[@]}"
only_with_y grids.txt "+out.mkv +truth.mkv" "${synth_all[@]}"

# refused_with_y SENTENCE FILE OUTPUT: what is no former output is not replaced at all.
refused_with_y() {
  scene "$2 is not replaced, also with -y" "$2"
  run "${replay[@]}" -o "$3" -y
  expect 2 "$1" ""
}
refused_with_y "pictures holds notes; only a folder of numbered pictures" pictures/notes pictures
refused_with_y "pictures holds 000001.png; only a folder of numbered pictures" pictures/000001.png/ pictures
refused_with_y "pictures is no folder; only a folder of numbered pictures" pictures pictures
refused_with_y "out.mkv is no regular file; expected the name of one" out.mkv/ out.mkv

for outputs in "-o read.y4m" "-o out.mkv --before read.y4m"; do
  scene "what is read is not replaced, also with -y: $outputs"
  cp "$in/shaky.y4m" read.y4m
  listing >"$work/before"
  read -ra words <<<"$outputs"
  run replay read.y4m "${grids[@]}" --progress none -y "${words[@]}"
  expect 2 "read.y4m is read; expected another name for the output" ""
done

scene "a pipe is not replaced, also with -y"
mkfifo out.json
listing >"$work/before"
run "${replay[@]}" -o out.mkv --json out.json -y
expect 2 "out.json is a device or a pipe, which is not replaced" ""

scene "what a link leads to is replaced, not the link" there/real.mkv there/real/000001.png
ln -s there/real.mkv out.mkv
ln -s there/real pictures
listing >"$work/before"
run "${replay[@]}" -o out.mkv --before pictures -y
expect 0 "" "+there/real.mkv +there/real/N.png -there/real.mkv -there/real/N.png"

scene "new files and folders have the usual rights"
umask 027
run "${replay[@]}" -o out.mkv --before pictures --dump-dir dumps
[ "$(stat -c %a out.mkv pictures dumps | paste -sd' ')" = "640 750 750" ] || status="rights of $(stat -c %a ./*)"
umask 022
expect 0 "" "+dumps $dumps +out.mkv +pictures +pictures/N.png"

# ---- While a run is under way; then the same where the file system knows no flags for renaming ----
while_it_runs() {
  scene "a killed run leaves what was there, and names that say unfinished$1" out.mkv before.y4m out.json
  start out.mkv --before before.y4m --json out.json --dump-dir dumps -y
  kill -KILL "$program"
  go
  expect 137 "" "+before.y4m.unfinished-N +dumps +dumps/dumps.unfinished-N $(printf '+dumps/dumps.unfinished-N/%s ' \
    Grid Tex Vert)+out.mkv.unfinished-N"

  scene "with -y it is replaced when all of it is there$1" out.mkv pictures/000001.png
  start out.mkv --before pictures -y
  go
  expect 0 "" "+out.mkv +pictures/N.png -out.mkv -pictures/N.png"

  scene "without -y a file that comes meanwhile stays$1"
  start out.mkv --json out.json
  echo "the user's" >out.mkv
  listing >"$work/before"
  sed -i '/unfinished/d' "$work/before"
  go
  expect 2 "out.mkv exists; -y replaces it; what was made is in out.mkv.unfinished-" "+out.mkv.unfinished-N"

  scene "without -y a folder that comes meanwhile stays$1"
  start pictures
  mkdir pictures
  listing >"$work/before"
  sed -i '/unfinished/d' "$work/before"
  go
  expect 2 "pictures exists; -y replaces it; what was made is in pictures.unfinished-" \
    "+pictures.unfinished-N +pictures.unfinished-N/N.png"

  scene "what comes meanwhile into a folder to be replaced stays there$1" pictures/000001.png
  start pictures -y
  echo "the user's" >pictures/notes
  listing >"$work/before"
  sed -i '/unfinished/d' "$work/before"
  go
  expect 2 "pictures holds notes; only a folder of numbered pictures is replaced; what was made is in pictures." \
    "+pictures.unfinished-N +pictures.unfinished-N/N.png"

  scene "what comes meanwhile into unfinished folders stays when the run fails$1"
  start pictures --dump-dir dumps
  come_so_far -path './dumps/dumps.unfinished-*/*_Tex_*'
  rm dumps/dumps.unfinished-*/*_Tex_*
  for folder in pictures.unfinished-* dumps/dumps.unfinished-*; do
    echo "the user's" >"$folder/notes"
  done
  go
  expect 3 "could not write all its dumps" "+dumps +dumps/dumps.unfinished-N +dumps/dumps.unfinished-N/notes \
+pictures.unfinished-N +pictures.unfinished-N/notes"

  # The node names its dumps by the second. One of a set that has its name taken keeps the set together.
  scene "dumps of the same second stay$1" dumps/
  for ((second = EPOCHSECONDS; second < EPOCHSECONDS + 600; second++)); do
    printf -v name 'dumps/Warp2_Tex_%(%Y%m%d_%H%M%S)T.txt' "$second"
    echo "the user's" >"$name"
  done
  listing >"$work/before"
  run "${replay[@]}" -o out.mkv --dump-dir dumps -y
  expect 2 ".txt exists; what was made is in dumps/dumps.unfinished-" "+dumps/dumps.unfinished-N \
+dumps/dumps.unfinished-N/Grid +dumps/dumps.unfinished-N/Tex +dumps/dumps.unfinished-N/Vert +out.mkv"
}
while_it_runs ""
preload="$flags_library"
while_it_runs ", without flags for renaming"
preload=""

scene "two runs into one folder of dumps keep all dumps"
"$desk" "${replay[@]}" -o one.y4m --dump-dir dumps >/dev/null 2>&1 &
run "${replay[@]}" -o other.y4m --dump-dir dumps
wait "$!" || true
cmp one.y4m other.y4m
sets="$(find dumps -name 'Warp2_*.txt' -exec grep -c '' {} + | cut -d: -f2 | sort | uniq -c | xargs)"
[ "$sets" = "6 40" ] || { echo "two runs at once: expected 6 dumps of 40 lines, got $sets"; failures=$((failures + 1)); }

[ "$failures" -eq 0 ] || { echo "keeps.sh: $failures rows failed"; exit 1; }
echo "every run left what was there"
