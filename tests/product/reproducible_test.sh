#!/bin/bash
# reproducible_test.sh SOURCE BUILD COMPILER: two builds in two folders, by two people with other habits, give the same
# binary and the same packages to the byte; SOURCE_DATE_EPOCH is the time in them, and the version's where nobody sets it.
set -euo pipefail
source "$(dirname "$0")/product_build"
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
vendor_folder "$2" "$work/vendor" "$3"

build_and_pack() {  # FOLDER
  copy_product "$source" "$1"
  build_as_told "$1" "$work/vendor" "$compiler"
  pack "$1" "$1/packages"
}
pack() { cpack --config "$1/build/release/CPackConfig.cmake" -B "$2" >"$work/cpack.log" 2>&1 || fail "$(cat "$work/cpack.log")"; }
sums() { (cd "$1" && sha256sum build/release/VeloAgent packages/*.deb packages/*.tar.gz packages/*.spdx.json); }

source=$1 compiler=$3
one=$work/one/VeloAgent two=$work/and/the/other/one
build_and_pack "$one" &
(umask 077; export TZ=Asia/Tokyo LC_ALL=C.UTF-8 USER=another HOME=/; build_and_pack "$two")
wait $!
[ "$(sums "$one" | wc -l)" = 5 ] || fail "packages: $(ls "$one/packages")"
[ "$(sums "$one")" = "$(sums "$two")" ] || fail "$(printf '%s\nand\n%s' "$(sums "$one")" "$(sums "$two")")"
! grep -aqF "$work" "$one/build/release/VeloAgent" || fail "the binary names the folder that it was built in"

archive=$(cd "$one/packages" && ls ./*.tar.gz)
tar -tzf "$one/packages/$archive" | LC_ALL=C sort -c || fail "the archive is not in the order of names"
[ "$(tar --numeric-owner -tvzf "$one/packages/$archive" | awk '{print $2}' | sort -u)" = 0/0 ] || fail "not root's"

# The time in the packages.
times() { tar --utc --full-time -tvzf "$1" | awk '{print $4, $5}' | sort -u; }
version_time=$(sed -n 's/^set(VELO_VERSION_EPOCH \([0-9]*\)).*/\1/p' "$one/CMakeLists.txt")
[ "$(times "$one/packages/$archive")" = "$(date -u -d "@$version_time" '+%F %T')" ] || fail "times: $(times "$one/packages/$archive")"
SOURCE_DATE_EPOCH=1000000000 pack "$one" "$work/dated"
[ "$(times "$work/dated/$archive")" = "2001-09-09 01:46:40" ] || fail "times: $(times "$work/dated/$archive")"
[ "$(dpkg-deb --fsys-tarfile "$work"/dated/*.deb | tar --utc --full-time -tvf - | awk '{print $4, $5}' | sort -u)" = "2001-09-09 01:46:40" ] ||
  fail "times in the .deb"
sums "$one"
echo "reproducible_test: passed"
