#!/bin/sh
# Builds the Debian package of a build directory with cpack and checks it: the
# exact file list with modes, that the deployment guide documents every file, the control
# fields (architecture of the daemon's ELF machine, library dependencies,
# conffiles), the paths inside the service files, lintian (no error and no
# warning), and a simulated install.
# Usage: check-deb.sh BUILD_DIR CPACK_COMMAND DEPLOYMENT_GUIDE INSTALL_PREFIX
set -u
build_dir=$1 cpack=$2 guide=$3 prefix=$4

fail() { echo "FAIL: $*"; exit 1; }

# Off Debian there is no package to build. On Debian the tools are part of
# what scripts/install-deps installs, so a missing one fails the test.
command -v dpkg >/dev/null || { echo "SKIP: no dpkg, not a Debian system"; exit 77; }
for tool in dpkg-deb:dpkg dpkg-shlibdeps:dpkg-dev readelf:binutils file:file lintian:lintian; do
    command -v "${tool%:*}" >/dev/null ||
        fail "${tool%:*} is missing (package ${tool#*:}; scripts/install-deps installs it)"
done
[ "$prefix" = /usr ] || fail "this build directory installs to $prefix; a Debian package needs /usr (the default of a fresh build directory)"

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
(cd "$build_dir" && "$cpack" -G DEB -B "$work/out") >"$work/cpack.log" 2>&1 || { cat "$work/cpack.log"; fail "cpack failed"; }
set -- "$work"/out/*.deb
[ $# -eq 1 ] && [ -f "$1" ] || fail "expected one .deb, got: $*"
deb=$1
echo "package: ${deb##*/}"

dpkg-deb -c "$deb" | awk '{ print $1, $6 }' >"$work/files"
cat >"$work/expected" <<'EOF'
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
[ "$(cat "$work/control/conffiles")" = "/etc/init.d/panel-setup
/etc/init.d/panel-setup-recover
/etc/default/panel-setup" ] || fail "conffiles: $(cat "$work/control/conffiles")"
for script in postinst prerm postrm; do
    [ -x "$work/control/$script" ] || fail "$script is missing or not executable"
    sh -n "$work/control/$script" || fail "$script has a syntax error"
done

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

# Debian's package checker at its default level: no error, no warning. The
# informational tags that remain are named in the deployment guide.
lintian --allow-root --no-tag-display-limit "$deb" >"$work/lintian.log" 2>&1
lintian_status=$?
cat "$work/lintian.log"
grep -q '^[EW]: ' "$work/lintian.log" && fail "lintian reports errors or warnings"
[ $lintian_status -eq 0 ] || fail "lintian failed (exit $lintian_status)"

# Installable: apt resolves the dependencies without installing anything.
if command -v apt-get >/dev/null; then
    apt-get install --simulate --no-install-recommends "$deb" >"$work/apt.log" 2>&1 ||
        { cat "$work/apt.log"; fail "apt-get cannot install the package"; }
    grep -q "^Inst panel-setup" "$work/apt.log" || { cat "$work/apt.log"; fail "apt-get would not install panel-setup"; }
fi
echo "PASS"
