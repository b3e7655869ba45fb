#!/bin/bash
# log_reference_test.sh CHECKOUT: what scripts/log-reference notices. Each case changes one thing in a copy of the checkout.
set -euo pipefail
checkout=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fresh_copy() {
  rm -rf "$work/copy"
  mkdir -p "$work/copy/docs"
  cp -r "$checkout/platform" "$checkout/scripts" "$work/copy"
  cp "$checkout"/docs/*.md "$work/copy/docs"
  cd "$work/copy"
}
fail() {
  echo "log_reference_test: $1" >&2
  sed 's/^/    /' "$work/said" >&2
  failures=$((failures + 1))
}

# CASE PATTERN: the check fails, and says so in a line that PATTERN fits.
notices() {
  if scripts/log-reference --check >"$work/said" 2>&1; then
    fail "$1: not noticed"
  elif ! grep -qE "$2" "$work/said"; then
    fail "$1: noticed, but nothing like: $2"
  fi
}
# CASE COMMAND...: the command changes nothing that the check minds.
passes() {
  "${@:2}" >"$work/said" 2>&1 || true
  scripts/log-reference --check >"$work/said" 2>&1 || fail "$1: does not pass"
}
source=platform/Z55/ak_model/remote_operations.cpp

fresh_copy
passes "the checkout as it is" true

# --- A text without an entry, in each way that a text is printed.
row=0
while IFS='|' read -r what code shown; do
  row=$((row + 1))
  fresh_copy
  printf 'void added_%d() {\n    %s\n}\n' "$row" "$code" >>$source
  notices "$what" "^$source:[0-9]+: no entry in docs/LOG.md: $shown$"
done <<'ROWS'
puts|std::puts("a new line");|a new line
printf, joined literals|std::printf("a new " "number %d" /* half */ " of two\n", row);|a new number %d of two
printf without a line end|std::printf("no end");|no end
perror|std::perror("went wrong");|went wrong: %m
fprintf to standard error|std::fprintf(stderr, "bad: %s\n", text);|bad: %s
fputs to standard error|std::fputs("bad again\n", stderr);|bad again
write to standard error|write(STDERR_FILENO, "raw\n", 4);|raw
one of two|std::puts(good ? "yes" : "no, never");|no, never
ROWS

fresh_copy
sed -i 's/{2, "PTZ control: DOWN", nullptr},/& {6, "PTZ control: ZOOM", nullptr},/' $source
notices "a row of a table" "no entry in docs/LOG.md: PTZ control: ZOOM$"

fresh_copy
sed -i 's/"setting battery_armed off"/"battery off"/' platform/Z55/ak_model/parameters.cpp
notices "a text that a format continues" 'no entry in docs/LOG.md: battery off, ---%s,line %d$'
notices "the text it was" 'no source prints: setting battery_armed off, ---%s,line %d$'

# --- Prints that the script cannot follow are no way around it.
fresh_copy
printf 'void added(const char *text) {\n    std::puts(text);\n}\n' >>$source
notices "a text from a variable" "^$source:[0-9]+: puts text: not a literal"
fresh_copy
printf 'void added(va_list list) {\n    std::vprintf("%%d", list);\n}\n' >>$source
notices "another way to print" "^$source:[0-9]+: .* cannot read what vprintf prints$"
# --- An entry without a text.
fresh_copy
sed -i '/"system reboot failure"/d' platform/Z55/ak_model/reboot.cpp
notices "a text that is gone" "^docs/LOG.md: no source prints: system reboot failure$"

# --- Texts that are no log.
fresh_copy
printf '// std::puts("a comment");\n#define X puts("a macro that nobody uses")\nvoid f(FILE *file) { std::fprintf(file, "a file\\n"); }\n' >>$source
passes "comments, macros, files" true

# --- --write adds what is to be described, and says nothing in its place.
fresh_copy
sed -i 's/"system reboot failure"/"system does not reboot"/' platform/Z55/ak_model/reboot.cpp
scripts/log-reference --write >"$work/said" || true
grep -q '^dropped: .*: system reboot failure$' "$work/said" || fail "what is dropped is not named"
notices "an entry without explanation" "^docs/LOG.md: nothing said yet of: system does not reboot$"
passes "the same, described" sed -i 's/TODO/this is said./g' docs/LOG.md

fresh_copy
sed -i 's/^- `\(PTZ control: UP\)`$/- `\1` (stderr)/' docs/LOG.md
notices "a document that is not as written" "not as scripts/log-reference --write writes it$"
fresh_copy
scripts/log-reference --write >"$work/said"
cmp -s docs/LOG.md "$checkout/docs/LOG.md" || fail "--write changes a document that is in order"

# --- Quoted lines.
fresh_copy
printf '\n| Line | Cause |\n|---|---|\n| `SD alarm had sent , do nothing` | none |\n' >>docs/TROUBLESHOOTING.md
notices "a quoted line that nothing prints" "^docs/TROUBLESHOOTING.md:[0-9]+: no text fits: SD alarm had sent , do nothing$"

exit $((failures > 0))
