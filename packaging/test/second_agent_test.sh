#!/bin/bash
# second_agent_test.sh PACKAGES: never two agents at once, whoever started the first: init's script, systemd's unit (which
# calls `run`), a hand, eight at a time, or a service whose own process was killed.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
make_service_root "$(echo "$1"/*.deb)"
log=/tmp/agent.log run=/run/veloagent
echo "LOG=$log" >$root/etc/default/veloagent
behaves 'exec true-sleep 1000'

refuses() { # PID: start and run, beside an agent that runs
  local before code=0
  before=$(starts)
  expect "start beside an agent" "VeloAgent runs already (pid $1)" "$(service start)"
  service run >/tmp/out 2>&1 || code=$?
  expect "run beside an agent" "75 VeloAgent runs already (pid $1)" "$code $(grep -v '^/tmp/working' /tmp/out)"
  expect "agents started meanwhile" "$before" "$(starts)"
}

service start >/dev/null
refuses "$(last_start)"
service stop >/dev/null

# systemd's: the same script in the foreground.
(service run >$log 2>&1 &)
until_true "an agent" started 2
refuses "$(last_start)"
service stop >/dev/null
gone "$(last_start)" || fail "stop left the agent of run"

# A script that was killed leaves its agent alone: it is seen, and stopped.
service start >/dev/null
kill -9 "$(cat $root$run/pid)"
expect "status without the script" "VeloAgent runs (pid $(last_start))" "$(service status)"
refuses "$(last_start)"
expect "stop without the script" "VeloAgent stopped" "$(service stop)"
gone "$(last_start)" || fail "stop left the agent of a script that was killed"

# By hand, or by a former version of the script: nobody's to stop.
mkdir /tmp/by-hand
cp $root/usr/bin/true-sleep /tmp/by-hand/VeloAgent
/tmp/by-hand/VeloAgent 1000 &
hand=$!
until_true "an agent by hand" grep -qx 'Name:.VeloAgent' /proc/$hand/status
refuses $hand
expect "status of an agent by hand" "VeloAgent runs (pid $hand)" "$(service status)"
service stop >/dev/null 2>&1 && fail "stop of an agent by hand succeeds"
gone $hand && fail "stop ended what it did not start"
kill $hand
wait $hand || true

# Another user's process may call itself what it likes.
if setpriv --reuid 1000 --clear-groups true 2>/dev/null; then
  chmod 755 /tmp/by-hand
  setpriv --reuid 1000 --clear-groups /tmp/by-hand/VeloAgent 1000 &
  until_true "another user's process" grep -qx 'Name:.VeloAgent' /proc/$!/status
  [[ $(service start) == *started* ]] || fail "another user's process keeps the agent from starting"
  service stop >/dev/null
  kill $!
fi

# Notes that outlived their process, and a pid that has gone to another program since.
service start >/dev/null
cp -r $root$run /tmp/notes
service stop >/dev/null
cp /tmp/notes/* $root$run/
$root/usr/bin/true-sleep 1000 &
other=$!
echo $other >$root$run/pid
echo $other >$root$run/agent.pid
expect "status with old notes" "VeloAgent is not running" "$(service status || true)"
service stop >/dev/null
gone $other && fail "stop ended a stranger"
[[ $(service start) == *started* ]] || fail "no start with old notes"
service stop >/dev/null
kill $other

# Eight at a time, the first that the device ever sees.
rm -r /tmp/working $root/etc/veloagent
: >/tmp/starts; : >/tmp/done
for ((i = 0; i < 8; i++)); do
  (service start >/dev/null 2>&1 || true; echo >>/tmp/done) &
done
until_true "eight starts are through" eval '[ "$(wc -l </tmp/done)" = 8 ]'
expect "agents after eight starts at once" 1 "$(starts)"
cmp $root/etc/veloagent/VeloAgent.conf $root/usr/share/veloagent/VeloAgent.conf.sample || fail "the configuration is not whole"
refuses "$(last_start)"
service stop >/dev/null

# A start that was killed half-way says what to do.
mkdir $root$run/claim
service run >/tmp/out 2>&1 && fail "a claim is passed over"
grep -q "remove $run/claim" /tmp/out || fail "no word about the claim: $(cat /tmp/out)"
rmdir $root$run/claim
echo "second_agent_test: passed"
