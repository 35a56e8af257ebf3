#!/usr/bin/env bash
# Loads the node library with the host's symbols in each place where they can stand, and compares what Android's linker
# says to it with what docs/DEVICE.md says. Run with LD_LIBRARY_PATH set for the programs.
# Usage: cases.sh PROGRAMS NODE NODE_THAT_NAMES_THE_HOST_LIBRARY
set -euo pipefail

programs="$1"
node="$2"
naming="$3"
export LD_LIBRARY_PATH="$programs${LD_LIBRARY_PATH:+:$LD_LIBRARY_PATH}"
not_found='dlopen failed: cannot locate symbol "g_enableLuxLogs" referenced by'
host=libloader_host.so
global=libloader_global.so

count=0
broken=0
row() {  # where the symbols stand, what is expected, what is run
  local place="$1" expected="$2" found
  shift 2
  found="$(env "$@" 2>/dev/null || true)"
  printf '%-52s %s\n' "$place" "$found"
  count=$((count + 1))
  if [ "${found:0:${#expected}}" != "$expected" ]; then
    printf 'cases.sh: expected "%s"\n' "$expected" >&2
    broken=1
  fi
}
row "nowhere" "$not_found" "$programs/loads" "$node"
row "in the program" "loads" "$programs/loads_with_symbols" "$node"
row "in a library that the program needs" "$not_found" "$programs/loads_linked" "$node"
row "the same, linked with -z global" "loads" "$programs/loads_linked_global" "$node"
row "in a preloaded library" "loads" "LD_PRELOAD=$host" "$programs/loads" "$node"
row "in a library loaded with RTLD_GLOBAL" "$not_found" "$programs/loads" "$node" "$host"
row "the same, linked with -z global" "loads" "$programs/loads" "$node" "$global"
row "in a library that the program and the node need" "loads" "$programs/loads_linked" "$naming"
row "in a library loaded before, that the node needs" "loads" "$programs/loads" "$naming" "$host"
row "in a library that the node alone needs" "loads" "$programs/loads" "$naming"
echo "loader: $count cases, $([ "$broken" -eq 0 ] && echo all as expected || echo not all as expected)"
exit "$broken"
