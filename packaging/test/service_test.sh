#!/bin/bash
# service_test.sh PACKAGES BUILD [busybox]: the service with scripted agents: an agent that ends comes back, after pauses
# that grow; stop is never lost; the reboot tool is left alone. With this machine's shell, or with BusyBox's.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
make_service_root "$(echo "$1"/*.deb)"
log=/tmp/agent.log run=/run/veloagent

settings() { { echo "LOG=$log"; printf '%s\n' "$@"; } >$root/etc/default/veloagent; : >$log; : >/tmp/starts; }
pauses() { sed -n 's/.*starts again in \([0-9]*\) s/\1/p' $log | head -n "$1" | xargs; } # COUNT
paused() { [ "$(pauses 100 | wc -w)" -ge "$1" ]; }                                     # TIMES
note() { cat $root$run/"$1"; }
stopped() { # after stop, nothing is left
  service stop >/dev/null
  [ ! -e $root$run/pid ] || fail "stop left the pid"
  service status >/dev/null && fail "runs after stop"
  [ $# = 0 ] || gone "$1" || fail "stop left process $1"
}

an_agent_runs() {
  settings
  behaves 'umask >/tmp/umask; pwd >/tmp/pwd; exec true-sleep 1000'
  service status >/dev/null && fail "runs before it was started"
  [ -e $root/etc/veloagent/VeloAgent.conf ] || { service start && service stop; } >/dev/null 2>&1
  grep -q NEW= $root/etc/veloagent/VeloAgent.conf || echo NEW=1 >>$root/etc/veloagent/VeloAgent.conf
  : >/tmp/starts
  [[ $(service start 2>/tmp/said) == *'VeloAgent started'* ]] || fail "start: $(cat $log)"
  expect "agents" 1 "$(starts)"
  expect "mask" 0022 "$(cat /tmp/umask)"
  expect "current folder" /tmp "$(cat /tmp/pwd)"
  expect "status" "VeloAgent runs (pid $(last_start))" "$(service status)"
  gone "$(note pid)" && fail "the pid is nobody's"
  expect "what start says of the configuration" "/tmp/working/VeloAgent.conf: NEW: no such key, ignored" "$(sed -n 's/:[0-9]*: NEW/: NEW/p' /tmp/said)"
  expect "mode of the pid's folder" 700 "$(stat -c %a $root$run)"
  stopped "$(last_start)"
  service stop >/dev/null || fail "stop of a stopped service"
}

one_that_ends_comes_back() {
  settings RESTART_SECONDS=2
  behaves 'exec true-sleep 1000'
  service start >/dev/null
  kill -9 "$(last_start)"
  until_true "a second agent" started 2
  until_true "its pid is known" eval 'service status >/dev/null'
  expect "status" "VeloAgent runs (pid $(last_start))" "$(service status)"
  stopped "$(last_start)"
}

pauses_grow() {
  settings RESTART_SECONDS=2
  behaves 'exit 3'
  echo 2 >/tmp/second  # a busy machine needs a while to start a process
  [[ $(service start 2>&1) == *'did not start'* ]] || fail "start does not tell that the agent ended"
  echo 0.3 >/tmp/second
  until_true "eight ends" paused 8
  expect "pauses" "2 4 8 16 32 60 60 60" "$(pauses 8)"
  stopped
}

one_that_ran_long_begins_anew() {
  settings RESTART_SECONDS=2 RESTART_SECONDS_MOST=4
  behaves '[ "$(wc -l </tmp/starts)" != 4 ] || true-sleep 5; exit 3'
  service start >/dev/null 2>&1 || true
  until_true "five ends" paused 5
  expect "pauses" "2 4 4 2 4" "$(pauses 5)"
  stopped
}

stop_ends_a_pause() {
  settings RESTART_SECONDS=300 RESTART_SECONDS_MOST=300
  behaves 'exit 3'
  service start >/dev/null 2>&1 || true
  until_true "a pause" paused 1
  local code=0
  service status >/tmp/status || code=$?
  expect "status in a pause" "1 VeloAgent ended (3) and starts again soon" "$code $(cat /tmp/status)"
  stopped "$(note pid)"
  expect "agents" 1 "$(starts)"
  ! grep -lx 'Name:.true-sleep' /proc/[0-9]*/status 2>/dev/null | grep . >/dev/null || fail "the pause goes on"
}

a_deaf_agent_is_killed() {
  settings STOP_SECONDS=2
  behaves 'trap "" TERM; while :; do true-sleep 1; done'
  service start >/dev/null
  stopped "$(last_start)"
}

a_stop_at_any_instant() { # the service starts agents as fast as it can
  settings RESTART_SECONDS=0 RESTART_SECONDS_MOST=0
  behaves 'exit 3'
  for ((round = 0; round < 5; round++)); do
    (service run >/dev/null 2>&1 &)
    until_true "the service runs" test -e $root$run/ended
    local supervisor
    supervisor=$(note pid)
    kill "$supervisor"
    until_true "SIGTERM ends the service" gone "$supervisor"
  done
  ! service status >/dev/null || fail "runs after SIGTERM"
}

the_reboot_tool_is_left_alone() {
  program usr/bin/qmx_reboot 'echo begun >/tmp/reboot
while [ ! -e /tmp/finish ]; do true-sleep 0.1; done
echo finished >/tmp/reboot
exit "$(cat /tmp/finish)"'
  settings STOP_SECONDS=1
  behaves 'exec /usr/bin/qmx_reboot reboot'
  rm -f /tmp/finish /tmp/reboot
  service start >/dev/null
  until_true "the tool runs" test -e /tmp/reboot
  service stop >/dev/null
  gone "$(last_start)" && fail "stop killed the reboot tool"
  echo 0 >/tmp/finish
  until_true "the tool finishes" gone "$(last_start)"
  expect "tool" finished "$(cat /tmp/reboot)"

  # A tool that did its work: time to go down. One that failed: as any end.
  for row in "0 60" "1 2"; do
    settings RESTART_SECONDS=2
    echo "${row% *}" >/tmp/finish
    service start >/dev/null 2>&1 || true
    until_true "the tool ends" paused 1
    expect "pause after a tool that returned ${row% *}" "${row#* }" "$(pauses 1)"
    stopped
  done
}

all() {
  an_agent_runs
  one_that_ends_comes_back
  stop_ends_a_pause
  a_deaf_agent_is_killed
  a_stop_at_any_instant
  the_reboot_tool_is_left_alone
}
if [ "${3:-}" = busybox ]; then
  use_busybox || exit 0
else
  pauses_grow
  one_that_ran_long_begins_anew
fi
all
echo "service_test: passed"
