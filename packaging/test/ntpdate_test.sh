#!/bin/bash
# ntpdate_test.sh PACKAGES: the agent finds an ntpdate that is in /usr/sbin, as Debian's, whenever it is installed; what
# somebody else has in /usr/bin stays, and nothing of the package's is left there.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
# dpkg calls nobody whose dependencies are not there.
needs_nothing() { sed -i '/^Depends:/d' DEBIAN/control; }
repack "$(echo "$1"/*.deb)" 9 /tmp/veloagent.deb needs_nothing
package=/tmp/veloagent.deb
mkdir -p $root/var/lib/dpkg/{updates,info,triggers} /tmp/made/{DEBIAN,usr/sbin}
touch $root/var/lib/dpkg/{status,available}
run_dpkg() {
  dpkg "--root=$root" --log=/dev/null --force-not-root --force-script-chrootless --force-architecture "$@" \
    </dev/null >/tmp/dpkg.log 2>&1 || fail "dpkg $*: $(cat /tmp/dpkg.log)"
}
called() { if [ -L $root/usr/bin/ntpdate ]; then readlink $root/usr/bin/ntpdate; else cat $root/usr/bin/ntpdate 2>/dev/null || echo none; fi; }

printf 'Package: ntpdate\nVersion: 1\nArchitecture: all\nMaintainer: nobody\nDescription: none\n' >/tmp/made/DEBIAN/control
install -m 755 /dev/null /tmp/made/usr/sbin/ntpdate
dpkg-deb --root-owner-group -b /tmp/made /tmp/ntpdate.deb >/dev/null

run_dpkg -i "$package"
expect "without ntpdate" none "$(called)"
run_dpkg -i /tmp/ntpdate.deb
expect "with ntpdate, installed later" ../sbin/ntpdate "$(called)"
run_dpkg -r ntpdate
expect "ntpdate removed" none "$(called)"
run_dpkg -i /tmp/ntpdate.deb
run_dpkg -r veloagent
expect "the agent removed" none "$(called)"
run_dpkg -i "$package"
expect "with ntpdate, installed before" ../sbin/ntpdate "$(called)"
run_dpkg -P veloagent
expect "the agent purged" none "$(called)"

mkdir -p $root/usr/bin
echo somebody >$root/usr/bin/ntpdate
run_dpkg -i "$package"
run_dpkg -i /tmp/ntpdate.deb
expect "with another ntpdate there" somebody "$(called)"
run_dpkg -r ntpdate
run_dpkg -P veloagent
expect "another ntpdate in the end" somebody "$(called)"
echo "ntpdate_test: passed"
