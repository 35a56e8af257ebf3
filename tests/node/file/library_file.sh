#!/usr/bin/env bash
# Reads the built library and says whether the file is what a host may load: one export, only known imports,
# no GL library, nothing run at load time, hardened, no word about where it was built. Takes builds for x86-64 and for
# AArch64, for a workstation and for Android. The libraries of the host are those that the build was told of.
# Usage: library_file.sh LIBRARY [HOST_LIBRARY...]
set -euo pipefail
export LC_ALL=C

library="$1"
shift
here="$(cd "$(dirname "${BASH_SOURCE[0]}")" && pwd)"
build="$(cd "$(dirname "$library")/.." && pwd)"
broken=0
check() {  # what was expected, what was found
  if [ "$2" != "$1" ]; then
    printf 'expected:\n%s\nfound:\n%s\n\n' "$1" "$2"
    broken=1
  fi
}

dynamic="$(readelf -dW "$library")"
notes="$(readelf -nW "$library")"
imports="$(nm -D --undefined-only "$library" | awk '{ print $2 }')"
is_aarch64="$(readelf -hW "$library" | grep -c 'AArch64' || true)"
is_android="$(grep -c '^  Android ' <<<"$notes" || true)"
known="$(grep -v '^#' "$here/library_imports.txt")"
if [ "$is_aarch64" -eq 1 ]; then
  # The same argument list, whose type each processor's conventions name in their own way.
  known="${known/P13__va_list_tag/St9__va_list}"
fi
if [ "$is_android" -eq 1 ]; then
  # The same FILE, which each C library declares under a name of its own.
  known="${known//P8_IO_FILE/P7__sFILE}"
fi
check "LumNodeEntry" "$(nm -D --defined-only "$library" | awk '{ print $3 }')"
check "$(sort <<<"$known")" "$(grep -vE '@(GLIBC|GLIBCXX|CXXABI|GCC)_|@LIBC$|^(__gmon_start__|_ITM_)' <<<"$imports" |
  sed 's/@LIBLOG.*//' | sort)"
check "__stack_chk_fail" "$(grep -o '^__stack_chk_fail' <<<"$imports" || true)"
if [ "$is_android" -eq 0 ]; then
  # Android's headers take the checked form only where they know the buffer's size.
  check "__vsnprintf_chk" "$(grep -o '^__vsnprintf_chk' <<<"$imports" || true)"
fi
needed=(libc.so libcutils.so liblog.so libutils.so)
for host in "$@"; do
  needed+=("$(basename "$host")")
done
check "$(printf '%s\n' "${needed[@]}" | sort)" \
  "$(sed -n 's/.*(NEEDED).*\[\(.*\.so\).*\]/\1/p' <<<"$dynamic" | grep -v '^ld-linux' | sort)"
check "" "$(grep -E 'TEXTREL' <<<"$dynamic" || true)"
check "BIND_NOW" "$(grep -o 'BIND_NOW' <<<"$dynamic" || true)"
segments="$(readelf -lW "$library")"
check "RW" "$(awk '/GNU_STACK/ { print $7 }' <<<"$segments")"
check "GNU_RELRO" "$(grep -o 'GNU_RELRO' <<<"$segments" | head -1)"
# The compiler's own start file registers one function at each end, the NDK's two at the end; a constructor of ours
# would be one more.
start_file="INIT 8 FINI 8"
[ "$is_android" -eq 0 ] || start_file="FINI 16"
check "$start_file" "$(sed -n 's/.*(\(INIT\|FINI\)_ARRAYSZ) *\([0-9]*\).*/\1 \2/p' <<<"$dynamic" | xargs)"
check "" "$(nm -D "$library" | awk '$2 == "u"')"
if [ "$is_aarch64" -eq 1 ]; then
  check "0x4000" "$(awk '/ LOAD / { print $NF }' <<<"$segments" | sort -u)"
fi
if [ "$is_android" -eq 1 ]; then
  # What a device's loader and crash reports read: no search path, and the NDK's way of telling builds apart.
  check "" "$(grep 'RUNPATH\|RPATH' <<<"$dynamic" || true)"
  check "1" "$(grep -c 'Build ID: [0-9a-f]\{40\}$' <<<"$notes" || true)"
fi
if [ "$is_aarch64$is_android" = 11 ]; then
  check "BTI, PAC" "$(sed -n 's/.*AArch64 feature: //p' <<<"$notes")"
fi
for file in "$library" "$build"/desk/system/lib64/*.so; do
  if [ -f "$file" ] && grep -qaF -e "$build" -e "$(dirname "$here")" "$file"; then
    check "" "$(strings -a "$file" | grep -F -e "$build" -e "$(dirname "$here")" | sort -u | sed "s|^|$file: |")"
  fi
done
exit $broken
