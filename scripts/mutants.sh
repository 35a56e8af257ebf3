#!/usr/bin/env bash
# Puts one fault after the other into a copy of the library (tests/mutants/node.txt) and of the desk that proves it
# (tests/mutants/desk.txt) and has the tests find it: prints a table, and fails when fewer are found of a list than its
# argument says (all of them unless given; - leaves the list out). A fault that the tests named beside it do not find
# all tests are run against.
#   scripts/mutants.sh [AT_LEAST_OF_NODE [AT_LEAST_OF_DESK [BUILD_FOLDER]]]
set -euo pipefail

root="$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)"
work="$(realpath -m "${3:-$root/build/mutants}")"
tree="$work/tree"

# What an earlier run built of a fault is stale: every source is as new as this run.
mkdir -p "$tree"
(cd "$root" && tar -c --exclude=./build --exclude=./out --exclude=./.git .) | tar -x --touch -C "$tree"
cmake -S "$tree" --preset mutants -B "$work/build" >/dev/null

build() {
  cmake --build "$work/build" -j"$(nproc)" "$@" >"$work/output" 2>&1
}

# Names what fails of the tests that an entry names: a program, rows of the command line's (cli:ROW), or one of ctest's
# tests. Nothing when they pass, or take so long that only the machine can be to blame.
named_killer() {
  local status=0 program="$work/build/tests/$1"
  if [ -x "$program" ]; then
    timeout 300 "$program" --gtest_fail_fast >"$work/output" 2>&1 || status=$?
  elif [[ "$1" = cli:* ]]; then
    timeout 300 "$tree/tests/desk/cli/run.sh" "$work/build/bin/dewarp-desk" "${1#cli:}" >"$work/output" 2>&1 || status=$?
  else
    ctest --test-dir "$work/build" -R "^$1\$" --timeout 300 --no-tests=error >"$work/output" 2>&1 || status=$?
  fi
  if [ "$status" -eq 0 ] || [ "$status" -eq 124 ]; then
    return
  elif [ -x "$program" ]; then
    sed -n 's/^\[  FAILED  \] \([A-Za-z/.]*\).*/\1/p' "$work/output" | head -1 | grep . || echo "$1 ended"
  else
    echo "$1"
  fi
}

# The same for all tests.
any_killer() {
  build || { echo "the build"; return; }
  ctest --test-dir "$work/build" --stop-on-failure --timeout 300 -j"$(nproc)" >"$work/output" 2>&1 || {
    sed -n 's/^\t *[0-9]* - \([^ ]*\) (.*/\1/p' "$work/output" | head -1 | grep . || echo "ctest ended"
  }
}

build || { cat "$work/output" >&2; exit 1; }
unharmed="$(any_killer)"
if [ -n "$unharmed" ]; then
  echo "mutants.sh: the tests have to pass before they can find anything; $unharmed fails" >&2
  exit 1
fi

# put FAULT FILE...: changes each file, and remembers it as it was.
put() {
  local expression="$1" file
  shift
  for file in "$@"; do
    cp -p "$tree/$file" "$work/original.$(basename "$file")"
    sed -i "$expression" "$tree/$file"
    if cmp -s "$tree/$file" "$work/original.$(basename "$file")"; then
      echo "mutants.sh: nothing in $file matches $expression" >&2
      exit 1
    fi
  done
}
take_back() {
  for file in "$@"; do
    mv "$work/original.$(basename "$file")" "$tree/$file"
    touch "$tree/$file"
  done
}

# run_list NAME FILE AT_LEAST: its faults one after the other.
run_list() {
  local killed=0 total=0 names rest tests note by
  local -a files targets
  while IFS='|' read -r names rest; do
    read -ra files <<<"$names"
    tests="${rest##*|}"
    rest="${rest%|*}"
    note="${rest##*|}"
    total=$((total + 1))
    put "${rest%|*}" "${files[@]}"
    targets=(dewarp-desk rogue_node read_clip)
    [ ! -x "$work/build/tests/$tests" ] || targets=("$tests")
    if ! build --target "${targets[@]}"; then
      echo "mutants.sh: $names does not compile after ${rest%|*}" >&2
      exit 1
    fi
    by="$(named_killer "$tests")"
    [ -n "$by" ] || by="$(any_killer)"
    [ -z "$by" ] || killed=$((killed + 1))
    printf '%-9s %-60s %s\n' "$([ -n "$by" ] && echo killed || echo SURVIVED)" "$note" "${by:-$names}"
    take_back "${files[@]}"
  done < <(grep -v '^#' "$2")
  echo "$1 $killed of $total killed"
  [ "$killed" -ge "${3:-$total}" ] || failed=1
}

failed=0
[ "${1:-}" = - ] || run_list node "$root/tests/mutants/node.txt" "${1:-}"
[ "${2:-}" = - ] || run_list desk "$root/tests/mutants/desk.txt" "${2:-}"
exit "$failed"
