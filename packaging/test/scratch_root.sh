# shellcheck shell=bash
# Sourced by the tests of this folder, which run inside a device view: /tmp is the test's own, and nothing of this machine
# is changed. A scratch root is this machine's programs (not the view's) with files of the test's laid over them, and the
# test's /tmp, to be entered by chroot.
set -euo pipefail  # hence no "| grep -q": it would end what writes to it
root=/tmp/root

fail() { echo "${0##*/}: $*" >&2; exit 1; }
expect() { # WHAT EXPECTED FOUND
  [ "$2" = "$3" ] || fail "$1: expected (-) and found (+)"$'\n'"$(diff -U 1 <(echo "$2") <(echo "$3") | tail -n +3)"
}
until_true() { # DESCRIPTION COMMAND...
  for ((i = 0; i < 600; i++)); do "${@:2}" && return; sleep 0.1; done
  fail "never happened: $1"
}
gone() { [ ! -e "/proc/$1" ]; }

# Mounts LOWER at TARGET; what is changed there lands in UPPER. In a user namespace an overlay keeps its notes in user
# attributes.
overlay() { # LOWER UPPER TARGET
  mkdir -p "$2" "$2.work" "$3"
  mount -t overlay overlay -o "lowerdir=$1,upperdir=$2,workdir=$2.work,userxattr" "$3" 2>/dev/null ||
    mount -t overlay overlay -o "lowerdir=$1,upperdir=$2,workdir=$2.work" "$3"
}

# The folders of the .deb are laid over this machine's beforehand: one that belongs to nobody in this namespace could not be
# written.
make_root() { # DEB
  dpkg-deb --fsys-tarfile "$1" | tar -t | sed -n 's|^\./usr/\(.*\)/$|\1|p' | (mkdir -p /tmp/upper/usr && cd /tmp/upper/usr && xargs mkdir -p)
  mkdir -p $root/{etc/default,etc/init.d,etc/alternatives,proc,dev,tmp,run,opt/vendor} $root/var/lib/{dpkg/{updates,info,triggers},systemd}
  touch $root/var/lib/dpkg/{status,available}
  cp -P /etc/alternatives/*awk $root/etc/alternatives/
  overlay /usr /tmp/upper/usr $root/usr
  local folder
  for folder in bin sbin $(cd /usr && echo lib*); do [ ! -e "/$folder" ] || ln -s "usr/$folder" "$root/$folder"; done
  mount --rbind /dev $root/dev
  mount --bind /proc $root/proc
  mount --bind /tmp $root/tmp
  mount --bind /tmp/fuse_d $root/tmp/fuse_d
}

# A shell script in the root, in the place of what is there.
program() { # PATH TEXT
  printf '#!/bin/sh\n%s\n' "$2" >$root/new-program
  chmod 755 $root/new-program
  rm -f "$root/$1"
  mv $root/new-program "$root/$1"
}

in_root() { chroot $root "$@"; }

# Agents for the tests of the service: each start is a line in /tmp/starts, and what is in /tmp/behaviour is done.
install_scripted_agent() {
  program usr/bin/VeloAgent 'echo $$ >>/tmp/starts; . /tmp/behaviour'
  : >/tmp/starts
  behaves 'while :; do sleep 1000 & wait; done'
}
behaves() { echo "$1" >/tmp/behaviour.new && mv /tmp/behaviour.new /tmp/behaviour; }
starts() { wc -l </tmp/starts; }
started() { [ "$(starts)" -ge "$1" ]; } # TIMES
last_start() { tail -n 1 /tmp/starts; }

# What the scripts call a second is 0.3 of one (or what /tmp/second says), longer pauses are shorter still, and those of
# 100 and more as long as they are.
shorten_seconds() {
  echo 0.3 >/tmp/second
  cp "$(readlink -f /usr/bin/sleep)" $root/usr/bin/true-sleep
  program usr/bin/sleep 'case $1 in ???*) ;; 1) set -- "$(cat /tmp/second)" ;; *) set -- 0.05 ;; esac; exec true-sleep "$1"'
}

# Lays the package over the scratch root without dpkg, for tests of its scripts alone.
make_service_root() { # DEB
  make_root "$1"
  dpkg-deb -x "$1" /tmp/unpacked
  cp -r --no-dereference /tmp/unpacked/usr/. $root/usr/
  shorten_seconds
  install_scripted_agent
}
service() { in_root /usr/lib/veloagent/S90veloagent "$@"; }

# BusyBox in the place of the shell and of what the scripts call; false where it is not installed.
use_busybox() {
  command -v busybox >/dev/null || { echo "${0##*/}: no busybox here: this machine's shell only" && return 1; }
  local name
  for name in sh awk cat cp grep id ln ls mkdir mv readlink rm rmdir tail touch; do
    ln -sf busybox $root/usr/bin/$name
  done
}

# dpkg in the scratch root, as an unattended upgrade runs it: nobody answers, and the package's scripts run in the root.
# No service manager runs there unless the test makes it look so; a policy against services, as in containers, is not its.
deb() {
  program usr/sbin/policy-rc.d 'exit 0'
  DEBIAN_FRONTEND=noninteractive dpkg --root=$root --log=/dev/null --force-not-root --force-depends --force-architecture \
    "$@" </dev/null >/tmp/dpkg.log 2>&1 || fail "dpkg $*: $(cat /tmp/dpkg.log)"
}

# Repacks a .deb as VERSION after COMMAND has changed the files in its folder.
repack() { # DEB VERSION OUT COMMAND...
  rm -rf /tmp/repacked
  dpkg-deb -R "$1" /tmp/repacked
  sed -i "s/^Version: .*/Version: $2/" /tmp/repacked/DEBIAN/control
  rm -f /tmp/repacked/DEBIAN/md5sums
  (cd /tmp/repacked && "${@:4}")
  dpkg-deb --root-owner-group -b /tmp/repacked "$3" >/dev/null
}
