#!/bin/bash
# architecture_test.sh CMAKE SOURCE: what a program was built for is read from its header, so that one for another machine
# than this is packed as such.
set -euo pipefail
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
failed=0
printf 'include(%s/cmake/elf.cmake)\nvelo_elf_architecture(%s name)\nfile(WRITE %s "${name}")\n' \
  "$2" "$work/program" "$work/name" >"$work/ask.cmake"

cmake=$1
expect() {  # NAME DESCRIPTION: of the file $work/program
  "$cmake" -P "$work/ask.cmake"
  [ "$(cat "$work/name")" = "$1" ] || { echo "$2: expected $1, found $(cat "$work/name")"; failed=1; }
}

# Class and byte order, machine, the four bytes where a header of 32 bits has its flags; Debian's name.
while read -r kind machine flags name; do
  header="7f454c46${kind}01000000000000000000 0300${machine}01000000 000000003400000000000000 ${flags} 3400200009002800 1e001d00"
  printf "$(sed 's/ //g; s/../\\x&/g' <<<"$header")" >"$work/program"
  expect "$name" "$kind $machine $flags"
done <<'ROWS'
0201 3e00 00000000 amd64
0101 0300 00000000 i386
0201 b700 00000000 arm64
0101 2800 00040005 armhf
0101 2800 00000005 armhf
0101 2800 00020005 armel
0201 f300 00000000 riscv64
0101 0800 07100070 mipsel
0201 0800 00000000 mips64el
0101 3e00 00000000 unknown
0202 1500 00000000 unknown
0102 2800 00020005 unknown
ROWS

echo 'INPUT(libef.so.1)' >"$work/program"
expect unknown "a linker script"
: >"$work/program"
expect unknown "an empty file"
exit $failed
