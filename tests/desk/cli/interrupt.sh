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
luma=$((96 * 64))
printf 'FRAME\n' >"$work/frame"
head -c "$((luma * 3 / 2))" /dev/zero | tr '\0' 'x' >>"$work/frame"
# Frames for the tool, as many as are named.
feed() {
  for ((n = 0; n < $1; n++)); do
    cat "$work/frame" >&7
  done
}
# Waits until the command says yes, 20 seconds at most.
wait_for() {
  for ((n = 0; n < 200; n++)); do
    if "$@"; then
      return
    fi
    sleep 0.1
  done
  fail "waited in vain for: $*"
}
# The clip is written under a temporary name beside the output.
shown() {
  cat "$work"/out.y4m?* 2>/dev/null | grep -ac FRAME || true
}
has_shown() { [ "$(shown)" -ge "$1" ]; }
has_started() { grep -q 'input 96x64' "$work/stderr"; }

#   interrupted FRAMES_BEFORE FRAMES_AFTER SHOWN_BEFORE OPTION...
interrupted() {
  local before="$1" after="$2" done="$3"
  shift 3
  : >"$work/stderr"
  "$desk" stabilise "$work/clip.y4m" -o "$work/out.y4m" --progress none --log-level none -y "$@" 2>"$work/stderr" &
  tool=$!
  exec 7>"$work/clip.y4m"
  printf 'YUV4MPEG2 W96 H64 F25:1 Ip A1:1 C420jpeg\n' >&7
  feed "$before"
  wait_for has_started
  wait_for has_shown "$done"
  kill -INT "$tool"
  feed "$after" 2>/dev/null || true
  exec 7>&-
  status=0
  wait "$tool" || status=$?
  tool=
  [ "$status" -eq 130 ] || fail "$*: expected exit status 130, got $status"
}

# The window is full, and of 8 frames that can be shown 4 are.
for options in "--variant lookahead --window 30" "--variant lookahead --window 30 --in-flight 4" "--variant realtime"; do
  read -ra options <<<"$options"
  held=0
  [ "${options[1]}" = realtime ] || held=30
  interrupted $((held + 8)) 4 4 "${options[@]}"
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

# The window is not full: there is no frame yet.
interrupted 8 4 0 --variant lookahead --window 30 --dump-dir "$work/dumps" --json "$work/out.json" \
  --report "$work/report"
grep -q "interrupted before the first frame; nothing was made" "$work/stderr" || fail "expected to be told"
left="$(find "$work" -name '*out*' -o -path '*/dumps/*' -o -path '*/report/*')"
[ -z "$left" ] || fail "expected nothing, got $left"

# Nothing more comes through the pipe, so that the run cannot end by itself: a second Ctrl-C ends it at once.
: >"$work/stderr"
"$desk" stabilise "$work/clip.y4m" -o "$work/out.y4m" --progress none --log-level none 2>"$work/stderr" &
tool=$!
exec 7>"$work/clip.y4m"
printf 'YUV4MPEG2 W96 H64 F25:1 Ip A1:1 C420jpeg\n' >&7
feed 4
wait_for has_shown 2
kill -INT "$tool"
sleep 0.5
kill -0 "$tool" 2>/dev/null || fail "expected the first one to wait for the frame under way"
kill -INT "$tool"
status=0
wait "$tool" 2>/dev/null || status=$?
exec 7>&-
[ "$status" -eq 130 ] || fail "expected the second one to end the run at once, got status $status"
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
[ "$status" -eq 130 ] || fail "synth: expected exit status 130, got $status"
frames="$(wc -l <"$work/out.txt")"
for clip in out truth; do
  [ "$frames" -ge 3 ] && [ "$(grep -ao FRAME "$work/$clip.y4m" | wc -l)" -eq "$frames" ] ||
    fail "synth: expected as many frames in $clip.y4m as grids, which are $frames"
done
