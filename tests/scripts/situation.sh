# shellcheck shell=bash disable=SC2034 # some are for the tests
# Sourced by the tests of ./run and ./test: a copy of the checkout's scripts in a folder of its own, and around it a machine
# that is what the test says, because apt-get, sudo, cmake and ctest are programs of this file. Nothing is installed or built.
#   FAKE_MISSING  packages that are not installed
#   FAKE_APT      text that apt-get fails with
#   FAKE_BUILD    text that the build fails with
#   FAKE_WAITS    set: each step waits until the screen shows what a changing line should, but 30 s at most
#   FAKE_TESTS    what ctest returns
#   FAKE_TIMES    the tests that ctest has run and their seconds: "NAME SECONDS" in pairs
#   FAKE_FREE_MB  free space on the disk
#   FAKE_USER     who the user is, where it is not the real one
# Each call of apt-get, sudo, cmake and ctest is a line of $work/calls.
set -uo pipefail

source_dir=$(cd "$(dirname "${BASH_SOURCE[0]}")/../.." && pwd)
as_nobody=(setpriv --reuid=65534 --regid=65534 --clear-groups)

# prepare FOLDER: a new checkout in FOLDER, which becomes the current one.
prepare() {
  work=$1
  chmod 755 "$work"
  mkdir -p "$work/fake" "$work/VeloAgent/packaging"
  : >"$work/calls"
  chmod 666 "$work/calls"
  cp -r "$source_dir"/{run,test,scripts,CMakePresets.json} "$work/VeloAgent"
  cp "$source_dir/packaging/VeloAgent.conf.sample" "$work/VeloAgent/packaging"
  make_fakes
  PATH=$work/fake:$PATH
  export work
  cd "$work/VeloAgent" || exit 1
}

fake() {
  { echo '#!/bin/bash' && cat; } >"$work/fake/$1"
  chmod 755 "$work/fake/$1"
}
# The same, and its calls are recorded.
fake_action() {
  # shellcheck disable=SC2016
  { printf 'echo "%s $*" >>"$work/calls"\n' "$1" && cat; } | fake "$1"
}

make_fakes() {
  fake shown <<'F'
for ((i = 0; i < ${FAKE_WAITS:+300} + 0; i++)); do grep -qF -e "$1" "$work/out" && exit || sleep 0.1; done
F
  fake dpkg-query <<'F'
case " ${FAKE_MISSING:-} " in *" ${*: -1} "*) exit 1 ;; esac
echo "installed "
F
  fake_action apt-get <<'F'
if [[ $* == *--print-uris* ]]; then
  printf "'http://mirror/%s.deb' %s.deb 70500000 SHA256:00\n" one one two two three three
elif [ -n "${FAKE_APT:-}" ]; then
  echo "$FAKE_APT" && exit 100
elif [[ $* == *update ]]; then
  echo 'dlstatus:1:25.0000:Retrieving file 1 of 4' && shown '25 %, Retrieving file 1 of 4'
else
  echo 'pmstatus:one:50.1234:Unpacking one' && shown '50 %, Unpacking one'
fi
F
  fake_action sudo <<'F'
[ "$1" != -n ] || shift
"$@"
F
  fake_action cmake <<'F'
[[ $* == *--build* ]] || exit 0
for step in 1 2 3; do echo "[$step/3] Building part $step" && shown "[$step/3]"; done
[ -z "${FAKE_BUILD:-}" ] || { echo "$FAKE_BUILD" && exit 1; }
F
  fake_action ctest <<'F'
[ "$*" != --help ] || { printf -- '  -R <regex>, --tests-regex <regex>\n  -L <regex>, --label-regex <regex>\n  -V,--verbose   = Verbose.\n' && exit; }
previous= times=
for word; do [ "$previous" != --output-junit ] || times=$word; previous=$word; done
[ -z "${FAKE_TIMES:-}" ] || xargs -n 2 printf '\t<testcase name="%s" classname="" time="%s" status="run">\n' \
  <<<"$FAKE_TIMES" >"$times"
echo "Start 1: only" && shown '... 4 s' && echo "100% tests passed" && exit "${FAKE_TESTS:-0}"
F
  fake df <<'F'
[ -z "${FAKE_FREE_MB:-}" ] || { printf 'Filesystem 1M-blocks Used Available\n/dev/x 1 1 %s 1%% /\n' "$FAKE_FREE_MB" && exit; }
/usr/bin/df "$@"
F
  fake id <<'F'
[ -n "${FAKE_USER:-}" ] || exec /usr/bin/id "$@"
case $* in -u) echo 4711 ;; *) echo "$FAKE_USER" ;; esac
F
}

# The rest of the machine without these programs.
without() {
  mkdir "$work/rest"
  ln -s /usr/bin/* "$work/rest"
  rm -f "${@/#/$work/rest/}" "${@/#/$work/fake/}"
  PATH=$work/fake:$work/rest
}

failures=0
wrong() {
  failures=$((failures + 1))
  printf 'WRONG: %s\n----\n%s\n----\n' "$*" "$(cat -v "$work/out")"
}

# outcome CODE COMMAND...: runs it without a terminal; its output is in $work/out.
outcome() {
  local code=$1 status=0
  shift
  "$@" >"$work/out" 2>&1 </dev/null || status=$?
  [ "$status" = "$code" ] || wrong "$* gave $status instead of $code"
}

# Until CONDITION... succeeds, or 60 s are over.
wait_until() {
  local start=$SECONDS
  until "$@"; do
    [ $((SECONDS - start)) -lt 60 ] || { wrong "not within 60 s: $*" && return 1; }
    sleep 0.05
  done
}

# outcome_on_terminal CODE TYPED COMMAND: the same in a terminal of 100 columns, where TYPED is typed. COMMAND takes the
# shell's place: some shells end by a Ctrl-C that their last command has survived.
outcome_on_terminal() {
  local code=$1 status=0
  printf '%s' "$2" | TERM=xterm script -fqec "stty cols 100; exec $3" "$work/out" >/dev/null || status=$?
  [ "$status" = "$code" ] || wrong "$3 gave $status instead of $code"
}

says() {
  local text
  for text; do grep -qF -e "$text" "$work/out" || wrong "it does not say: $text"; done
}
says_not() { ! grep -qE -e "$1" "$work/out" || wrong "it says: $1"; }
called() { grep -qE -e "$1" "$work/calls" || wrong "not called: $1 ($(cat "$work/calls"))"; }
called_not() { ! grep -qE -e "$1" "$work/calls" || wrong "called: $1 ($(cat "$work/calls"))"; }
