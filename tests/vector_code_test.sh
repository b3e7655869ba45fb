#!/bin/sh
# vector_code_test.sh OBJDUMP OBJECT...: whether the gain loop and the scan for zeros among these objects are vector code,
# NEON or SSE2.
objdump=$1
failed=0

# expect SOURCE INSTRUCTION MEANING OBJECT...
expect() {
  source=$1 instruction=$2 meaning=$3
  shift 3
  for object; do
    case $object in *"$source"*) found=$object ;; esac
  done
  "$objdump" -d "$found" | grep -qE "[[:space:]]($instruction)[[:space:]]" && return
  echo "no vector $meaning in $found" >&2
  failed=1
}

shift
expect amplify 'vadd\.i16|v?paddw' 'addition of 16-bit samples' "$@"
expect zero_pair 'vceq\.i16|v?pcmpeqw' 'comparison of pairs of bytes' "$@"
exit $failed
