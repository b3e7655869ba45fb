#!/bin/bash
# upgrade_test.sh PACKAGES: upgrades that nobody watches. From version 1.0.0, whose configuration was a conffile, and from
# this version to a next one with another key: nothing is asked, the configuration stays and gets what it lacks, the agent
# that ran ends and the new one runs; then the package goes without a trace.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
package=$(echo "$1"/*.deb)
former_files=$(dirname "$0")/former
export LC_ALL=C

# A former package with what it did; its agent does nothing.
former_package() {
  rm -r usr/lib/veloagent usr/sbin usr/share etc DEBIAN/{preinst,postinst,postrm}
  mkdir -p etc/init.d etc/veloagent
  cp "$former_files"/S90veloagent etc/init.d/
  cp "$former_files"/VeloAgent.conf.sample etc/veloagent/VeloAgent.conf
  chmod 600 etc/veloagent/VeloAgent.conf
  cp "$former_files"/prerm DEBIAN/prerm
  cp "$former_files"/veloagent.service usr/lib/systemd/system/
  echo /etc/veloagent/VeloAgent.conf >DEBIAN/conffiles
  scripted_agent
}
scripted_agent() {
  printf '#!/bin/sh\necho $$ >>/tmp/starts\nwhile :; do sleep 1000 & wait; done\n' >usr/bin/VeloAgent
  chmod 755 usr/bin/VeloAgent
}
next_package() {
  scripted_agent
  printf '\n# Something new.\n# On two lines.\nNEW_KEY=7\n' >>usr/share/veloagent/VeloAgent.conf.sample
}
repack "$package" 1.0.0 /tmp/former.deb former_package
version=$(dpkg-deb -f "$package" Version)
dpkg --compare-versions "$version" gt 1.0.0 || fail "$version is no upgrade of 1.0.0"
repack "$package" "$version" /tmp/current.deb scripted_agent
repack "$package" "$version.1" /tmp/next.deb next_package

make_root "$package"
shorten_seconds
: >/tmp/starts
conf=$root/etc/veloagent/VeloAgent.conf
files_before=$(find $root/etc $root/var ! -type d | grep -v /var/lib/dpkg | sort)

silent() { ! grep -iE 'configuration file|conffile|prompt|warning' /tmp/dpkg.log || fail "not silent: $(cat /tmp/dpkg.log)"; }
no_rests() { ! find $root/etc | grep -E '\.dpkg-|\.new$' || fail "rests of an upgrade"; }
agents() { (grep -lx 'Name:.VeloAgent' /proc/[0-9]*/status || true) | wc -l; }

# --- From 1.0.0, with the configuration as somebody and the agent have left it.
unchanged() { :; }
edited() {
  grep -E '^[A-Za-z]' "$former_files"/VeloAgent.conf.sample | grep -v NIMB_HOST >$conf
  sed -i -e 's/^hostIP=.*/hostIP=10.0.0.7:8080/' -e 's/^PASSWORD=.*/PASSWORD=open sesame/' $conf
  chmod 640 $conf
}
with_comments() { printf '# mine\n\n hostIP = kept as it is\nLULLABY_SONG=3' >$conf; }
deleted() { rm $conf; }

for change in unchanged edited with_comments deleted; do
  deb -i /tmp/former.deb
  expect "conffile of the former version" 1 "$(dpkg-query --root=$root -W -f '${Conffiles}' veloagent | grep -c VeloAgent.conf)"
  in_root /etc/init.d/S90veloagent start >/dev/null
  former=$(last_start)
  $change
  cp -p $conf /tmp/kept 2>/dev/null || { : >/tmp/kept && chmod 600 /tmp/kept; }
  deb -i /tmp/current.deb
  silent
  no_rests
  gone "$former" || fail "$change: the former version's agent runs on"
  expect "$change: agents" 1 "$(agents)"
  expect "$change: mode" "$(stat -c %a /tmp/kept)" "$(stat -c %a $conf)"
  head -c "$(stat -c %s /tmp/kept)" $conf | cmp -s - /tmp/kept || fail "$change: the configuration was changed"
  for key in hostIP NIMB_HOST LULLABY_SONG; do
    grep -qE "^ *$key *=" $conf || fail "$change: no $key"
  done
  [ -e $root/etc/init.d/S90veloagent ] || [ -L $root/etc/init.d/S90veloagent ] || fail "$change: no link for rcS"
  deb -P veloagent
  expect "$change: agents after purging" 0 "$(agents)"
  expect "$change: left after purging" "$files_before" "$(find $root/etc $root/var ! -type d | grep -v /var/lib/dpkg | sort)"
done

# --- To the next version, while the agent runs and has written its configuration.
deb -i /tmp/current.deb
agent=$(last_start)
grep -E '^[A-Za-z]' $conf | sed 's/^SESSION_KEY=.*/SESSION_KEY=4711/' >/tmp/written
cat /tmp/written >$conf
deb -i /tmp/next.deb
silent
no_rests
expect "configuration after the next version" "$(cat /tmp/written)"$'\n\n# Something new.\n# On two lines.\nNEW_KEY=7' "$(cat $conf)"
gone "$agent" || fail "the old agent runs on"
expect "agents" 1 "$(agents)"
deb -i /tmp/next.deb
expect "nothing is added twice" 1 "$(grep -c NEW_KEY $conf)"

# --- One that cannot be unpacked: what was there runs again.
repack /tmp/next.deb "$version.2" /tmp/broken.deb sh -c 'echo "exit 1" >DEBIAN/preinst; sed -i "1i #!/bin/sh" DEBIAN/preinst; chmod 755 DEBIAN/preinst'
(deb -i /tmp/broken.deb) 2>/dev/null && fail "a broken package is installed"
expect "agents after a failed upgrade" 1 "$(agents)"
expect "configuration after a failed upgrade" NEW_KEY=7 "$(tail -n 1 $conf)"

# --- Removed, come back, purged.
cp $conf /tmp/kept
deb -r veloagent
expect "agents after removal" 0 "$(agents)"
cmp -s $conf /tmp/kept || fail "removal changed the configuration"
expect "links that lead nowhere" "" "$(in_root find /etc /tmp/working /run -xtype l)"
[ ! -L /tmp/working/VeloAgent.conf ] || fail "removal left the link to the configuration"
deb -i /tmp/next.deb
expect "agents after the package came back" 1 "$(agents)"
cmp -s $conf /tmp/kept || fail "a package that came back changed the configuration"
deb -P veloagent
expect "left after purging" "$files_before" "$(find $root/etc $root/var ! -type d | grep -v /var/lib/dpkg | sort)"
echo "upgrade_test: passed"
