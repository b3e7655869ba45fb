#!/bin/bash
# package_test.sh BUILD DEVKIT: makes the packages of BUILD, looks into them, installs the .deb into a scratch root,
# starts and stops the agent there by its init script, and removes it. DEVKIT is the native build's devkit folder. Runs
# inside a device view, so /tmp is the test's own.
set -euo pipefail
build=$1 devkit=$2 root=/tmp/root
camera_pid=
stop_camera() { [ -z "$camera_pid" ] || kill "$camera_pid"; }
trap stop_camera EXIT

fail() { echo "package_test: $*" >&2; exit 1; }
expect() { [ "$2" = "$3" ] || fail "$1: expected"$'\n'"$2"$'\n'"but found"$'\n'"$3"; }
until_true() {  # DESCRIPTION COMMAND...
  for ((i = 0; i < 600; i++)); do "${@:2}" && return; sleep 0.1; done
  fail "never happened: $1"
}
files_of() { (cd "$1" && find . -type f ! -path './var/lib/dpkg/*' | sort); }

contents='./etc/init.d/S90veloagent
./etc/veloagent/VeloAgent.conf
./usr/bin/VeloAgent
./usr/lib/systemd/system/veloagent.service
./usr/share/doc/veloagent/FOOTPRINT.md
./usr/share/doc/veloagent/INTEGRATION.md
./usr/share/doc/veloagent/README.md
./usr/share/doc/veloagent/VeloAgent.conf.sample'

# --- What is in the packages.
cd /tmp
cpack --config "$build/CPackConfig.cmake" -B /tmp/packages >/tmp/cpack.log 2>&1 || fail "$(cat /tmp/cpack.log)"
package=$(ls /tmp/packages/veloagent_*.deb)
mkdir deb tgz control
dpkg-deb -x "$package" deb
dpkg-deb -e "$package" control
tar -C tgz -xzf "${package%.deb}.tar.gz"
for unpacked in deb tgz; do
  expect "$unpacked holds" "$contents" "$(files_of $unpacked)"
  expect "$unpacked: configuration is private" 600 "$(stat -c %a $unpacked/etc/veloagent/VeloAgent.conf)"
  expect "$unpacked: init script is a program" 755 "$(stat -c %a $unpacked/etc/init.d/S90veloagent)"
  ! readelf -S $unpacked/usr/bin/VeloAgent | grep -q '\.symtab' || fail "the binary is not stripped"
  ! readelf -d $unpacked/usr/bin/VeloAgent | grep -qE 'RPATH|RUNPATH' || fail "the binary names a build folder"
done
cmp -s deb/etc/veloagent/VeloAgent.conf deb/usr/share/doc/veloagent/VeloAgent.conf.sample || fail "two configurations"
expect "configuration files" /etc/veloagent/VeloAgent.conf "$(cat control/conffiles)"
# What one package says of itself and what its binary is.
machine=$(readelf -h deb/usr/bin/VeloAgent | sed -n 's/ *Machine: *//p')
case $(dpkg-deb -f "$package" Architecture):$machine in
  armhf:ARM | amd64:*X86-64 | arm64:AArch64) ;;
  *) fail "a $machine binary in a package for $(dpkg-deb -f "$package" Architecture)" ;;
esac

# --- Installed and removed.
mkdir -p $root/var/lib/dpkg/{updates,info,triggers} $root/tmp $root/proc $root/dev $root/opt/vendor $root/etc/default
touch $root/var/lib/dpkg/{status,available}
in_root=(dpkg --root=$root --log=/dev/null --force-not-root --force-script-chrootless --force-depends --force-architecture)
"${in_root[@]}" -i "$package" >/tmp/dpkg.log 2>&1 || fail "$(cat /tmp/dpkg.log)"
expect "installed" "$contents" "$(files_of $root)"

# A root like the device's: the package's files over this machine's programs and libraries, the view's /tmp.
start_in_root() {
  local libraries
  libraries=$(cd /usr && ls -d lib*)
  for folder in $libraries; do mkdir -p "$root/usr/$folder"; mount --bind "/usr/$folder" "$root/usr/$folder"; done
  for folder in bin $libraries; do [ -e "/$folder" ] && ln -s "usr/$folder" "$root/$folder"; done
  mount -t overlay overlay -o "lowerdir=$root/usr/bin:/usr/bin" "$root/usr/bin"
  mount --rbind /dev "$root/dev"
  mount --bind /proc "$root/proc"
  mount --bind /tmp "$root/tmp"
  mount --bind /tmp/fuse_d "$root/tmp/fuse_d"
}

test_init_script() {
  local init=(chroot $root /etc/init.d/S90veloagent) log=/tmp/agent.log conf=/tmp/working/VeloAgent.conf
  cp "$devkit"/vendor/lib*.so $root/opt/vendor
  printf 'LOG=%s\nexport LD_LIBRARY_PATH=/opt/vendor\n' $log >$root/etc/default/veloagent
  "$devkit/camera/camera" --ports-file /tmp/camera.json >/tmp/camera.log 2>&1 &
  camera_pid=$!
  until_true "the camera listens" test -s /tmp/camera.json
  local port
  port=$(sed -n 's/.*"cgi": *\([0-9]*\).*/\1/p' /tmp/camera.json)
  sed -i "s/^hostIP=.*/hostIP=127.0.0.1:$port/" $root/etc/veloagent/VeloAgent.conf
  start_in_root

  "${init[@]}" status >/dev/null && fail "runs before it was started"
  "${init[@]}" start || fail "start: $(cat $log)"
  local pid
  pid=$(cat /tmp/veloagent.pid)
  until_true "the agent logs in" grep -q 'Got session key' $log
  [ "/proc/$pid/cwd" -ef /tmp ] || fail "the agent does not run in /tmp"
  "${init[@]}" status | grep -q "pid $pid" || fail "status does not know the agent"
  "${init[@]}" start
  expect "a second start changes nothing" "$pid" "$(cat /tmp/veloagent.pid)"
  expect "the configuration is reached by a link" /etc/veloagent/VeloAgent.conf "$(readlink $conf)"
  grep -q '^SESSION_KEY=[0-9]' $root/etc/veloagent/VeloAgent.conf || fail "the session key was not kept"

  "${init[@]}" restart
  [ ! -e "/proc/$pid" ] || fail "restart left the old agent"
  pid=$(cat /tmp/veloagent.pid)
  "${init[@]}" stop
  [ ! -e "/proc/$pid" ] || fail "stop left the agent"
  [ ! -e /tmp/veloagent.pid ] || fail "stop left the pid"
  "${init[@]}" stop || fail "stop of a stopped agent"

  # On a read-only file system the agent gets a copy.
  rm $conf
  mount --bind $root/etc $root/etc
  mount -o remount,bind,ro $root/etc
  "${init[@]}" prepare
  [ ! -L $conf ] && cmp -s $conf $root/etc/veloagent/VeloAgent.conf || fail "no copy from a read-only file system"
  expect "the copy is private" 600 "$(stat -c %a $conf)"
  umount $root/etc
  umount -l $root/tmp/fuse_d $root/tmp $root/proc $root/dev $root/usr/bin $root/usr/lib*
  rm -r $root/etc/default/veloagent $root/opt/vendor
}
[ "$machine" = ARM ] || test_init_script

cp $root/etc/veloagent/VeloAgent.conf /tmp/kept.conf
"${in_root[@]}" -r veloagent >/tmp/dpkg.log 2>&1 || fail "$(cat /tmp/dpkg.log)"
expect "left after removal" ./etc/veloagent/VeloAgent.conf "$(files_of $root)"
cmp -s /tmp/kept.conf $root/etc/veloagent/VeloAgent.conf || fail "removal changed the configuration"
"${in_root[@]}" -P veloagent >/tmp/dpkg.log 2>&1 || fail "$(cat /tmp/dpkg.log)"
expect "left after purging" "" "$(files_of $root)"
echo "package_test: passed"
