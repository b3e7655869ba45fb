#!/usr/bin/env bash
# shellcheck disable=SC2016,SC2317 # cases are called by their names; what fakes do is expanded when they run
# before_the_agent_test.sh CASE: what ./run and ./test say before the agent runs, in the situations that a first contact can
# be. Each function named test_... is a case of ctest.
. "$(dirname "$0")/situation.sh"

skip() {
  echo "skipped: $*"
  exit 77
}

test_help() {
  outcome 0 ./run --help
  says 'usage: ./run' '--log' '--rebuild'
  outcome 0 ./test --help
  says 'usage: ./test' '--preset' '--target' '--rebuild'
  called_not .
}

test_wrong_options_are_named() {
  outcome 2 ./run --lgo
  says 'run: there is no option --lgo; ./run --help tells more'
  outcome 2 ./test --bogus
  says 'test: there is no option --bogus; ./test --help tells more'
  outcome 2 ./test Polling
  says "test: there is no option 'Polling' (-R Polling runs the tests of that name)"
  outcome 2 ./test --preset fast
  says 'test: there is no --preset fast (there are: armhf armhf-asan asan debug release tsan)'
  called_not '^(apt-get|cmake)'
}

test_missing_values_are_named() {
  outcome 2 ./test --preset
  says 'test: --preset needs a value'
  outcome 2 ./test --target
  says 'test: --target needs a value'
  outcome 2 ./test -V -R
  says 'test: -R needs a value'
  outcome 2 ./test --preset= -R x
  says 'test: --preset needs a value'
  called_not '^(apt-get|cmake)'
}

test_options_reach_ctest() {
  outcome 0 ./test --preset=debug -R 'a b' -V
  called 'cmake --build --preset debug'
  called 'ctest --preset debug -j [0-9]+ .*-R a b -V'
  FAKE_TESTS=8 outcome 8 ./test
}

test_fuzz_takes_seconds() {
  outcome 2 ./test --fuzz soon
  says "test: --fuzz takes whole seconds, not 'soon'; ./test --help tells more"
  outcome 2 ./test --fuzz= --rebuild
  says "test: --fuzz takes whole seconds, not ''"
  outcome 2 ./test --fuzz 0
  says "test: --fuzz takes whole seconds, not '0'"
  outcome 2 ./test --fuzz 5 -R x
  says 'test: --fuzz goes with no other option but --rebuild'
  outcome 2 ./test --fuzz --preset asan
  says 'test: --fuzz goes with no other option but --rebuild'
  called_not '^(apt-get|cmake)'
}

# fuzzers_that SCRIPT: what the targets "first" and "second" do in place of libFuzzer, in a view that is none.
fuzzers_that() {
  local target
  mkdir -p fuzz build/fuzz/fuzz build/release/devkit/device
  printf '# a comment\nfirst  a.cpp\n  a full disk: unit tests\nsecond b.cpp c.cpp\n' >fuzz/targets
  for target in first second; do
    mkdir -p "fuzz/corpus/$target"
    { printf '#!/bin/bash\necho "%s $*" >>"$work/calls"\n' "fuzz_$target" && echo "$1"; } >"build/fuzz/fuzz/fuzz_$target"
    chmod 755 "build/fuzz/fuzz/fuzz_$target"
  done
  printf '#!/bin/bash\nwhile [ "$1" != -- ]; do shift; done\nshift\n"$@"\n' >build/release/devkit/device/device-view
  chmod 755 build/release/devkit/device/device-view
  fake llvm-profdata <<<':'
  fake llvm-cov <<'F'
printf '%s 9 0 90.00%% 9 0 91.00%% %s 9.00%% 9 0 -\n' x/a.cpp '40 1' x/b.cpp '90 9' c.cpp '10 0' x/aa.cpp '40 40' TOTAL '9 9'
F
}

test_fuzz_prints_each_targets_figures() {
  fuzzers_that 'echo "stat::number_of_executed_units: 1234" >&2; echo "stat::average_exec_per_sec: 617" >&2
    echo profile >"$LLVM_PROFILE_FILE"'
  outcome 0 ./test --fuzz
  called 'cmake --build --preset fuzz --target fuzzers'
  called 'fuzz_first .*-max_total_time=30 .*fuzz/first.dict .*fuzz/corpus/first$'
  called 'fuzz_second .*-max_total_time=30 '
  says 'first            1234 executions      617 a second, 97.5 % of the lines of a.cpp' '91.0 % of the lines of b.cpp c.cpp'
  says '           not reached: a full disk: unit tests'
  [ "$(grep -c 'not reached' "$work/out")" = 1 ] || wrong "a target without a reason has one"
  called_not '^ctest'
  : >"$work/calls"
  outcome 0 ./test --fuzz=7
  called 'fuzz_first .*-max_total_time=7 '
}

test_fuzz_keeps_what_it_finds_made_small() {
  fuzzers_that 'for word; do case $word in
      -artifact_prefix=*) folder=${word#*=} ;;
      -exact_artifact_path=*) printf small >"${word#*=}" && exit 1 ;;
    esac; done
    [[ $0 == *second ]] || exit 0
    printf "large input" >"${folder}crash-1"; echo "VIOLATED: a rule" >&2; exit 77'
  outcome 123 ./test --fuzz 1
  says 'VIOLATED: a rule' 'second: it fails with fuzz/corpus/second/found-' 'second: failed (log: build/fuzz/run/second/log)'
  says_not 'first: failed'
  [ "$(cat fuzz/corpus/second/found-*)" = small ] || wrong "the seed is not the small input"
  [ -z "$(ls fuzz/corpus/first)" ] || wrong "a seed without a finding"
}

test_fuzz_installs_its_own_packages() {
  FAKE_MISSING='libclang-rt-14-dev clang-tidy' FAKE_APT='E: no' outcome 1 ./test --fuzz 1
  called 'apt-get install -y --no-install-recommends libclang-rt-14-dev -q'
}

# What ./test --browser installs with npm, which does SCRIPT.
npm_that() {
  mkdir -p tests/browser
  echo '{"lockfileVersion": 3}' >tests/browser/package-lock.json
  fake_action npm <<<"$1"
}

test_browser_installs_its_modules_once() {
  npm_that 'mkdir -p node_modules'
  outcome 0 ./test --browser
  called 'npm ci --ignore-scripts .*--fetch-timeout=20000'
  called 'ctest --preset release -j [0-9]+ .*-L \^browser\$'
  : >"$work/calls"
  outcome 0 ./test --browser
  called_not '^npm'
  echo '{"lockfileVersion": 3, "name": "another"}' >tests/browser/package-lock.json
  outcome 0 ./test --browser
  called '^npm ci'
}

test_no_npm() {
  npm_that ''
  without npm
  outcome 1 ./test --browser
  says "browser-modules: there is no npm here, which brings playwright-core and axe-core for the browser's tests" "Debian's package is npm"
  says_not 'command not found'
  called_not '^(cmake|ctest --preset)'
}

test_no_way_to_npms_registry() {
  npm_that '[ "$1" = config ] && echo https://registry.example/ && exit
    echo "npm error code ENOTFOUND" && exit 1'
  outcome 1 ./test --browser
  says "npm cannot install what the browser's tests need: no network: npm's registry cannot be reached" \
    "They come from npm's registry (https://registry.example/)" 'then say ./test again'
  called_not '^(cmake|ctest --preset)'
  called_not '^apt-get'
}

test_slowest_tests_close_the_run() {
  # A number in seconds as ctest writes it may have an exponent; names are XML.
  FAKE_TIMES='a 0.9 b 2e-05 Row/C&lt;&amp;&gt;.&quot;x&quot; 12.04 d 1.5 e 1.6 f 1.7 g 1.8 h 1.9 i 2 j 3.25 k 4 l 110' \
    FAKE_TESTS=8 outcome 8 ./test
  says 'test: the slowest of 12 tests:'
  [ "$(tail -n 11 "$work/out" | sed -E 's/ +/ /g; s/^ //' | xargs -d '\n' printf '%s|')" = \
    'test: the slowest of 12 tests:|110.0 s l|12.0 s Row/C<&>."x"|4.0 s k|3.2 s j|2.0 s i|1.9 s h|1.8 s g|1.7 s f|1.6 s e|1.5 s d|' ] ||
    wrong "not the ten slowest, the slowest first"
}

test_no_times_are_shown_of_another_run() {
  FAKE_TIMES='former 3' outcome 0 ./test
  outcome 0 ./test
  says_not 'slowest|former'
}

test_download_is_announced_first() {
  FAKE_MISSING='cmake ninja-build' outcome 127 ./run  # there is no agent in the end
  says 'setup: these packages are missing:' 'builds' 'setup: to download: 3 packages, 212 MB'
  called 'apt-get .*update'
  called 'apt-get install -y --no-install-recommends cmake ninja-build -q'
  [ "$(grep -o 'to download\|installing' "$work/out" | head -n 1)" = 'to download' ] || wrong "downloaded before it was said"
}

test_nothing_missing_needs_no_network() {
  outcome 0 ./test
  called_not 'apt-get|sudo'
}

test_no_network() {
  FAKE_MISSING=cmake FAKE_APT="E: Failed to fetch http://deb  Temporary failure resolving 'deb'" outcome 1 ./run
  says 'setup: the packages could not be installed: no network: the package servers cannot be reached' \
    'apt-get install -y --no-install-recommends cmake'
  called_not '^cmake'
}

test_full_disk_for_the_packages() {
  FAKE_MISSING=cmake FAKE_APT="E: You don't have enough free space in /var/cache/apt/archives/." outcome 1 ./run
  says 'setup: the packages could not be installed: the disk is full'
}

test_no_sudo() {
  without sudo
  FAKE_USER=dev FAKE_MISSING='cmake g++' outcome 1 ./run
  says 'setup: installing them needs root, and there is no sudo.' \
    'apt-get update && apt-get install -y --no-install-recommends cmake g++'
  called_not '^(apt-get|cmake)'
}

test_sudo_refuses() {
  fake sudo <<<'echo "dev is not in the sudoers file." >&2; exit 1'
  FAKE_USER=dev FAKE_MISSING='cmake g++' outcome 1 ./run
  says 'setup: installing them needs root, and sudo refuses dev.' \
    'apt-get update && apt-get install -y --no-install-recommends cmake g++'
  called_not '^(apt-get|cmake)'
}

test_no_apt() {
  without apt-get
  FAKE_MISSING=cmake outcome 1 ./run
  says 'setup: there is no apt-get here; install these' 'configures the build'
}

test_read_only_checkout() {
  local as=()
  [ "$(id -u)" != 0 ] || as=("${as_nobody[@]}")
  chmod a-w .
  outcome 1 "${as[@]}" ./run
  says "run: $work/VeloAgent cannot be written to." "git clone $work/VeloAgent"
  outcome 1 "${as[@]}" ./test
  says "test: $work/VeloAgent cannot be written to."
  called_not '^(apt-get|cmake)'
  chmod u+w .
}

test_built_as_root() {
  [ "$(id -u)" = 0 ] || skip "needs root"
  outcome 0 ./test
  chown -R 65534 .
  chown root build/release.log
  : >"$work/calls"
  outcome 1 "${as_nobody[@]}" ./run
  says 'run: build/release.log belongs to root, and you are nobody: this checkout was built as root before.' \
    "sudo chown -R nobody: $work/VeloAgent/build"
  called_not '^(apt-get|cmake)'
}

test_full_disk_before_the_build() {
  FAKE_FREE_MB=199 outcome 1 ./run
  says "run: the disk is full: 199 MB free in $work/VeloAgent, 210 MB needed"
  called_not '^(apt-get|cmake)'
}

test_full_disk_in_the_build() {
  FAKE_BUILD='/usr/bin/ld: final link failed: No space left on device' outcome 1 ./run
  says 'run: building release failed: the disk is full (log: build/release.log)'
}

test_failed_build_shows_its_log() {
  outcome 0 ./test  # a log of former times
  FAKE_BUILD='main.cpp:1: error: no such thing' outcome 1 ./run
  says 'main.cpp:1: error: no such thing' 'run: building release failed (log: build/release.log)'
  FAKE_BUILD='main.cpp:1: error: no such thing' outcome_on_terminal 1 '' ./run
  says 'main.cpp:1: error: no such thing' 'run: building release failed (log: build/release.log)'
}

moved_checkout() {
  mkdir -p build/release
  echo 'CMAKE_HOME_DIRECTORY:INTERNAL=/home/dev/elsewhere' >build/release/CMakeCache.txt
}

test_moved_checkout() {
  moved_checkout
  outcome 1 ./run
  says 'run: build/release was made for /home/dev/elsewhere: this checkout has been moved or copied.' \
    'run: ./run --rebuild builds it anew'
  called_not '^(apt-get|cmake)'
  outcome 0 ./test --rebuild
  called 'cmake --build --preset release'
  [ ! -e build/release/CMakeCache.txt ] || wrong "the old build is still there"
}

test_moved_checkout_on_a_terminal() {
  moved_checkout
  outcome_on_terminal 1 $'n\n' ./test
  says 'build it anew? [y/N]' 'test: ./test --rebuild builds it anew'
  called_not '^cmake'
  outcome_on_terminal 0 $'y\n' ./test
  called 'cmake --build --preset release'
  [ ! -e build/release/CMakeCache.txt ] || wrong "the old build is still there"
}

test_a_link_to_the_checkout_is_no_move() {
  mkdir -p build/release
  ln -s "$work/VeloAgent" "$work/link"
  echo "CMAKE_HOME_DIRECTORY:INTERNAL=$work/link" >build/release/CMakeCache.txt
  outcome 0 ./test
}

test_running_already() {
  mkdir -p build/run
  echo '4711 2025-11-22 10:11:12' >build/run/lock
  exec 7<build/run/lock
  flock 7
  FAKE_MISSING=cmake outcome 1 ./run
  says 'run: this checkout is running already: process 4711, since 2025-11-22 10:11:12.' 'kill 4711'
  called_not .
  exec 7<&-
  outcome 127 ./run
  says_not 'running already'
}

test_progress_on_a_terminal() {
  FAKE_MISSING=cmake FAKE_WAITS=1 outcome_on_terminal 0 '' ./test
  says 'setup: fetching the package lists (some 10 MB) 25 %, Retrieving' 'setup: installing 50 %, Unpacking one, ' 'test: building release [2/3], ' 'Start 1: only'
  says_not '\[2/3\] Building part'
}

test_silence_is_counted_on_a_terminal() {
  FAKE_WAITS=1 FAKE_TESTS=8 outcome_on_terminal 8 '' ./test
  says '... 3 s' '... 4 s' '100% tests passed'
}

test_plain_lines_without_a_terminal() {
  FAKE_MISSING=cmake outcome 0 ./test
  says 'setup: installing (log: build/setup.log)' '[2/3] Building part 2' 'test: building release: done in '
  says_not $'\r|\e'
}

folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
prepare "$folder"
"$1"
exit $((failures > 0))
