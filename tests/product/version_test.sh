#!/bin/sh
# version_test.sh VeloAgent VERSION SOURCE: the binary tells its version to readelf and to strings, stripped as well, and
# the version stands in one place of the sources.
set -eu
work=$(mktemp -d)
trap 'rm -r "$work"' EXIT
text="{\"name\":\"veloagent\",\"version\":\"$2\"}"
fail() { echo "version_test: $*"; exit 1; }

# (The strip of this machine does not know every target's files; a note is in a loaded segment, which none touches.)
readelf --notes "$1" >"$work/notes" 2>&1
grep -qF "Packaging Metadata: $text" "$work/notes" || fail "no note: $(cat "$work/notes")"
strings "$1" | grep -qxF "$text" || fail "strings does not find $text"
readelf --wide --segments "$1" | grep -q ' \.note\.package' || fail "the note is in no segment: strip may drop it"

again=$(cd "$3" && grep -rnwF "$2" CMakeLists.txt CMakePresets.json cmake platform packaging scripts run test |
  grep -v -e '^CMakeLists.txt:[0-9]*:project(VeloAgent VERSION ' -e 'dpkg --compare-versions' || true)  # a step of the past
[ -z "$again" ] || fail "the version once more: $again"
