#!/bin/bash
# recipes_test.sh PACKAGES BUILD: the source package of BUILD and the recipes that come with it. Neither bitbake nor Buildroot
# is here: make reads Buildroot's file, this script the parts of Yocto's that are shell; then the steps that they would take
# are taken on scratch roots, from the source package alone, against a folder of prebuilt libraries.
# shellcheck source-path=SCRIPTDIR source=scratch_root.sh
. "$(dirname "$0")/scratch_root.sh"
build=$2
export LC_ALL=C
cd /tmp
cpack -G TGZ --config "$build/CPackSourceConfig.cmake" -B /tmp/out >/tmp/cpack.log 2>&1 || fail "$(cat /tmp/cpack.log)"
version=$(sed -n 's/^CMAKE_PROJECT_VERSION:STATIC=//p' "$build/CMakeCache.txt")
source=/tmp/source/veloagent-$version
recipe=/tmp/out/yocto/veloagent_$version.bb
mkdir /tmp/source
tar -C /tmp/source -xzf "/tmp/out/veloagent-$version.tar.gz"
[ ! -e "$source/build" ] && [ ! -e "$source/.git" ] || fail "the source package holds a build"

# --- The checksums.
(cd /tmp/out && grep "veloagent-$version.tar.gz" buildroot/veloagent.hash | sed 's/^sha256 *//' | sha256sum -c --quiet -) || fail "veloagent.hash"
(cd "$source" && grep 'LICENSE' /tmp/out/buildroot/veloagent.hash | sed 's/^sha256 *//' | sha256sum -c --quiet -) || fail "licence of veloagent.hash"
grep -qF "SRC_URI[sha256sum] = \"$(sha256sum <"/tmp/out/veloagent-$version.tar.gz" | cut -d' ' -f1)\"" "$recipe" || fail "checksum of the recipe"
grep -qF "file://LICENSE;md5=$(md5sum <"$source/LICENSE" | cut -d' ' -f1)" "$recipe" || fail "licence of the recipe"
! grep -rE '@[A-Z_]+@' /tmp/out/yocto /tmp/out/buildroot || fail "something was not filled in"

# --- Buildroot's file, read by make as a tree with these settings would; make also runs its steps.
mkdir -p /tmp/vendor
cp "$build"/devkit/vendor/lib{vq_ipca,ef,usock}.so /tmp/vendor
printf 'hostIP=10.1.2.3\nPASSWORD=from the factory\n' >/tmp/factory.conf
cat >/tmp/tree.mk <<'TREE'
qstrip = $(strip $(subst ",,$(1)))
INSTALL = install
include /tmp/out/buildroot/veloagent.mk
value-%: ; @echo '$($*)'
$(SOURCE_FOLDER)/installed: ; $(foreach hook,$(VELOAGENT_POST_INSTALL_TARGET_HOOKS),$($(hook)))
$(SOURCE_FOLDER)/sysv: ; $(VELOAGENT_INSTALL_INIT_SYSV)
$(SOURCE_FOLDER)/systemd: ; $(VELOAGENT_INSTALL_INIT_SYSTEMD)
TREE
tree() { # TARGET-DIR GOAL
  make -s --no-print-directory -f /tmp/tree.mk SOURCE_FOLDER="$source" TARGET_DIR="$1" BR2_ARM_CPU_HAS_NEON=y \
    BR2_PACKAGE_VELOAGENT_SITE='"file:///tmp/out"' BR2_PACKAGE_VELOAGENT_VENDOR_LIB_DIR='"/tmp/vendor"' \
    BR2_PACKAGE_VELOAGENT_NIMB_HOST='"storage.example.com"' BR2_PACKAGE_VELOAGENT_CONF='"/tmp/factory.conf"' \
    BR2_PACKAGE_VELOAGENT_KEPT='"/data/veloagent"' "$2"
}
expect "version" "$version" "$(tree x value-VELOAGENT_VERSION)"
[ -e "$(tree x value-VELOAGENT_SITE | sed 's|^file://||')/$(tree x value-VELOAGENT_SOURCE)" ] || fail "Buildroot does not find the source package"
buildroot_options=$(tree x value-VELOAGENT_CONF_OPTS)
# Each setting that the file reads is one of Config.in's, and the other way round.
expect "settings" "$(sed -n 's/^config \(BR2_PACKAGE_VELOAGENT_.*\)/\1/p' /tmp/out/buildroot/Config.in | sort)" \
  "$(grep -o 'BR2_PACKAGE_VELOAGENT_[A-Z_]*' /tmp/out/buildroot/veloagent.mk | sort -u)"
if command -v kconfig-conf >/dev/null; then
  {
    echo 'mainmenu "tree"'
    printf 'config BR2_%s\n\tdef_bool y\n' INSTALL_LIBSTDCPP TOOLCHAIN_HAS_THREADS TOOLCHAIN_GCC_AT_LEAST_12
    printf 'config BR2_%s\n\tbool "x"\n' STATIC_LIBS PACKAGE_LIBCURL PACKAGE_OPENSSL PACKAGE_CA_CERTIFICATES
    echo 'source "/tmp/out/buildroot/Config.in"'
  } >/tmp/Kconfig
  echo BR2_PACKAGE_VELOAGENT=y >/tmp/defconfig
  CONFIG_='' kconfig-conf --defconfig=/tmp/defconfig /tmp/Kconfig >/tmp/kconfig.log 2>&1 || fail "Config.in: $(cat /tmp/kconfig.log)"
  ! grep -iE 'warning|error' /tmp/kconfig.log || fail "Config.in: $(cat /tmp/kconfig.log)"
  expect "what Config.in makes of the defaults" 6 "$(grep -c BR2_PACKAGE_VELOAGENT /tmp/.config)"
fi

# --- Yocto's: every variable is the recipe's own or bitbake's; its files are there; its options.
known=' PN PV D S B WORKDIR STAGING_LIBDIR datadir sysconfdir nonarch_libdir systemd_system_unitdir '
own=" $(sed -nE 's/^([A-Z_]+)( \?)? *\??=.*/\1/p' "$recipe" | xargs) "
for name in $(grep -v '^#' "$recipe" | grep -oE '\$\{[A-Za-z_]+\}' | tr -d '${}' | sort -u); do
  case "$known$own" in *" $name "*) ;; *) fail "the recipe uses $name, which nobody sets" ;; esac
done
for file in $(grep '^SRC_URI = ' "$recipe" | grep -oE 'file://[A-Za-z.]+' | sed 's|file://||'); do
  [ -e "/tmp/out/yocto/files/$file" ] || fail "the recipe's $file is not there"
done
yocto_options=$(sed -n '/^EXTRA_OECMAKE/,/^"/p' "$recipe" | grep -oE -- '-D[A-Z_]+=[^ ]*' | sed 's/=\${@.*/=ON/')
install_step=$(sed -n '/^do_install:append() {/,/^}/p' "$recipe" | sed 's/^do_install:append() {/do_install_append() {/')
dash -n <<<"$install_step" || fail "do_install:append"

# --- Both give the same options, and CMake has each.
names() { grep -oE -- '-D[A-Z_]+' <<<"$1" | sort; }
expect "options of both" "$(names "$yocto_options")" "$(names "$buildroot_options")"
for option in $(names "$buildroot_options"); do
  grep -q "^${option#-D}:" "$build/CMakeCache.txt" || fail "CMake has no option ${option#-D}"
done

# --- Built from the source package alone, installed as CMake does for either.
cmake -S "$source" -B /tmp/build -G Ninja -DCMAKE_BUILD_TYPE=MinSizeRel $buildroot_options >/tmp/build.log 2>&1 || fail "$(tail -n 20 /tmp/build.log)"
cmake --build /tmp/build -j 2 >/tmp/build.log 2>&1 || fail "$(tail -n 20 /tmp/build.log)"
strings /tmp/build/VeloAgent | grep -x storage.example.com >/dev/null || fail "the storage host was not compiled in"
for target in busybox systemd yocto; do DESTDIR=/tmp/$target cmake --install /tmp/build >/dev/null; done

# --- Buildroot's steps, with BusyBox's init and with systemd.
programs='./usr/bin/VeloAgent
./usr/lib/veloagent/S90veloagent
./usr/lib/veloagent/keep-conf
./usr/sbin/veloagent-check-conf
./usr/share/veloagent/VeloAgent.conf.sample'
files_of() { (cd "$1" && find . ! -type d ! -path './usr/share/doc/*' ! -path './usr/share/man/*' | sort); }
settings_of() { # ROOT: the factory's settings, completed
  local sample=$1/usr/share/veloagent/VeloAgent.conf.sample
  expect "$1: factory settings" "$2" "$(sed -n 's/^\(hostIP\|PASSWORD\)=//p' "$sample" | xargs)"
  expect "$1: check" "" "$("$source"/packaging/veloagent-check-conf -n "$sample")"
}
tree /tmp/busybox "$source/installed"
tree /tmp/busybox "$source/sysv"
expect "with BusyBox" "$(printf './etc/default/veloagent\n./etc/init.d/S90veloagent\n%s' "$programs")" "$(files_of /tmp/busybox)"
expect "the script" /usr/lib/veloagent/S90veloagent "$(readlink /tmp/busybox/etc/init.d/S90veloagent)"
expect "the folder that keeps" KEPT=/data/veloagent "$(cat /tmp/busybox/etc/default/veloagent)"
settings_of /tmp/busybox "10.1.2.3 from the factory"
tree /tmp/systemd "$source/installed"
tree /tmp/systemd "$source/systemd"
expect "with systemd" "$(printf './etc/default/veloagent\n%s\n./usr/lib/systemd/system/veloagent.service' "$programs" | sort)" "$(files_of /tmp/systemd)"

# --- Yocto's step, where units are in /lib.
(
  D=/tmp/yocto S=$source B=/tmp/build VELOAGENT_FILES=/tmp/out/yocto/files datadir=/usr/share sysconfdir=/etc
  export D S B VELOAGENT_FILES datadir sysconfdir systemd_system_unitdir=/lib/systemd/system
  dash -e -c "$install_step"$'\n''do_install_append'
) || fail "do_install:append"
expect "Yocto's" "$(printf '%s\n' ./etc/default/veloagent ./etc/init.d/veloagent ./lib/systemd/system/veloagent.service "$programs" | sort)" "$(files_of /tmp/yocto)"
settings_of /tmp/yocto "192.168.1.10 secret"
echo "recipes_test: passed"
