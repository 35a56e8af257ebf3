#!/usr/bin/env bash
# Puts one fault after the other into a copy of the library (tests/mutants/list.txt) and has the tests find it:
# prints a table, and fails when fewer are found than the first argument says (all of them unless given).
#   scripts/mutants.sh [AT_LEAST] [BUILD_FOLDER]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
at_least="${1:-$(grep -vc '^#' "$root/tests/mutants/list.txt")}"
work="${2:-$root/build/mutants}"
programs=(pure_tests fakegl_tests stress_tests pixel_tests sweep_tests)  # the quickest first

mkdir -p "$work/tree"
(cd "$root" && tar -c --exclude=./build --exclude=./out --exclude=./.git .) | tar -x --touch -C "$work/tree"  # what an earlier run built of a fault is stale
cmake -S "$work/tree" -B "$work/build" >/dev/null
make -C "$work/build" -j"$(nproc)" --no-print-directory dewarp_node desk_egl desk_glesv2 "${programs[@]}" >/dev/null

# Names the first test that fails; nothing when all pass.
killer() {
  for program in "${programs[@]}"; do
    status=0
    timeout 300 "$work/build/tests/$program" --gtest_fail_fast >"$work/output" 2>&1 || status=$?
    if [ "$status" -ne 0 ] && [ "$status" -ne 124 ]; then  # a slow machine finds nothing
      sed -n 's/^\[  FAILED  \] \([A-Za-z/.]*\).*/\1/p' "$work/output" | head -1 | grep . || echo "$program ended"
      return
    fi
  done
}
unharmed="$(killer)"
if [ -n "$unharmed" ]; then
  echo "mutants.sh: the tests have to pass before they can find anything; $unharmed fails" >&2
  exit 1
fi

killed=0
total=0
while IFS='|' read -r names rest; do
  read -ra files <<<"$names"
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
  if ! make -C "$work/build" --no-print-directory dewarp_node pure_tests >"$work/output" 2>&1; then
    echo "mutants.sh: $names does not compile after $expression" >&2
    exit 1
  fi
  by="$(killer)"
  [ -z "$by" ] || killed=$((killed + 1))
  printf '%-9s %-60s %s\n' "$([ -n "$by" ] && echo killed || echo SURVIVED)" "$note" "${by:-$names}"
  for file in "${files[@]}"; do
    mv "$work/original.$(basename "$file")" "$work/tree/$file"
    touch "$work/tree/$file"
  done
done < <(grep -v '^#' "$root/tests/mutants/list.txt")
echo "$killed of $total killed"
[ "$killed" -ge "$at_least" ]
