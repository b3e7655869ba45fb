#!/bin/bash
# places_test.sh PACKAGES: another user of the device, who can write in /tmp, plants links, files and folders where the
# service works as root: it refuses with a line that says what is wrong, and touches nothing.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
make_service_root "$(echo "$1"/*.deb)"
behaves 'exec true-sleep 1000'
other() { chown 1000 "$1" 2>/dev/null; } # false in a user namespace that has no other user
victim=/tmp/victim
mkdir $victim
echo precious >$victim/file
chmod 755 $victim

plant() { # KIND PATH
  case $1 in
    link) ln -s $victim "$2" ;;
    dangling) ln -s $victim/new "$2" ;;
    file) echo planted >"$2" ;;
    writable) mkdir -m 777 "$2" ;;
    group-writable) mkdir -m 775 "$2" ;;
    foreign) mkdir -m 755 "$2" && other "$2" ;;
  esac
}

refused() { # WHAT COMMAND...
  local code=0
  "${@:2}" >/tmp/out 2>&1 || code=$?
  [ $code = 1 ] || fail "$1: not refused: $code, $(cat /tmp/out)"
  expect "$1: agents" 0 "$(starts)"
  expect "$1: the victim" "file" "$(ls $victim)"
  expect "$1: the victim's file" precious "$(cat $victim/file)"
}
said() { grep -q "$2" /tmp/out || fail "$1: no word of it: $(cat /tmp/out)"; } # WHAT TEXT

# --- The configuration's folder, and a folder for pids that is below /tmp, as on devices whose /var/run leads there.
: >$root/etc/default/veloagent
for kind in link dangling file writable group-writable foreign; do
  for place in /tmp/working /tmp/veloagent; do
    rm -rf /tmp/working /tmp/veloagent
    plant $kind $place || continue
    : >$root/etc/default/veloagent
    [ $place = /tmp/working ] || echo 'RUN=/var/run/veloagent' >$root/etc/default/veloagent
    [ -e $root/var/run ] || ln -s ../tmp $root/var/run
    for command in start run; do
      refused "$kind at $place, $command" service $command
      said "$kind at $place, $command" "must be a folder of root's, no link, that nobody else can write in"
    done
  done
done
rm -rf /tmp/working /tmp/veloagent

# --- Where the folder for pids is another's, its notes are not believed.
$root/usr/bin/true-sleep 1000 &
stranger=$!
mkdir -m 777 /tmp/veloagent
echo $stranger >/tmp/veloagent/pid
cut -d' ' -f22 /proc/$stranger/stat >/tmp/veloagent/pid.began
for command in stop status restart; do refused "$command with another's notes" service $command; done
gone $stranger && fail "killed by another's note"
kill $stranger
rm -r /tmp/veloagent

# --- /tmp itself, without the sticky bit: whoever can write there can put another folder in a place.
chmod 777 /tmp
refused "no sticky bit" service start
chmod 1777 /tmp

# --- The log, in a folder for all.
for kind in link-to-file dangling foreign; do
  rm -f /tmp/log
  case $kind in
    link-to-file) ln -s $victim/file /tmp/log ;;
    dangling) ln -s $victim/new /tmp/log ;;
    foreign) echo x >/tmp/log && other /tmp/log || continue ;;
  esac
  echo 'LOG=/tmp/log' >$root/etc/default/veloagent
  refused "$kind for a log" service start
  said "$kind for a log" "must be a file of root's, and no link"
done
rm -f /tmp/log

# --- And all well: the places are made, for root alone.
echo 'LOG=/tmp/log; RUN=/var/run/veloagent' >$root/etc/default/veloagent
service start >/dev/null
expect "folder for pids" "directory 700" "$(stat -c '%F %a' /tmp/veloagent)"
expect "the configuration's folder" "directory 755" "$(stat -c '%F %a' /tmp/working)"
expect "log" 600 "$(stat -c %a /tmp/log)"
expect "configuration" 600 "$(stat -L -c %a $root/etc/veloagent/VeloAgent.conf)"
service stop >/dev/null

# --- Nobody but root is told anything.
if setpriv --reuid 1000 --clear-groups true 2>/dev/null; then
  code=0
  chroot --userspec 1000:1000 $root /usr/lib/veloagent/S90veloagent status >/tmp/out 2>&1 || code=$?
  expect "status for another user" "4 /usr/lib/veloagent/S90veloagent status: needs root" "$code $(cat /tmp/out)"
fi
echo "places_test: passed"
