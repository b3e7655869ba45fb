#!/bin/sh
# The dynamic face of the agent's binary: it exports the listed names and no other, needs the libraries below and
# no other, and holds no copy of a library's variable. Usage: exported_names_test.sh VeloAgent exports.list
set -eu
agent=$1
list=$2
failed=0

compare() {
    if [ "$2" != "$3" ]; then
        printf '%s differ\n--- expected\n%s\n--- found\n%s\n' "$1" "$2" "$3"
        failed=1
    fi
}

compare "exported names" \
    "$(sed -n 's/^ *\([A-Za-z_0-9]*\);$/\1/p' "$list" | LC_ALL=C sort)" \
    "$(readelf --dyn-syms --wide "$agent" |
        awk '$1 ~ /^[0-9]+:$/ && $5 != "LOCAL" && $7 != "UND" { sub(/@.*/, "", $8); print $8 }' | LC_ALL=C sort)"

# The loader and the compiler's own library are no choice of ours, nor what a sanitizer brings.
ignored='^ld-linux\|^libgcc_s\|^lib[a-z]*san\.'
needed=$(readelf --dynamic --wide "$agent" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p')
case $needed in *san.so*) ignored="$ignored\|^libm\." ;; esac
compare "needed libraries" \
    "$(printf '%s\n' libc.so.6 libcurl.so.4 libef.so libstdc++.so.6 libusock.so libvq_ipca.so)" \
    "$(printf '%s\n' "$needed" | grep -v "$ignored" | LC_ALL=C sort)"

compare "copy relocations" "" "$(readelf --relocs --wide "$agent" | grep '_COPY ' || true)"

exit $failed
