#!/bin/bash
# explain_log_test.sh CHECKOUT: what scripts/explain-log says of recorded logs of the desk (work.log: start, polls, the cloud
# at work, an upgrade; trouble.log: all that goes wrong) and of single lines.
set -euo pipefail
checkout=$1
explain=$checkout/scripts/explain-log
here=$checkout/tests/docs
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failures=0

fail() {
  echo "explain_log_test: $1" >&2
  sed -n '1,20s/^/    /p' "$work/said" >&2
  failures=$((failures + 1))
}
# STATUS CASE COMMAND...: what the command prints goes to said.
ends_with() {
  local status=0
  "${@:3}" >"$work/said" 2>"$work/errors" || status=$?
  [ "$status" = "$1" ] || fail "$2: ends with $status, not $1"
}
says() { grep -qE "$2" "$work/said" || fail "$1: does not say: $2"; }
says_not() { ! grep -qE "$2" "$work/said" || fail "$1: says: $2"; }

# --- Whole logs: every line has its entry.
for log in work trouble; do
  ends_with 0 "$log.log" "$explain" <"$here/$log.log"
  says "$log.log" "^$(wc -l <"$here/$log.log") lines, .*; 0 lines without an entry\.$"
  says_not "$log.log" '^Without an entry'
done
# The last one was of trouble: what wants a look stands first and in full, normal work in one line.
sed '/^Part of normal work/,$d' "$work/said" >"$work/look"
sed '1,/^Part of normal work/d' "$work/said" >"$work/normal"
grep -q 'fail to NTP calibration, system() return: 256' "$work/look" || fail "a failure is not what wants a look"
grep -q '^    Do ' "$work/look" || fail "what to do is not said"
! grep -q '^    Do ' "$work/normal" || fail "normal work is explained in full"
grep -q 'Getting Session Key\.\.\.' "$work/normal" || fail "normal work is not listed"
ends_with 0 "--all" "$explain" --all <"$here/trouble.log"
sed '1,/^Part of normal work/d' "$work/said" >"$work/normal"
grep -q '^    Do     Nothing\.' "$work/normal" || fail "--all does not explain normal work"

# --- A text counts once for each time it came, where it first came.
printf '%s\n' 'SD alarm had send , don'"'t do something" 'Loginning..' 'Loginning..' >"$work/log"
ends_with 0 "counting" "$explain" <"$work/log"
says "counting" '^ +2 x  from line 2 +Loginning\.\.$'

# --- A line that begins several texts is taken for the one that the next lines go on with.
printf '%s\n' '!!!***platform/Z55/ak_model 136 ***!!!' 'res: 200' ' ***** reboot operation*****' >"$work/log"
ends_with 0 "a text of two lines" "$explain" --all <"$work/log"
says "a text of two lines" 'the device reboots'
says_not "a text of two lines" 'night light'

# --- What is not known is shown, with the rest explained.
printf '%s\n' 'Loginning..' 'segmentation fault' 'segmentation fault' >"$work/log"
ends_with 1 "an unknown line" "$explain" <"$work/log"
says "an unknown line" '; 2 lines without an entry\.$'
says "an unknown line" '^ +2 x  from line 2 +segmentation fault$'

# --- Single lines, with other numbers, paths and addresses than any that were recorded.
while IFS='|' read -r line where; do
  ends_with 0 "$line" "$explain" "$line"
  says "$line" "\\($where\\)\$"
  says "$line" '^    When '
  says "$line" '^    Do '
done <<'ROWS'
fail to NTP calibration, system() return: 32512|ak_model/clock.cpp
curlmgr_enqueue_job OK. res = 28, good=123456 NG=7 fail_rate = 0|agent/curlmgr.cpp
 *** (poll) curl_perform ends ***|z55cgi.cpp
Read hostIP failed.: No such file or directory|agent/polling.cpp
(ping_default_gateway) ping 10.255.255.254 failed.|agent/network.cpp
recording temp file(/mnt/flash/rec flag) existed, stop recording|video_recording.cpp
fopen failed, platform/Z55/video_recording:Read-only file system|recording_log.cpp
(nimbo_polling) CURL response: total = 18446744073709551615, used = 0.|agent/quota.cpp
setting nimb_armed off, ---platform/Z55/ak_model,line 1|ak_model/parameters.cpp
*** (main) myPoll result:-9  failed. login... ***|agent/main.cpp
1.0.3FirmwareVer *get_result = 1.0.3|ak_model/status_read.cpp
Nov 22 01:02:03 cam7 VeloAgent[123]: PROGRESS == 0, FAIL!|ak_model/upgrade_monitor.cpp
2026-11-22T01:02:03+0100 cam7 VeloAgent[123]: can't create thread qq|video_recording.cpp
ROWS
ends_with 0 "libcurl" "$explain" '* Connected to 192.168.1.10 (192.168.1.10) port 80 (#0)' '> GET /CGI/CameraStatus?SD HTTP/1.1' '< HTTP/1.1 200 OK'
ends_with 0 "the service" "$explain" 'VeloAgent ended (139): starts again in 4 s' '/tmp/working/VeloAgent.conf:12: COOKIE: too long'
ends_with 1 "nothing known" "$explain" 'segmentation fault'
says "nothing known" 'no entry'

# --- Called otherwise.
ends_with 0 "--help" "$explain" --help
says "--help" 'explain-log < agent\.log'
ends_with 2 "an unknown option" "$explain" --every
grep -q 'explain-log < agent' "$work/errors" || fail "an unknown option: no help"

exit $((failures > 0))
