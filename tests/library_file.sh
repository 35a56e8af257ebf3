#!/usr/bin/env bash
# Reads the built library and says whether the file is what a host may load: one export, only known imports,
# no GL library, nothing run at load time, hardened. Takes builds for x86-64 and for AArch64.
# Usage: library_file.sh LIBRARY
set -euo pipefail
export LC_ALL=C

library="$1"
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
broken=0
check() {  # what was expected, what was found
  if [ "$2" != "$1" ]; then
    printf 'expected:\n%s\nfound:\n%s\n\n' "$1" "$2"
    broken=1
  fi
}

dynamic="$(readelf -dW "$library")"
imports="$(nm -D --undefined-only "$library" | awk '{ print $2 }')"
is_aarch64="$(readelf -hW "$library" | grep -c 'AArch64' || true)"
known="$(grep -v '^#' "$here/library_imports.txt")"
if [ "$is_aarch64" -eq 1 ]; then
  # The same argument list, whose type each processor's conventions name in their own way.
  known="${known/P13__va_list_tag/St9__va_list}"
fi
check "LumNodeEntry" "$(nm -D --defined-only "$library" | awk '{ print $3 }')"
check "$(sort <<<"$known")" "$(grep -vE '@(GLIBC|GLIBCXX|CXXABI|GCC)_|^(__gmon_start__|_ITM_)' <<<"$imports" | sort)"
check "__stack_chk_fail" "$(grep -o '^__stack_chk_fail' <<<"$imports" || true)"
check "__vsnprintf_chk" "$(grep -o '^__vsnprintf_chk' <<<"$imports" || true)"
check "libc.so.6 libcutils.so.0 liblog.so.0 libutils.so.0" \
  "$(sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' <<<"$dynamic" | grep -v '^ld-linux' | sort | xargs)"
check "" "$(grep -E 'TEXTREL' <<<"$dynamic" || true)"
check "BIND_NOW" "$(grep -o 'BIND_NOW' <<<"$dynamic" || true)"
segments="$(readelf -lW "$library")"
check "RW" "$(awk '/GNU_STACK/ { print $7 }' <<<"$segments")"
check "GNU_RELRO" "$(grep -o 'GNU_RELRO' <<<"$segments" | head -1)"
# The compiler's own start file registers one function at each end; a constructor of ours would be a second.
check "8 8" "$(sed -n 's/.*(\(INIT\|FINI\)_ARRAYSZ) *\([0-9]*\).*/\2/p' <<<"$dynamic" | xargs)"
check "" "$(nm -D "$library" | awk '$2 == "u"')"
if [ "$is_aarch64" -eq 1 ]; then
  check "0x4000" "$(awk '/ LOAD / { print $NF }' <<<"$segments" | sort -u)"
fi
exit $broken
