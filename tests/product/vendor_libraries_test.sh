#!/bin/bash
# vendor_libraries_test.sh SOURCE BUILD COMPILER: the README's commands build the agent with a folder of prebuilt libraries
# (copies of the stand-ins of BUILD) where nothing is that only desk and tests need; and what is missing is told by its
# name, before anything is compiled.
set -euo pipefail
source "$(dirname "$0")/product_build"
source=$1 build=$2 compiler=$3
if [ "${4:-}" != hidden ]; then
  namespaces=(--mount)
  [ "$(id -u)" = 0 ] || namespaces+=(--user --map-root-user)
  exec unshare "${namespaces[@]}" "$0" "$@" hidden
fi
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# --- The packages of desk and tests are gone, in this process' own mount namespace.
shopt -s nullglob
for folder in /usr/include/{nlohmann,gtest,gmock} /usr/include/*-linux-gnu*/{libav*,libsw*} \
  /usr/{lib,share,lib/*-linux-gnu*}/{pkgconfig,cmake/nlohmann_json,cmake/GTest}; do
  [ ! -d "$folder" ] || mount -t tmpfs tmpfs "$folder"
done
echo '#error "not for the product"' >"$work/error.h"
[ ! -e /usr/include/httplib.h ] || mount --bind "$work/error.h" /usr/include/httplib.h

copy_product "$source" "$work/VeloAgent"
vendor=$work/vendor
vendor_folder "$build" "$vendor" "$compiler"

# --- What is missing.
product=(-DVELO_DESK=OFF -DVELO_TESTS=OFF)
missing() {  # ARGUMENT... -- TEXT...: cmake with these arguments fails and its message holds the texts.
  local arguments=() said
  while [ "$1" != -- ]; do arguments+=("$1"); shift; done
  shift
  if CXX=$compiler cmake --fresh -G Ninja -S "$source" -B "$work/missing" "${arguments[@]}" >"$work/said" 2>&1; then
    fail "cmake ${arguments[*]} went through"
  fi
  said=$(tr -s ' \n' ' ' <"$work/said")
  for text; do
    [[ $said == *"$text"* ]] || fail "cmake ${arguments[*]} does not tell: $text"$'\n'"$(cat "$work/said")"
  done
}
mkdir "$work/"{none,one_short,foreign}
cp "$vendor"/lib{vq_ipca,usock}.so "$work/one_short"
cp "$vendor"/lib*.so "$work/foreign"
printf '\x08' | dd of="$work/foreign/libef.so" bs=1 seek=18 conv=notrunc status=none

missing "${product[@]}" -DVELO_VENDOR_LIB_DIR="$work/none" -- \
  "$work/none/libvq_ipca.so is not there" "$work/none/libef.so is not there" "$work/none/libusock.so is not there"
missing "${product[@]}" -DVELO_VENDOR_LIB_DIR="$work/one_short" -- "$work/one_short/libef.so is not there"
missing "${product[@]}" -DVELO_VENDOR_LIB_DIR="$work/foreign" -- "$work/foreign/libef.so is no library for"
missing "${product[@]}" -DVELO_VENDOR_LIB_DIR="$vendor" -DCMAKE_DISABLE_FIND_PACKAGE_CURL=ON -- 'libcurl4-openssl-dev'
missing -DVELO_VENDOR_LIB_DIR="$vendor" -- 'Add -DVELO_DESK=OFF -DVELO_TESTS=OFF'
missing "${product[@]}" -- 'nlohmann-json3-dev'
missing -- 'FFmpeg (Debian: libavcodec-dev' 'nlohmann-json3-dev' 'libgtest-dev' 'libcpp-httplib-dev'

# --- The README's way.
build_as_told "$work/VeloAgent" "$vendor" "$compiler"
agent=$work/VeloAgent/build/release/VeloAgent
needed=$(readelf -d "$agent" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
for name in libvq_ipca.so libef.so libusock.so libcurl.so.4; do
  grep -qxF "$name" <<<"$needed" || fail "$name is not asked for by its name alone: $needed"
done
! readelf -d "$agent" | grep -E 'RPATH|RUNPATH' || fail "the binary names a folder"
unresolved=$(LD_LIBRARY_PATH=$vendor ldd -r "$agent" 2>&1 | grep -E 'not found|undefined' || true)
[ -z "$unresolved" ] || fail "$unresolved"
grep -i 'warning' "$work/VeloAgent.log" && fail "the build warns"
echo "vendor_libraries_test: passed"
