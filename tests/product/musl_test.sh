#!/bin/bash
# musl_test.sh SOURCE COMPILER: the product's sources compile against musl's headers, and what the objects want is in musl's
# libc, in libstdc++, in libcurl or in the vendor's libraries. That is as far as it goes: there is no libstdc++ and no libcurl
# for musl here, so nothing is linked or run.
set -euo pipefail
source=$1 compiler=$2 here=$(realpath "$(dirname "$0")")
musl=$(ls -d /usr/include/*-linux-musl 2>/dev/null | head -n 1)
[ -n "$musl" ] || { echo "musl_test: left out: Debian's musl-dev is not installed"; exit 77; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { printf 'musl_test: %s\n' "$*" >&2; exit 1; }

# The compiler's own headers and libstdc++'s stay; those of the C library are musl's. libcurl's are reached by a link.
includes=(-nostdinc -nostdinc++ -isystem "$here/musl")
for folder in $("$compiler" -E -v -x c++ /dev/null 2>&1 | sed -n '/^#include </,/^End/s/^ //p'); do
  case $(realpath "$folder") in
    */c++/* | */gcc/*/include | */clang/*/include) includes+=(-isystem "$folder") ;;
    *) [ ! -e "$folder/curl/curl.h" ] || ln -sfn "$folder/curl" "$work/curl" ;;
  esac
done
includes+=(-isystem "$musl" -isystem "$work")

options=(-std=c++20 -Os -fPIC -fno-exceptions -fno-rtti -Wall -Wextra -Werror -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64
  '-DVELO_VERSION="0"' '-DVELO_NIMB_HOST="host"' "${includes[@]}")
printf '%s\n' "${options[@]}" | sed 's/"/\\&/g' >"$work/options"
cd "$source"
find platform -name '*.cpp' -print0 | xargs -0 -P "$(nproc)" -n 1 \
  sh -c '"$0" "@$1/options" -c "$2" -o "$1/$(echo "$2" | tr / _).o"' "$compiler" "$work" || fail "not every source compiles"

# Weak wishes are libstdc++'s for what a C library may have or not.
symbols() { awk -v kinds="$1" 'NF > 1 && $(NF - 1) ~ kinds {sub(/@.*/, "", $NF); print $NF}' | LC_ALL=C sort -u; }
nm "$work"/*.o | symbols '^U$' >"$work/wanted"
exported_by() { nm -D --defined-only "$("$compiler" -print-file-name="$1")"; }
nm "$work"/*.o | symbols '^[A-TV-Z]$' >"$work/own"
{ exported_by libstdc++.so.6; exported_by libgcc_s.so.1; exported_by libcurl.so; } | symbols '.' >"$work/libraries"
printf '%s\n' __dso_handle _GLOBAL_OFFSET_TABLE_ >"$work/linker"
grep -oh '[A-Za-z_0-9]*;' devkit/vendor/exports/*.map | tr -d ';' >"$work/vendor"
nm --defined-only "/usr/lib/${musl##*/}/libc.a" 2>/dev/null | symbols '^[A-Z]$' >"$work/libc"

LC_ALL=C sort -u "$work"/{own,libraries,linker,vendor} | LC_ALL=C comm -23 "$work/wanted" - >"$work/of_libc"
LC_ALL=C comm -23 "$work/of_libc" "$work/libc" >"$work/missing"
[ ! -s "$work/missing" ] || fail "not in musl's libc: $(paste -sd' ' "$work/missing")"
[ "$(wc -l <"$work/of_libc")" -gt 50 ] || fail "the objects want next to nothing of a C library: $(paste -sd' ' "$work/of_libc")"
echo "musl_test: passed: $(ls "$work"/*.o | wc -l) objects, all $(wc -l <"$work/of_libc") names that they want of a C library are in musl's"
