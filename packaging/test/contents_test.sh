#!/bin/bash
# contents_test.sh PACKAGES BUILD: looks into the packages, installs the .deb into a root that nothing runs in, removes and
# purges it.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
package=$(echo "$1"/*.deb)
files_of() { (cd "$1" && find . ! -type d ! -path './var/lib/dpkg/*' | sort); }
without() { grep -vxF "$1" <<<"$2"; }

export LC_ALL=C
contents='./etc/init.d/S90veloagent
./etc/init.d/veloagent
./usr/bin/VeloAgent
./usr/lib/systemd/system/veloagent.service
./usr/lib/veloagent/S90veloagent
./usr/lib/veloagent/keep-conf
./usr/sbin/veloagent-check-conf
./usr/share/doc/veloagent/changelog.gz
./usr/share/doc/veloagent/copyright
./usr/share/man/man5/VeloAgent.conf.5.gz
./usr/share/man/man8/VeloAgent.8.gz
./usr/share/man/man8/veloagent-check-conf.8.gz
./usr/share/veloagent/VeloAgent.conf.sample'
# And every document, by whatever name.
contents=$(cd "$(dirname "$0")/../.." && (
  echo "$contents"
  for document in README.md SECURITY.md CHANGELOG.md docs/*.md; do
    [ ! -e "$document" ] || echo "./usr/share/doc/veloagent/${document#docs/}"
  done
) | sort)
rcs_link=./etc/init.d/S90veloagent
conf=./etc/veloagent/VeloAgent.conf

# --- What is in them.
cd /tmp
mkdir deb tgz control
dpkg-deb -x "$package" deb
dpkg-deb -e "$package" control
tar -C tgz -xzf "$(echo "$1"/*.tar.gz)"
expect "the archive holds" "$contents" "$(files_of tgz)"
expect "the .deb holds" "$(without $rcs_link "$contents")" "$(files_of deb)"
expect "configuration that dpkg would ask about" /etc/init.d/veloagent "$(cat control/conffiles)"
for unpacked in deb tgz; do
  for program in bin/VeloAgent sbin/veloagent-check-conf lib/veloagent/S90veloagent lib/veloagent/keep-conf; do
    expect "$unpacked: $program" 755 "$(stat -c %a $unpacked/usr/$program)"
  done
  ! readelf -S $unpacked/usr/bin/VeloAgent | grep '\.symtab' >/dev/null || fail "the binary is not stripped"
  ! readelf -d $unpacked/usr/bin/VeloAgent | grep -E 'RPATH|RUNPATH' >/dev/null || fail "the binary names a build folder"
done
# What one package says of itself and what its binary is.
machine=$(readelf -h deb/usr/bin/VeloAgent | sed -n 's/ *Machine: *//p')
case $(dpkg-deb -f "$package" Architecture):$machine in
  armhf:ARM | amd64:*X86-64 | arm64:AArch64) ;;
  *) fail "a $machine binary in a package for $(dpkg-deb -f "$package" Architecture)" ;;
esac
# One version everywhere.
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$2/CMakeCache.txt")
expect "version" "$version" "$(dpkg-deb -f "$package" Version)"
for page in deb/usr/share/man/man?/*.gz; do
  zcat "$page" | grep "VeloAgent $version" >/dev/null || fail "$page is not of version $version"
done
zcat deb/usr/share/doc/veloagent/changelog.gz | grep "^veloagent ($version) " >/dev/null || fail "the changelog is of another version"

# --- Debian's own checker, where it is installed.
if command -v lintian >/dev/null; then
  lintian --allow-root --fail-on error "$package" >/tmp/lintian.log || fail "lintian: $(cat /tmp/lintian.log)"
fi

# --- Installed into a root that is another system's, removed, installed again and purged.
mkdir -p $root/var/lib/dpkg/{updates,info,triggers}
touch $root/var/lib/dpkg/{status,available}
in_root=(dpkg "--root=$root" --log=/dev/null --force-not-root --force-script-chrootless --force-depends --force-architecture)
run_dpkg() { "${in_root[@]}" "$@" </dev/null >/tmp/dpkg.log 2>&1 || fail "dpkg $*: $(cat /tmp/dpkg.log)"; }
run_dpkg -i "$package"
expect "installed" "$(sort <<<"$contents"$'\n'$conf)" "$(files_of $root)"
cmp -s $root/$conf deb/usr/share/veloagent/VeloAgent.conf.sample || fail "the configuration is not the sample"
expect "mode of the configuration" 600 "$(stat -c %a $root/$conf)"
echo hostIP=1.2.3.4 >$root/$conf
run_dpkg -r veloagent
expect "left after removal" ./etc/init.d/veloagent$'\n'$conf "$(files_of $root)"
expect "the configuration after removal" hostIP=1.2.3.4 "$(cat $root/$conf)"
[ ! -x $root/etc/init.d/veloagent ] || fail "the script of a removed package can be started"
run_dpkg -i "$package"
[ -x $root/etc/init.d/veloagent ] || fail "the script of a package that came back cannot be started"
expect "the configuration's first line" hostIP=1.2.3.4 "$(head -n 1 $root/$conf)"
run_dpkg -P veloagent
expect "left after purging" "" "$(files_of $root)"
[ ! -e $root/etc/veloagent ] || fail "purging left the configuration's folder"
echo "contents_test: passed"
