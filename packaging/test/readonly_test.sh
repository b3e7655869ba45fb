#!/bin/bash
# readonly_test.sh PACKAGES: the steps of docs/READONLY.md: a root that is never written, the configuration on a partition
# that is, with reboots, a new image, and a partition that is not there.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
image=/tmp/image
kept=/tmp/partition/veloagent/VeloAgent.conf
conf=/tmp/working/VeloAgent.conf
export LC_ALL=C

# --- The image, as the document has it.
mkdir -p $image/etc /tmp/partition
tar -C $image -xzf "$(echo "$1"/*.tar.gz)"
sample=$image/usr/share/veloagent/VeloAgent.conf.sample
install -m 600 $sample $image/etc/veloagent/VeloAgent.conf
sed -i -e 's/^hostIP=.*/hostIP=10.0.0.7/' -e '/^NIMB_HOST/d' $image/etc/veloagent/VeloAgent.conf
$image/usr/sbin/veloagent-check-conf -n $image/etc/veloagent/VeloAgent.conf || fail "the factory's settings"
mkdir -p $image/etc/default
echo 'KEPT=/data/veloagent' >$image/etc/default/veloagent
for tool in sleep VeloAgent; do printf '#!/bin/sh\nexec %s\n' 'true-sleep "${1:-1000}"' >$image/usr/bin/$tool; done
sed -i 's/"${1.*/"0.3"/' $image/usr/bin/sleep
cp "$(readlink -f /usr/bin/sleep)" $image/usr/bin/true-sleep
chmod 755 $image/usr/bin/*
mkdir -p $image/etc/alternatives
cp -P /etc/alternatives/*awk $image/etc/alternatives/

# --- A device that runs it. What is mounted from the image cannot be written.
mkdir -p $root/{etc,usr,proc,dev,tmp,run,data,var}
for folder in bin sbin $(cd /usr && echo lib*); do [ ! -e "/$folder" ] || ln -s "usr/$folder" "$root/$folder"; done
ln -s ../tmp $root/var/run
mount --bind $root $root
mount -o remount,bind,ro $root
mount --bind /tmp $root/tmp
mount --bind /proc $root/proc
mount --rbind /dev $root/dev
insert_image() {
  mount -t overlay overlay -o "lowerdir=$image/usr:/usr" $root/usr
  mount --bind $image/etc $root/etc
  mount -o remount,bind,ro $root/etc
}
power_on() {
  mount -t tmpfs -o mode=755 tmpfs $root/run
  mount --bind /tmp/partition $root/data
  service start >/tmp/out 2>&1 || fail "start: $(cat /tmp/out)"
}
power_off() {
  service stop >/dev/null
  mountpoint -q $root/data && umount $root/data
  umount $root/run
  rm -rf /tmp/working
}
insert_image
(: >$root/x) 2>/dev/null && fail "the root can be written"
(: >$root/etc/x) 2>/dev/null && fail "the image can be written"
(: >$root/usr/bin/x) 2>/dev/null && fail "the image's programs can be written"

# --- First start: the factory's settings, and what they lack.
power_on
expect "link" /data/veloagent/VeloAgent.conf "$(readlink $conf)"
expect "the factory's settings" "$(grep -v ^# $image/etc/veloagent/VeloAgent.conf)" "$(grep -v ^# $kept | head -n -2)"
expect "what they lack" NIMB_HOST= "$(tail -n 1 $kept)"
expect "mode" 600 "$(stat -c %a $kept)"
! grep outlive /tmp/out || fail "a complaint for nothing"

# --- What is written outlives a reboot.
sed -i 's/^BATTERY_LOW=.*/BATTERY_LOW=33/' $kept
cp $kept /tmp/before
power_off
power_on
cmp -s $kept /tmp/before || fail "a reboot changed the configuration"
power_off

# --- A new image: its new keys, with the factory's values before the sample's.
umount $root/etc $root/usr
printf '\n# New.\nNEW_A=1\nNEW_B=2\n' >>$sample
printf '\nNEW_B=3\nhostIP=1.1.1.1\n' >>$image/etc/veloagent/VeloAgent.conf
insert_image
power_on
expect "after a new image" "$(cat /tmp/before; printf 'NEW_B=3\n\n# New.\nNEW_A=1\n')" "$(cat $kept)"
power_off

# --- The partition is missing: a copy, said so; and with its return what was kept.
mount -t tmpfs -o mode=755 tmpfs $root/run
service start >/tmp/out 2>&1 || fail "start without the partition: $(cat /tmp/out)"
grep -q '/data/veloagent cannot be written: what is set will not outlive a reboot' /tmp/out || fail "no word of a missing partition"
[ -f $conf ] && [ ! -L $conf ] || fail "no copy"
expect "the copy" 10.0.0.7 "$(sed -n 's/^hostIP=//p' $conf | head -n 1)"
expect "the copy's mode" 600 "$(stat -c %a $conf)"
grep -q NEW_A $conf || fail "the copy lacks keys"
power_off
power_on
expect "kept" 33 "$(in_root sed -n 's/^BATTERY_LOW=//p' $conf)"
power_off

# --- Without a writable partition at all, and a /var/run that leads to /tmp: by the same script, no settings.
umount $root/etc
rm $image/etc/default/veloagent
echo 'RUN=/var/run/veloagent' >$image/etc/default/veloagent
mount --bind $image/etc $root/etc
mount -o remount,bind,ro $root/etc
service start >/tmp/out 2>&1 || fail "start without settings: $(cat /tmp/out)"
[ ! -L $conf ] || fail "a link into a read-only file system"
expect "pids" 700 "$(stat -c %a /tmp/veloagent)"
service stop >/dev/null
echo "readonly_test: passed"
