#!/usr/bin/env bash
# Interrupts dewarp-desk while it steadies a clip that comes through a pipe frame by frame: it must end after the frame
# under way, leave what was done as a clip, and nothing when no frame was done.
#   interrupt.sh DEWARP_DESK
set -euo pipefail

desk="$1"
work="$(mktemp -d)"
tool=
trap 'kill $tool 2>/dev/null || true; rm -rf "$work"' EXIT
fail() {
  echo "interrupt.sh: $1" >&2
  sed 's/^/  /' "$work/stderr" >&2
  exit 1
}
mkfifo "$work/clip.y4m"
# The clip's frames are of this size from here on.
sized() {
  header="YUV4MPEG2 W$1 H$2 F25:1 Ip A1:1 C420jpeg"
  printf 'FRAME\n' >"$work/frame"
  head -c "$(($1 * $2 * 3 / 2))" /dev/zero | tr '\0' 'x' >>"$work/frame"
}
# Frames for the tool, as many as are named.
feed() {
  for ((n = 0; n < $1; n++)); do
    cat "$work/frame" >&7
  done
}
# Waits until the command says yes, however slow the machine is, but not for a program that has ended.
wait_for() {
  until "$@"; do
    kill -0 "$tool" 2>/dev/null || fail "the program ended before: $*"
    sleep 0.1
  done
}
# The clip is written under a temporary name beside the output.
shown() {
  cat "$work"/out.y4m?* 2>/dev/null | grep -ac FRAME || true
}
has_shown() { [ "$(shown)" -ge "$1" ]; }
has_started() { grep -q 'input 96x64' "$work/stderr"; }

#   interrupted SIGNAL FRAMES_BEFORE FRAMES_AFTER SHOWN_BEFORE OPTION...
interrupted() {
  local signal="$1" before="$2" after="$3" done="$4"
  shift 4
  : >"$work/stderr"
  "$desk" stabilise "$work/clip.y4m" -o "$work/out.y4m" --progress none --log-level none -y "$@" 2>"$work/stderr" &
  tool=$!
  exec 7>"$work/clip.y4m"
  echo "$header" >&7
  feed "$before"
  wait_for has_started
  wait_for has_shown "$done"
  kill "-$signal" "$tool"
  feed "$after" 2>/dev/null || true
  exec 7>&-
  status=0
  wait "$tool" || status=$?
  tool=
  [ "$status" -eq 130 ] || fail "$*: expected exit status 130, got $status"
}

# The window is full, and of 8 frames that can be shown 4 are.
sized 96 64
for options in "INT --variant lookahead --window 30" "INT --variant lookahead --window 30 --in-flight 4" \
  "INT --variant realtime" "TERM --variant realtime" "HUP --variant realtime"; do
  read -ra options <<<"$options"
  held=0
  [ "${options[2]}" = realtime ] || held=30
  interrupted "${options[0]}" $((held + 8)) 4 4 "${options[@]:1}"
  frames="$(grep -ac FRAME "$work/out.y4m")"
  echo "${options[*]}: $frames frames"
  if [ "$frames" -lt 4 ] || [ "$frames" -gt 13 ]; then
    fail "${options[*]}: expected the frames up to the signal and at most 5 more, got $frames"
  fi
  grep -q "interrupted after $frames frames; .*out.y4m holds them" "$work/stderr" || fail "expected to be told"
  "$desk" stabilise "$work/out.y4m" -o "$work/again.y4m" --size 32x16 -y --progress none 2>"$work/stderr" ||
    fail "${options[*]}: the clip does not play"
  rm "$work/out.y4m" "$work/again.y4m"
done

# The window is not full: there is no frame yet, and what was there before stays.
echo "the user's" >"$work/out.y4m"
interrupted INT 8 4 0 --variant lookahead --window 30 --dump-dir "$work/dumps" --json "$work/out.json" \
  --report "$work/report"
grep -q "interrupted before the first frame; nothing was made" "$work/stderr" || fail "expected to be told"
[ "$(cat "$work/out.y4m")" = "the user's" ] || fail "expected the file that was there before"
rm "$work/out.y4m"
left="$(find "$work" -mindepth 1 -name '*out*' -o -path '*/dumps*' -o -path '*/report*')"
[ -z "$left" ] || fail "expected nothing, got $left"

# A second Ctrl-C ends a run at once that waits for the rest of a frame and cannot end by itself. Frames are larger than
# the pipe: when the whole frame but its last byte is in it, the program is reading that frame.
: >"$work/stderr"
sized 448 256
"$desk" stabilise "$work/clip.y4m" -o "$work/out.y4m" --variant realtime --progress none 2>"$work/stderr" &
tool=$!
exec 7>"$work/clip.y4m"
echo "$header" >&7
feed 2
wait_for has_shown 2
head -c -1 "$work/frame" >&7
# Two signals of one kind are one until the first has been taken, which lasts as long as the machine likes.
signals=0
while [ "$signals" -lt 600 ] && kill -INT "$tool" 2>/dev/null; do
  signals=$((signals + 1))
  sleep 0.1
done
exec 7>&-
status=0
wait "$tool" 2>/dev/null || status=$?
tool=
if [ "$status" -ne 130 ] || [ "$signals" -lt 2 ] || [ "$signals" -eq 600 ]; then
  fail "expected the second of $signals signals to end the run at once, got status $status"
fi
rm "$work"/out.y4m.unfinished-*

# synth keeps the frames that it made, in all its outputs.
{ printf 'P6\n400 300\n255\n'; head -c 360000 /dev/urandom; } >"$work/photo.ppm"
"$desk" synth "$work/photo.ppm" -o "$work/out.y4m" --grids "$work/out.txt" --truth "$work/truth.y4m" --size 96x64 \
  --length 1000000 --progress none 2>"$work/stderr" &
tool=$!
wait_for has_shown 3
kill -INT "$tool"
status=0
wait "$tool" || status=$?
tool=
[ "$status" -eq 130 ] || fail "synth: expected exit status 130, got $status"
frames="$(wc -l <"$work/out.txt")"
for clip in out truth; do
  [ "$frames" -ge 3 ] && [ "$(grep -ao FRAME "$work/$clip.y4m" | wc -l)" -eq "$frames" ] ||
    fail "synth: expected as many frames in $clip.y4m as grids, which are $frames"
done
