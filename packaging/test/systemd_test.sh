#!/bin/bash
# systemd_test.sh PACKAGES: the package under systemd: enabled and started at its installation, seen and ruled by init's
# script, stopped before it goes, as its owner left it when it comes back. A stand-in for systemctl does what the unit
# says.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
package=$(echo "$1"/*.deb)
make_root "$package"
shorten_seconds
: >/tmp/starts
mkdir -p $root/run/systemd/system
wanted=$root/etc/systemd/system/multi-user.target.wants/veloagent.service

scripted_agent() {
  printf '#!/bin/sh\necho $$ >>/tmp/starts\nexec true-sleep 1000\n' >usr/bin/VeloAgent
}
repack "$package" "$(dpkg-deb -f "$package" Version)" /tmp/current.deb scripted_agent
repack "$package" "$(dpkg-deb -f "$package" Version).1" /tmp/next.deb scripted_agent

program usr/bin/systemctl '
unit=/usr/lib/systemd/system/veloagent.service
link=/etc/systemd/system/multi-user.target.wants/veloagent.service
main=/tmp/main.pid
while [ $# -gt 0 ]; do case $1 in -*) shift ;; *) break ;; esac; done
echo "$1" >>/tmp/systemctl
active() { [ -e $main ] && [ -e "/proc/$(cat $main)" ]; }
case $1 in
  cat) [ -e $unit ] ;;
  preset | enable) mkdir -p "${link%/*}" && ln -sf $unit $link ;;
  disable) rm -f $link ;;
  is-enabled) if [ -e $link ]; then echo enabled; else echo disabled && exit 1; fi ;;
  is-active) active ;;
  start) active || { [ -e $unit ] || exit 5; $(sed -n "s/^ExecStart=//p" $unit) >>/tmp/journal 2>&1 & echo $! >$main; } ;;
  stop)
    ! active || kill "$(cat $main)"
    while active; do true-sleep 0.1; done ;;
esac'
unit_runs() { in_root systemctl is-active; }
unit_agent() { [ "$(starts)" = "$1" ] && service status >/dev/null; } # TIMES

# --- Installed: enabled and started.
deb -i /tmp/current.deb
expect "enabled" /usr/lib/systemd/system/veloagent.service "$(readlink "$wanted")"
unit_runs || fail "the unit was not started"
until_true "the unit's agent" unit_agent 1

# --- Init's script sees it, and leaves it to systemd.
expect "status" "VeloAgent runs (pid $(last_start))" "$(service status)"
expect "start" "VeloAgent runs already (pid $(last_start))" "$(in_root /etc/init.d/S90veloagent start)"
expect "stop" "VeloAgent stopped" "$(in_root /etc/init.d/S90veloagent stop)"
unit_runs && fail "stop ended the agent, but not the unit"
gone "$(last_start)" || fail "the agent runs on"
[[ $(in_root /etc/init.d/veloagent start) == "VeloAgent started (pid "* ]] || fail "start"
unit_runs || fail "start did not start the unit"
expect "agents" 2 "$(starts)"
first=$(last_start)
in_root /etc/init.d/veloagent restart >/dev/null
unit_runs && gone "$first" || fail "restart"
expect "agents" 3 "$(starts)"

# --- The unit refuses to be a second one, and need not be tried again.
in_root systemctl stop
(service run >/tmp/journal 2>&1 &)
until_true "an agent of init's" unit_agent 4
in_root systemctl start
until_true "the unit ends" eval '! unit_runs'
grep -q "VeloAgent runs already (pid $(last_start))" /tmp/journal || fail "the unit does not say why it ended"
expect "agents" 4 "$(starts)"
expect "what the unit does about it" 75 "$(sed -n 's/^RestartPreventExitStatus=//p' $root/usr/lib/systemd/system/veloagent.service)"
service stop >/dev/null

# --- Upgraded: started, unless it is disabled.
deb -i /tmp/next.deb
until_true "the next version's agent" unit_agent 5
in_root systemctl disable
in_root systemctl stop
deb -i /tmp/current.deb
unit_runs && fail "an upgrade started what was disabled"
[ ! -L "$wanted" ] || fail "an upgrade enabled what was disabled"
# Removed while disabled, it comes back disabled.
deb -r veloagent
deb -i /tmp/current.deb
[ ! -L "$wanted" ] || fail "what was disabled came back enabled"
deb -r veloagent
in_root find /etc /tmp/working /run -xtype l | grep . && fail "removal of a disabled one left links that lead nowhere"
deb -P veloagent
deb -i /tmp/current.deb
[ -L "$wanted" ] || fail "after purging, installed anew: not enabled"

# --- Removed: stopped before, no link that leads nowhere, enabled when it comes back.
until_true "an agent" unit_agent 6
deb -r veloagent
unit_runs && fail "the unit of a removed package runs"
gone "$(last_start)" || fail "the agent of a removed package runs"
expect "links that lead nowhere" "" "$(in_root find /etc /tmp/working /run -xtype l)"
deb -i /tmp/current.deb
[ -L "$wanted" ] || fail "what was enabled came back disabled"
until_true "an agent" unit_agent 7
deb -P veloagent
expect "left after purging" "" "$(find $root/etc $root/var $root/run ! -type d -name '*veloagent*' ! -path '*/dpkg/*'; in_root find /etc -xtype l)"

# --- What systemd itself says of the unit, where it is installed.
if command -v systemd-analyze >/dev/null; then
  mkdir -p /tmp/analysed
  dpkg-deb -x "$package" /tmp/analysed
  sed "s|^ExecStart=/|ExecStart=/tmp/analysed/|; /^Documentation=/d" /tmp/analysed/usr/lib/systemd/system/veloagent.service >/tmp/veloagent.service
  ! systemd-analyze verify /tmp/veloagent.service 2>&1 | grep veloagent || fail "systemd finds fault with the unit"
fi
echo "systemd_test: passed"
