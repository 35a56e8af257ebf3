#!/usr/bin/env bash
# Runs dewarp-desk as cases.txt says, row by row, each in a folder of its own, and looks at what it says and leaves.
#   run.sh DEWARP_DESK [NAME...]
# Rows whose names begin with one of the names; all of them without.
set -euo pipefail

desk="$(realpath "$1")"
shift
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
built="$(dirname "$(dirname "$desk")")"
work="$(mktemp -d)"
trap 'rm -rf "$work"' EXIT
quiet=(--progress none --log-level none)

# What the rows are written in: the program, and its commands on the clip that all of them know.
desk() { "$desk" "$@"; }
seeded() { [[ " $* " == *" --seed "* ]] || echo --seed 5; }
sized() { [[ " $* " == *" --size "* ]] || echo --size 160x120; }
synth() { desk synth "$work/in/photo.ppm" $(seeded "$@") --progress none $(sized "$@") "$@"; }
replay() { desk replay in/shaky.y4m --grids in/grids.txt --size 160x120 "${quiet[@]}" "$@"; }
steady() { desk stabilise in/shaky.y4m $(sized "$@") "${quiet[@]}" "$@"; }
verify() { desk verify in/shaky.y4m --grids in/grids.txt --size 160x120 "${quiet[@]}" "$@"; }
look() { python3 "$here/look.py" "$@"; }
# Each of the command lines, whose words a blank divides, is wrong use, and the program says this in between.
refused() {
  local says="$1" line words status
  shift
  for line in "$@"; do
    read -ra words <<<"$line"
    status=0
    desk "${words[@]}" >said 2>&1 || status=$?
    if [ "$status" -ne 2 ] || ! grep -qE -- "$says" said; then
      echo "$line: status $status, $(cat said)"
      return 1
    fi
  done
  rm -f said
}
# No file may grow beyond so many blocks of 1024 bytes: a full disk.
limited() (
  trap '' XFSZ
  ulimit -f "$1"
  "${@:2}"
)
# Sanitizers reserve more addresses than a limit leaves.
sanitized() { grep -qE '__[at]san_init' "$desk"; }
# The node of tests/desk/rules in the library's place.
rogue=(--library "$built/tests/desk/rules/librogue_node.so")

mkdir "$work/in"
cd "$work/in"
look photo >photo.ppm
synth -o shaky.y4m --grids grids.txt --truth truth.y4m --length 24
synth -o shaky.mkv --grids mkv.txt --truth mkv.mkv --length 24
# No shake: every frame and every grid shows the input's middle.
synth -o still.y4m --grids still.txt --truth still_truth.y4m --length 6 --size 128x96 --margin 0.25 --shake 0
look inputs

ran=0
failures=0
while IFS='|' read -r name status command says check; do
  read -r name <<<"$name"
  read -r status <<<"$status"
  for wanted in "${@:-}"; do
    [[ "$name" == "$wanted"* ]] || continue
    ran=$((ran + 1))
    rm -rf "$work/row"
    mkdir "$work/row"
    cd "$work/row"
    ln -s ../in in
    set +e  # or the row's own commands would go on where one fails
    (set -e; eval "$command") </dev/null >"$work/out" 2>"$work/err"
    got=$?
    set -e
    reason=""
    [ "$got" -eq "$status" ] || reason="expected status $status, got $got"
    says="$(sed 's/^ *//; s/ *$//' <<<"$says")"
    [ -z "$says" ] || grep -qE -- "$says" "$work/out" "$work/err" || reason="$reason; expected to hear $says"
    # A run that fails leaves nothing, not even something unfinished.
    [[ "$check" =~ [^\ ] ]] || [ "$status" -lt 2 ] || check="left() == []"
    [[ "$check" =~ [^\ ] ]] && { seen="$(look check "$check" "$work" 2>&1)" || reason="$reason; expected$check: $seen"; }
    if [ -n "$reason" ]; then
      failures=$((failures + 1))
      printf '%s: %s\n%s\n' "$name" "$reason" "$(cat "$work/err" "$work/out" | tail -n 6)"
    fi
    break
  done
done < <(grep -E '^[a-z]' "$here/cases.txt")
echo "$ran rows, $failures failed"
[ "$ran" -gt 0 ] && [ "$failures" -eq 0 ]
