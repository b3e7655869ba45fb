#!/bin/bash
# agent_test.sh PACKAGES BUILD: the packed agent itself, installed and started by the service against a simulated camera.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
devkit=$2/devkit log=/tmp/agent.log
camera_pid=
trap '[ -z "$camera_pid" ] || kill "$camera_pid"' EXIT

package=$(echo "$1"/*.deb)
make_root "$package"
cp "$devkit"/vendor/lib*.so $root/opt/vendor
printf 'LOG=%s\nexport LD_LIBRARY_PATH=/opt/vendor\n' $log >$root/etc/default/veloagent
"$devkit/camera/camera" --ports-file /tmp/camera.json >/tmp/camera.log 2>&1 &
camera_pid=$!
until_true "the camera listens" test -s /tmp/camera.json
port=$(sed -n 's/.*"cgi": *\([0-9]*\).*/\1/p' /tmp/camera.json)

# Installed, it runs with the sample's settings; then it is told where the camera is.
deb -i "$package"
conf=$root/etc/veloagent/VeloAgent.conf
until_true "the agent tries to log in" grep -q 'Loginning' $log
sed -i "s/^hostIP=.*/hostIP=127.0.0.1:$port/" $conf
service restart >/dev/null
until_true "the agent logs in" grep -q 'Got session key' $log
agent=$(cat $root/run/veloagent/agent.pid)
[ "/proc/$agent/cwd" -ef /tmp ] || fail "the agent does not run in /tmp"
expect "the configuration is reached by a link" /etc/veloagent/VeloAgent.conf "$(readlink /tmp/working/VeloAgent.conf)"
grep -q '^SESSION_KEY=[0-9]' $conf || fail "the session key was not kept"
deb -r veloagent
gone "$agent" || fail "the agent of a removed package runs"
grep -q '^SESSION_KEY=[0-9]' $conf || fail "removal changed the configuration"
echo "agent_test: passed"
