#!/usr/bin/env bash
# Puts one fault after the other into a copy of the library (tests/mutants/node.txt) and of the desk that proves it
# (tests/mutants/desk.txt) and has the tests find it: prints a table, and fails when fewer are found of a list than its
# argument says (all of them unless given; - leaves the list out).
#   scripts/mutants.sh [AT_LEAST_OF_NODE [AT_LEAST_OF_DESK [BUILD_FOLDER]]]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
work="${3:-$root/build/mutants}"
libraries=(dewarp_node desk_host desk_egl desk_glesv2)  # what the programs load, so that a fault in it meets them all
programs=(pure_tests rules_tests fakegl_tests stress_tests pixel_tests sweep_tests)  # the quickest first

mkdir -p "$work/tree"
(cd "$root" && tar -c --exclude=./build --exclude=./out --exclude=./.git .) | tar -x --touch -C "$work/tree"  # what an earlier run built of a fault is stale
cmake -S "$work/tree" -B "$work/build" >/dev/null

build() {
  make -C "$work/build" -j"$(nproc)" --no-print-directory "$@" >"$work/output" 2>&1
}
build "${libraries[@]}" "${programs[@]}" || { cat "$work/output" >&2; exit 1; }

# Names the first test of the programs that fails; nothing when all pass.
killer() {
  for program in "$@"; do
    status=0
    timeout 300 "$work/build/tests/$program" --gtest_fail_fast >"$work/output" 2>&1 || status=$?
    if [ "$status" -ne 0 ] && [ "$status" -ne 124 ]; then  # a slow machine finds nothing
      sed -n 's/^\[  FAILED  \] \([A-Za-z/.]*\).*/\1/p' "$work/output" | head -1 | grep . || echo "$program ended"
      return
    fi
  done
}
unharmed="$(killer "${programs[@]}")"
if [ -n "$unharmed" ]; then
  echo "mutants.sh: the tests have to pass before they can find anything; $unharmed fails" >&2
  exit 1
fi

# run_list NAME FILE AT_LEAST: its faults one after the other. In the desk's list each names the program to begin with.
run_list() {
  local killed=0 total=0 names rest file first expression note by
  local -a files
  while IFS='|' read -r names rest; do
    read -ra files <<<"$names"
    first=""
    if [ "$1" = desk ]; then
      first="${rest##*|}"
      rest="${rest%|*}"
    fi
    expression="${rest%|*}"
    note="${rest##*|}"
    total=$((total + 1))
    for file in "${files[@]}"; do
      cp -p "$work/tree/$file" "$work/original.$(basename "$file")"
      sed -i "$expression" "$work/tree/$file"
      if cmp -s "$work/tree/$file" "$work/original.$(basename "$file")"; then
        echo "mutants.sh: nothing in $file matches $expression" >&2
        exit 1
      fi
    done
    if ! build "${libraries[@]}" pure_tests ${first:+"$first"}; then
      echo "mutants.sh: $names does not compile after $expression" >&2
      exit 1
    fi
    by="$([ -z "$first" ] || killer "$first")"
    [ -n "$by" ] || by="$(killer "${programs[@]}")"
    [ -z "$by" ] || killed=$((killed + 1))
    printf '%-9s %-60s %s\n' "$([ -n "$by" ] && echo killed || echo SURVIVED)" "$note" "${by:-$names}"
    for file in "${files[@]}"; do
      mv "$work/original.$(basename "$file")" "$work/tree/$file"
      touch "$work/tree/$file"
    done
  done < <(grep -v '^#' "$2")
  echo "$1 $killed of $total killed"
  [ "$killed" -ge "${3:-$total}" ] || failed=1
}

failed=0
[ "${1:-}" = - ] || run_list node "$root/tests/mutants/node.txt" "${1:-}"
[ "${2:-}" = - ] || run_list desk "$root/tests/mutants/desk.txt" "${2:-}"
exit "$failed"
