#!/bin/bash
# all_shell_scripts_test.sh SOURCE SHELLCHECK: shellcheck has no warning about any shell script of the project, whatever its name.
set -euo pipefail
cd "$1"
mapfile -t scripts < <(find . \( -path "./build*" -o -name .git -o -name node_modules \) -prune -o -type f -exec \
  awk 'FNR == 1 && /^#!.*[\/ ](ba|da)?sh( |$)|^# shellcheck shell=/ { print FILENAME } { nextfile }' {} + | sort)
[ ${#scripts[@]} -ge 50 ] || { echo "all_shell_scripts_test: only ${#scripts[@]} scripts found" >&2; exit 1; }
"$2" -x -P SCRIPTDIR -S warning "${scripts[@]}"
echo "all_shell_scripts_test: ${#scripts[@]} scripts"
