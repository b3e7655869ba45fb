#!/bin/bash
# keep_conf_test.sh PACKAGES BUILD [busybox]: how a configuration is made and gets the keys that it lacks.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
packaging=$(cd "$(dirname "$0")/.." && pwd)
shell=dash
if [ "${3:-}" = busybox ]; then
  command -v busybox >/dev/null || { echo "keep_conf_test: no busybox here" && exit 0; }
  shell='busybox sh'
fi
keep() { $shell "$packaging"/keep-conf "$@"; }
mkdir /tmp/kept
cd /tmp/kept
printf '# Header.\n\n# Two keys,\n# one comment.\nA=1\nB=2\n\nC=3\n#D=4\n\n# Last.\nE==5\n' >sample

# Made from the first source that can be read, for root alone, completed from the others.
keep conf nothing sample
cmp -s conf sample || fail "not made from the sample"
expect "mode" 600 "$(stat -c %a conf)"
printf 'C=7\n' >factory
rm conf
keep conf factory sample
expect "made from two" $'C=7\n\n# Two keys,\n# one comment.\nA=1\nB=2\n\n# Last.\nE==5' "$(cat conf)"
rm conf
keep conf nothing 2>/dev/null && fail "made from nothing"
[ ! -e conf ] || fail "an empty configuration"

# What is there stays, byte for byte: here a value with everything in it, and no line end.
row() { # WHAT BEFORE ADDED
  printf '%b' "$2" >conf
  chmod 640 conf
  keep conf sample
  printf '%b' "$2$3" | cmp -s - conf || fail "$1: $(diff <(printf '%b' "$2$3") conf)"
  expect "$1: mode" 640 "$(stat -c %a conf)"
}
all='\n# Two keys,\n# one comment.\nA=1\nB=2\nC=3\n\n# Last.\nE==5\n'
row "nothing is lacking" 'E=\nC= x \nB==\nA=$(touch /tmp/x)`&\\\\'"'"'"|%%s\n' ''
row "no line end" 'A=1\nB=1\nC=1' '\n\n# Last.\nE==5\n'
row "one key of a comment's two" 'A=1\nC=1\nE=1\n' '\n# Two keys,\n# one comment.\nB=2\n'
row "blanks around a line, and a carriage return" '  A=1\r\n\t B=1 \nC=1\nE=1\n' ''
row "a blank makes another key" 'A =1\nB=1\nC=1\nE=1\n' '\n# Two keys,\n# one comment.\nA=1\n'
row "a comment is no key" '#A=1\nB=1\nC=1\nE=1\n' '\n# Two keys,\n# one comment.\nA=1\n'
row "an empty file" '' "$all"
rm -f x

# By links, which stay.
mkdir -p elsewhere
echo A=9 >elsewhere/real
ln -s elsewhere/real second
ln -s /tmp/kept/second first
keep first sample
[ -L first ] && [ -L second ] || fail "a link was replaced"
expect "the file behind the links" A=9 "$(head -n 1 elsewhere/real)"
grep -q E==5 elsewhere/real || fail "nothing was added behind the links"

# A full disk, a file system that cannot be written: as it was, and no rests.
mkdir full
mount -t tmpfs -o size=8k tmpfs full
printf 'A=1\n' >full/conf
dd if=/dev/zero of=full/filler bs=1k 2>/dev/null || true
keep full/conf sample 2>/dev/null && fail "keys were added on a full disk"
expect "on a full disk" A=1 "$(cat full/conf)"
expect "rests on a full disk" "conf filler" "$(cd full && echo *)"
rm full/filler
mount -o remount,ro full
keep full/conf sample 2>/dev/null && fail "keys were added on a read-only disk"
expect "on a read-only disk" A=1 "$(cat full/conf)"
expect "rests" "" "$(find /tmp/kept -name '*.new')"
echo "keep_conf_test: passed"
