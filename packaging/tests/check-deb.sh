#!/bin/sh
# Checks the daemon's Debian package as dpkg-buildpackage made it: the exact
# file list with modes, that the deployment guide documents every file, the
# control fields (architecture of the daemon's ELF machine, library
# dependencies), the conffiles, the maintainer scripts that debhelper wrote
# for the units and init scripts, the paths inside the service files, and a
# simulated install. scripts/deb-build runs it on every package it builds;
# lintian runs in scripts/ci-debian.
# Usage: check-deb.sh DEB DEPLOYMENT_GUIDE
set -u
deb=$(readlink -f "$1") guide=$2

fail() { echo "FAIL: $*"; exit 1; }

for tool in dpkg-deb:dpkg readelf:binutils; do
    command -v "${tool%:*}" >/dev/null || fail "${tool%:*} is missing (package ${tool#*:})"
done
[ -f "$deb" ] || fail "no package $deb"
echo "package: ${deb##*/}"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
dpkg-deb -c "$deb" | awk '{ print $1, $6 }' >"$work/files"
cat >"$work/expected" <<'EOF'
drwxr-xr-x ./
drwxr-xr-x ./etc/
drwxr-xr-x ./etc/default/
-rw-r--r-- ./etc/default/panel-setup
drwxr-xr-x ./etc/init.d/
-rwxr-xr-x ./etc/init.d/panel-setup
-rwxr-xr-x ./etc/init.d/panel-setup-recover
drwxr-xr-x ./usr/
drwxr-xr-x ./usr/lib/
drwxr-xr-x ./usr/lib/systemd/
drwxr-xr-x ./usr/lib/systemd/system/
-rw-r--r-- ./usr/lib/systemd/system/panel-setup-recover.service
-rw-r--r-- ./usr/lib/systemd/system/panel-setup.service
drwxr-xr-x ./usr/sbin/
-rwxr-xr-x ./usr/sbin/panel-setup
-rwxr-xr-x ./usr/sbin/panel-setup-recover
-rwxr-xr-x ./usr/sbin/setup_script
drwxr-xr-x ./usr/share/
drwxr-xr-x ./usr/share/doc/
drwxr-xr-x ./usr/share/doc/panel-setup/
-rw-r--r-- ./usr/share/doc/panel-setup/changelog.gz
-rw-r--r-- ./usr/share/doc/panel-setup/copyright
drwxr-xr-x ./usr/share/man/
drwxr-xr-x ./usr/share/man/man8/
-rw-r--r-- ./usr/share/man/man8/panel-setup-recover.8.gz
-rw-r--r-- ./usr/share/man/man8/panel-setup.8.gz
-rw-r--r-- ./usr/share/man/man8/setup_script.8.gz
drwxr-xr-x ./var/
drwxr-xr-x ./var/lib/
drwxr-xr-x ./var/lib/panel-setup/
EOF
diff -u "$work/expected" "$work/files" || fail "file list differs (- expected, + package)"

# Every file (not directory) of the package is named in the deployment guide.
for path in $(awk '$1 !~ /^d/ { sub(/^\./, "", $2); print $2 }' "$work/expected"); do
    grep -qF "$path" "$guide" || fail "$path is not documented in $guide"
done

field() { dpkg-deb -f "$deb" "$1"; }
[ "$(field Package)" = panel-setup ] || fail "Package: $(field Package)"
[ "$(field Pre-Depends)" = "init-system-helpers (>= 1.54~)" ] || fail "Pre-Depends: $(field Pre-Depends)"

dpkg-deb -x "$deb" "$work/root"
daemon=$work/root/usr/sbin/panel-setup
machine=$(readelf -h "$daemon" | sed -n 's/^ *Machine: *//p')
case $machine in
    *X86-64*) arch=amd64 ;;
    AArch64) arch=arm64 ;;
    ARM) arch=armhf ;;
    *) fail "unknown ELF machine: $machine" ;;
esac
[ "$(field Architecture)" = "$arch" ] || fail "Architecture: $(field Architecture), the daemon is built for $arch"

# Depends names the Qt of the build (libqt6core6 or libqt5core5a, ...) and the C library.
qt=$(readelf -d "$daemon" | sed -n 's/.*Shared library: \[libQt\([56]\)Core\.so.*/\1/p')
[ -n "$qt" ] || fail "the daemon does not link QtCore"
depends=$(field Depends)
echo "Depends: $depends"
for lib in "libqt${qt}core" "libqt${qt}network" libc6 libstdc++6; do
    echo "$depends" | grep -q "\(^\|, \)$lib" || fail "Depends lacks $lib"
done

dpkg-deb -e "$deb" "$work/control"
[ "$(sort "$work/control/conffiles")" = "/etc/default/panel-setup
/etc/init.d/panel-setup
/etc/init.d/panel-setup-recover" ] || fail "conffiles: $(cat "$work/control/conffiles")"

# The maintainer scripts are debhelper's: both units enabled, both init
# scripts linked into their runlevels, the daemon started on installation
# and restarted on an upgrade by either init system, the boot's recovery
# never started; the rc links and unit state forgotten on purge.
[ "$(cd "$work/control" && ls preinst postinst prerm postrm 2>/dev/null | tr '\n' ' ')" = "postinst postrm preinst prerm " ] ||
    fail "maintainer scripts: $(ls "$work/control")"
for script in preinst postinst prerm postrm; do
    [ -x "$work/control/$script" ] || fail "$script is not executable"
    sh -n "$work/control/$script" || fail "$script has a syntax error"
    grep -q '^# Automatically added by dh_install\(init\|systemd\)/' "$work/control/$script" ||
        fail "$script has no section of dh_installinit or dh_installsystemd"
done
has() {
    script=$1
    shift
    for line in "$@"; do
        grep -qxF "$line" "$work/control/$script" || fail "$script lacks: $line"
    done
}
has postinst "		deb-systemd-helper enable 'panel-setup.service' >/dev/null || true" \
    "		deb-systemd-helper enable 'panel-setup-recover.service' >/dev/null || true" \
    "		update-rc.d panel-setup defaults >/dev/null" \
    "		update-rc.d panel-setup-recover defaults >/dev/null || exit 1" \
    "		invoke-rc.d --skip-systemd-native panel-setup \$_dh_action || exit 1" \
    "		deb-systemd-invoke \$_dh_action 'panel-setup.service' >/dev/null || true"
grep -q "invoke.* panel-setup-recover" "$work/control/postinst" && fail "postinst starts panel-setup-recover"
has prerm "	deb-systemd-invoke stop 'panel-setup.service' >/dev/null || true" \
    "	invoke-rc.d --skip-systemd-native panel-setup stop || exit 1"
has postrm "	update-rc.d panel-setup remove >/dev/null" "	update-rc.d panel-setup-recover remove >/dev/null" \
    "		deb-systemd-helper purge 'panel-setup.service' >/dev/null || true" \
    "		deb-systemd-helper purge 'panel-setup-recover.service' >/dev/null || true" \
    "    rm -rf /var/lib/panel-setup"

# The service files start the installed daemon with the installed setup script
# and name the services it starts after.
unit=$work/root/usr/lib/systemd/system/panel-setup.service
init=$work/root/etc/init.d/panel-setup
grep -qx 'ExecStart=/usr/sbin/panel-setup ${SETUP_SCRIPT}' "$unit" || fail "unit: ExecStart"
grep -qx 'Environment=SETUP_SCRIPT=/usr/sbin/setup_script' "$unit" || fail "unit: SETUP_SCRIPT"
grep -qx 'Restart=always' "$unit" || fail "unit: Restart"
grep -qx 'After=kd5820m-collector.service kd5820m-buttondriver.service' "$unit" || fail "unit: After"
grep -qx 'DAEMON=/usr/sbin/panel-setup' "$init" || fail "init script: DAEMON"
grep -qx 'SETUP_SCRIPT=/usr/sbin/setup_script' "$init" || fail "init script: SETUP_SCRIPT"
grep -q '^# Should-Start: .* kd5820m-collector kd5820m-buttondriver$' "$init" || fail "init script: Should-Start"
sh -n "$init" || fail "init script has a syntax error"
grep -qx 'StateDirectory=panel-setup' "$unit" || fail "unit: StateDirectory"
# The boot's recovery: early, before networking and the daemon.
recover_unit=$work/root/usr/lib/systemd/system/panel-setup-recover.service
recover_init=$work/root/etc/init.d/panel-setup-recover
grep -qx 'ExecStart=/usr/sbin/panel-setup-recover' "$recover_unit" || fail "recovery unit: ExecStart"
grep -qx 'Type=oneshot' "$recover_unit" || fail "recovery unit: Type"
grep -qx 'DefaultDependencies=no' "$recover_unit" || fail "recovery unit: DefaultDependencies"
grep -qx 'After=local-fs.target' "$recover_unit" || fail "recovery unit: After"
grep -q '^Before=.* networking.service panel-setup.service' "$recover_unit" || fail "recovery unit: Before"
grep -qx 'RECOVER=/usr/sbin/panel-setup-recover' "$recover_init" || fail "recovery init script: RECOVER"
sh -n "$recover_init" || fail "recovery init script has a syntax error"
# systemd's own parser; the programs and their manual pages are not installed
# here, so they are not found.
if command -v systemd-analyze >/dev/null; then
    complaints=$(systemd-analyze verify "$unit" "$recover_unit" 2>&1 |
        grep -v -e 'Command /usr/sbin/panel-setup\(-recover\)\? is not executable' \
            -e "Command 'man \(panel-setup\|panel-setup-recover\|setup_script\)(8)' failed")
    [ -z "$complaints" ] || fail "systemd-analyze verify: $complaints"
fi

# Installable: apt resolves the dependencies without installing anything.
if command -v apt-get >/dev/null; then
    apt-get install --simulate --no-install-recommends "$deb" >"$work/apt.log" 2>&1 ||
        { cat "$work/apt.log"; fail "apt-get cannot install the package"; }
    grep -q "^Inst panel-setup" "$work/apt.log" || { cat "$work/apt.log"; fail "apt-get would not install panel-setup"; }
fi
echo "PASS"
