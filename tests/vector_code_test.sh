#!/bin/sh
# vector_code_test.sh OBJDUMP OBJECT...: whether the gain loop among these objects is vector code, NEON or SSE2.
objdump=$1
for object; do
  case $object in *amplify*) found=$object ;; esac
done
if "$objdump" -d "$found" | grep -qE '[[:space:]](vadd\.i16|v?paddw)[[:space:]]'; then
  exit 0
fi
echo "no vector addition of 16-bit samples in $found" >&2
exit 1
