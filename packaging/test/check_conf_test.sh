#!/bin/bash
# check_conf_test.sh PACKAGES BUILD [busybox]: what veloagent-check-conf finds in configurations, row by row; and that it,
# the sample, the manual page and the sources know the same keys.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
packaging=$(cd "$(dirname "$0")/.." && pwd)
sample=$packaging/VeloAgent.conf.sample
export LC_ALL=C
conf=/tmp/working/VeloAgent.conf
shell=dash
if [ "${3:-}" = busybox ]; then
  command -v busybox >/dev/null || { echo "check_conf_test: no busybox here" && exit 0; }
  shell='busybox sh'
fi
check() { $shell "$packaging"/veloagent-check-conf "$@"; }

# --- One set of keys.
keys=$(sed -n 's/^\([A-Za-z_]*\)=.*/\1/p' "$sample" | sort)
expect "the checker's keys" "$keys" "$(sed -n "/^rules='/,/'\$/s/^\(rules='\)\{0,1\}\([A-Za-z_]*\):.*/\2/p" "$packaging"/veloagent-check-conf | sort)"
page=$(sed -n 's/^\.BR* \([A-Za-z_", ]*\)$/\1/p' "$packaging"/man/VeloAgent.conf.5.in | tr -d '",' | tr ' ' '\n' | grep -xE 'hostIP|[A-Z_]+' | sort)
expect "the manual page's keys" "$keys" "$page"
sources=$(find "$packaging"/../platform -name '*.cpp' -exec cat {} + -o -name '*.h' -exec cat {} + |
  grep -oE '(conf_value(_into)?|conf_number)\([^;"]*"[A-Za-z_]+"|key = "[A-Z_]+"' |
  grep -oE '"(hostIP|[A-Z]+_?[A-Z_]+)"$' | tr -d '"' | sort -u)
expect "keys of the sources that nobody describes" "" "$(comm -13 <(echo "$keys") <(echo "$sources"))"
expect "described keys that no source reads" LULLABY_SONG "$(comm -23 <(echo "$keys") <(echo "$sources"))"

# --- Nothing to find.
install -m 600 "$sample" $conf
expect "the sample" "" "$(check)"
expect "without files" "" "$(check -n "$sample")"
grep -v '^#' "$sample" | grep . >$conf
expect "as the agent writes it" "" "$(check)"
printf '  hostIP=1.2.3.4:65535 \t\r\n# comment\n\n' >$conf
grep -vE '^(#|hostIP|NIMB_HOST|LULLABY|COOKIE|TIMEZONE)' "$sample" >>$conf
expect "blanks around, and keys that may be missing" "" "$(check)"

# --- One thing to find: what is said, file and line left out, when
# the sample is changed.
row() { # TEXT SED-EXPRESSION...
  local code=0 found
  install -m 600 "$sample" $conf
  sed -i "${@:2}" $conf
  found=$(check 2>&1) || code=$?
  expect "${*:2}" "1 $1" "$code $(sed -E "s|^$conf(:[0-9]+)?: ||" <<<"$found")"
}
long() { printf "%0$1d" 0 | tr 0 x; }
row 'hostIP: missing: no camera is found' '/^hostIP/d'
row 'hostIP: is empty' 's/^hostIP=.*/hostIP=/'
for address in camera 1.2.3 1.2.3.4.5 1.2.3.256 1..3.4 1.2.3.4: 1.2.3.4:x 1.2.3.4:65536 1.2.3.-4 .1.2.3; do
  row 'hostIP: must be an IPv4 address, or address:port' "s/^hostIP=.*/hostIP=$address/"
done
row $'hostIP: longer than 15 characters, the rest is cut' 's/^hostIP=.*/hostIP=10.10.10.10:8080/'
row 'hostIP: a second time, ignored' '$a hostIP=1.2.3.4'
row $'hostIP: a blank before the "=" makes it another key, ignored\nhostIP: missing: no camera is found' 's/^hostIP=/hostIP =/'
row $'HOSTIP: no such key, ignored' '$a HOSTIP=1'
row 'no key=value, ignored' '$a SESSION_KEY'
row 'PASSWORD: longer than 29 characters, the rest is cut' "s/^PASSWORD=.*/PASSWORD=$(long 30)/"
row 'SESSION_KEY: missing: the agent never gets past the login' '/^SESSION_KEY/d'
row 'BATTERY_ARMED: missing: not armed, and what the cloud sets is lost' '/^BATTERY_ARMED/d'
row 'NIMB_LOW: missing: never low, and what the cloud sets is lost' '/^NIMB_LOW/d'
row 'BATTERY_ARMED: 2 is not in 0 to 1' 's/^BATTERY_ARMED=.*/BATTERY_ARMED=2/'
row 'BATTERY_LOW: 101 is not in 0 to 100' 's/^BATTERY_LOW=.*/BATTERY_LOW=101/'
for number in '' on -1 1.5 '1 x' 99999999999 0x10; do
  row 'BATTERY_LOW: must be a whole number from 0 to 100' "s/^BATTERY_LOW=.*/BATTERY_LOW=$number/"
done
row 'POLL_STATUS_PERIOD_SEC: 0 is not in 1 to 86400' 's/^POLL_STATUS_PERIOD_SEC=.*/POLL_STATUS_PERIOD_SEC=0/'
row 'POOL_NTP_PERIOD_SEC: 59 is not in 60 to 2147483647' 's/^POOL_NTP_PERIOD_SEC=.*/POOL_NTP_PERIOD_SEC=59/'
row 'NIMB_PERIOD: 2147483648 is not in 0 to 2147483647' 's/^NIMB_PERIOD=.*/NIMB_PERIOD=2147483648/'
row 'COOKIE: longer than 31 characters, the rest is cut' "s|^COOKIE=.*|COOKIE=/tmp/$(long 27)|"
row 'COOKIE: must begin with "/"' 's/^COOKIE=.*/COOKIE=cookie.txt/'
row 'RECORDING_FLAG_FILE: longer than 39 characters, the rest is cut' "s|^RECORDING_FLAG_FILE=.*|RECORDING_FLAG_FILE=/tmp/fuse_d/$(long 28)|"
row 'RECORDING_LOG_FILE: is empty' 's/^RECORDING_LOG_FILE=.*/RECORDING_LOG_FILE=/'
row 'RECORDING_LOG_FILE: /tmp/nowhere is not there' 's|^RECORDING_LOG_FILE=.*|RECORDING_LOG_FILE=/tmp/nowhere/log|'
row 'RECORDING_LOG_FILE: /tmp/fuse_d is a folder' 's|^RECORDING_LOG_FILE=.*|RECORDING_LOG_FILE=/tmp/fuse_d|'
row 'RECORDING_LOG_FILE: no file can be made in /proc/self' 's|^RECORDING_LOG_FILE=.*|RECORDING_LOG_FILE=/proc/self/log|'
row 'OTA_TMP_FILE: /tmp does not outlive a reboot' 's|^OTA_TMP_FILE=.*|OTA_TMP_FILE=/tmp/ota|'
row 'NIMB_HOST: must be host or host:port' 's|^NIMB_HOST=.*|NIMB_HOST=https://storage|'
row 'longer than 1022 characters, read as several lines' "\$a #$(long 1022)"

# --- The file itself.
install -m 640 "$sample" $conf
expect "a file for others" "$conf: others can read it, and it holds a password: chmod 600" "$(check || true)"
ln -sf /proc/self/status /tmp/link
expect "a folder that takes no file" "no file can be made in /proc/self: what the agent writes may be lost" \
  "$(check /tmp/link | sed -n 's|^/tmp/link: \(no file.*\)|\1|p')"
mv $conf $conf.kept
ln -s VeloAgent.conf.kept $conf
chmod 600 $conf.kept
expect "by a link" "" "$(check)"
code=0
check /tmp/nothing >/tmp/out 2>&1 || code=$?
expect "no file" "2 usage: veloagent-check-conf [-n] [FILE]; /tmp/nothing cannot be read" "$code $(cat /tmp/out)"
sed -i "s/^PASSWORD=.*/PASSWORD=$(long 40)/" $conf.kept
! check | grep xxx >/dev/null || fail "a password is printed"
echo "check_conf_test: passed"
