#!/bin/bash
# run_path_test.sh BUILD: no program or library of this build looks for libraries in an empty or a relative folder, which is
# whatever folder it is started in. (What is installed has no such list at all: the test package.contents.)
set -u
failed=0
files=0
while IFS= read -r -d '' file; do
  [ "$(head -c 4 "$file" | tail -c 3)" = ELF ] || continue
  files=$((files + 1))
  list=$(readelf -d "$file" | sed -n 's/.*R\(UN\)\?PATH.*\[\(.*\)\]$/:\2:/p')
  [ -n "$list" ] || continue
  if echo "$list" | sed 's/:\(\/\|\$ORIGIN\)[^:]*//g' | grep -qv '^:$'; then
    echo "$file: $list"
    failed=1
  fi
done < <(find "$1" -type f \( -perm -u+x -o -name '*.so*' \) ! -path '*/CMakeFiles/*' ! -path '*/_CPack_Packages/*' -print0)
echo "$files files looked at"
[ "$files" -gt 0 ] && exit $failed
