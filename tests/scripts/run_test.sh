#!/usr/bin/env bash
# shellcheck disable=SC2317 # cases are called by their names
# run_test.sh CASE BUILD: what ./run shows while the agent runs, on the real desk of the folder BUILD, with an agent that says
# what the case wants. Each function named test_... is a case of ctest.
. "$(dirname "$0")/situation.sh"

# The agent of a case: a script.
agent() {
  { echo '#!/bin/bash' && cat; } >build/release/VeloAgent
  chmod 755 build/release/VeloAgent
}

# All that it says comes at once: no summary can be shown in between.
polling_agent() {
  agent <<'A'
cycle='\n*** (Polling) end of a time. Start sleeping for 5 sec.***\n\n'
printf "Try log VeloAgent init time...........\n$cycle$cycle$cycle(poll) SendAlarmData!! index:1, name:alarm, status: 1 \nwhat is said \e[31mlast\n"
exec sleep 1000
A
}

# Starts ./run without a terminal.
start() {
  ./run "$@" >"$work/out" 2>&1 </dev/null &
  running=$!
}
stop() {
  local status=0
  kill "$running"
  wait "$running" || status=$?
  [ "$status" = 0 ] || wrong "./run gave $status when it was stopped"
}
out_has() { grep -sqF -e "$1" "$work/out"; }

# ./run in a terminal until TEXT is on the screen; then Ctrl-C is typed.
run_on_terminal_until() {
  { wait_until out_has "$1" || true; printf '\003'; } |
    TERM=xterm script -fqec "stty cols 100; exec ./run" "$work/out" >/dev/null || wrong "./run gave $?"
}

# The order of the first lines that hold these texts.
in_order() {
  local text line last=0
  for text; do
    line=$(grep -anF -m 1 -e "$text" "$work/out" | cut -d : -f 1)
    [ "${line:-0}" -gt "$last" ] || wrong "not in its order: $text"
    last=${line:-$last}
  done
}

test_plain_lines() {
  polling_agent
  start
  wait_until out_has 'alarms: 1'
  stop
  in_order 'run: building release: done' 'The agent runs on a simulated device' 'desk camera set MotionEvent 1' \
    'run: polling, 0:00:0' 'run: stopping'
  says 'polls: 3, alarms: 1; log: build/run/agent.log, last: what is said'
  says_not $'\e|\r|end of a time'
}

test_summary_on_a_terminal() {
  polling_agent
  run_on_terminal_until '   last     what is said  [31mlast'
  in_order 'run: building release: done' 'The agent runs on a simulated device' 'log      build/run/agent.log' \
    '   state    polling, 0:00:0' '   polls    3' '   alarms   1' 'run: stopping'
  says_not 'Try log VeloAgent init time'
  grep -qF 'Try log VeloAgent init time' build/run/agent.log || wrong "the log is not in its file"
}

test_summary_is_redrawn_in_place() {
  polling_agent
  run_on_terminal_until $'\e[4A'
  says '   state    polling, 0:00:0'
}

test_log_is_printed_when_asked_for() {
  polling_agent
  start --log
  wait_until out_has 'what is said'
  stop
  in_order 'The agent runs on a simulated device' 'Try log VeloAgent init time' '*** (Polling) end of a time.'
  says_not 'run: polling'
  cmp <(sed -n '/^Try log/,/what is said/p' "$work/out") <(sed -n '/^Try log/,/what is said/p' build/run/agent.log) ||
    wrong "the log is another than in the file"
}

test_an_agent_that_ends_shows_why() {
  agent <<<'echo "Get session key failed. Finishing."; exit 3'
  outcome 3 ./run
  says 'Get session key failed. Finishing.' 'run: the agent has ended by itself with 3'
  outcome 3 ./run --log
  says 'Get session key failed. Finishing.'
}

test_states() {
  agent <<'A'
next() { until grep -q "$1" $work/out; do sleep 0.05; done; }
echo 'Try log VeloAgent init time...........' && next 'run: starting'
echo '*** (getSessionKey) login failed, waiting for next try... ***' && next 'run: waiting to log in to the camera'
echo '*** (Polling) end of a time. Start sleeping for 5 sec.***' && next 'run: polling'
echo 'myPoll failed. error:ErrorCode:-1' && next 'run: asking the camera again'
echo ' failed. login... ***' && next 'run: logging in again'
printf '*** (Polling) end ' && sleep 1.1 && echo 'of a time. Start sleeping for 5 sec.***' && next 'polls: 2'
echo done && exec sleep 1000
A
  start
  wait_until grep -q '^done' build/run/agent.log
  stop
}

test_second_run_is_refused() {
  polling_agent
  start
  wait_until out_has 'run: polling'
  : >"$work/calls"
  local status=0
  ./run >"$work/second" 2>&1 || status=$?
  [ "$status" = 1 ] || wrong "the second ./run gave $status"
  grep -q "^run: this checkout is running already: process $running, since 20..-..-.. ..:..:..\." "$work/second" ||
    wrong "$(cat "$work/second")"
  called_not .
  stop
}

test_the_real_agent() {
  ln -s "$build/VeloAgent" build/release/VeloAgent
  start
  wait_until out_has 'run: polling'
  grep -qE '^ To see it, open   http://127\.0\.0\.1:[0-9]+/   in a browser' "$work/out" || wrong "the page's address is not told"
  DESK_RUN=build/run build/release/devkit/client/desk camera set MotionEvent 1 >/dev/null
  wait_until out_has 'alarms: 1'
  stop
}

build=$2
folder=$(mktemp -d "$(cd "$build" && pwd)/tests/scripts/run.XXXXXX")  # a view has a /tmp of its own
running=
trap '[ -z "$running" ] || kill "$running" 2>/dev/null; rm -rf "$folder"' EXIT
prepare "$folder"
mkdir -p build/release
ln -s "$build/devkit" build/release/devkit
"$1"
running=
exit $((failures > 0))
