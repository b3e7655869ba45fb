#!/bin/bash
# architecture_test.sh CHECKOUT: docs/ARCHITECTURE.md names each thread's routine and each mutex of the product, this one in a row
# with the file that it stands in.
set -euo pipefail
cd "$1"
document=docs/ARCHITECTURE.md
failures=0
missing() {
  echo "$document: $*" >&2
  failures=$((failures + 1))
}

# The routine is the argument before the last, whatever creates the thread.
routines=$(grep -rhoE '\b(pthread_create|start_thread|start_wanted_thread)\([^;{]*' platform --include='*.cpp' |
  grep -oE ', *[A-Za-z_]+, *[^,]+\)' | grep -oE '^, *[A-Za-z_]+' | tr -d ', ' | sort -u | grep -v '^routine$')
[ "$(wc -w <<<"$routines")" -ge 7 ] || missing "few thread routines found in the sources:" $routines
for routine in $routines; do
  grep -q "^| \`$routine\`" "$document" || missing "no row for the thread of $routine"
done

mutexes=$(grep -rnoE 'std::mutex [a-z_]+( *[;{=]|$)' platform --include='*.cpp' --include='*.h' |
  sed -E 's/^([^:]*):[0-9]*:std::mutex ([a-z_]+).*/\1 \2/' | sort -u)
[ "$(wc -l <<<"$mutexes")" -ge 15 ] || missing "few mutexes found in the sources: $mutexes"
while read -r file name; do
  grep -F "\`$name\`" "$document" | grep -qF "\`$(basename "$file")\`" ||
    missing "no row for the mutex $name of $file"
done <<<"$mutexes"
exit $((failures > 0))
