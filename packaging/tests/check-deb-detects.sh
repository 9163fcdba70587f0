#!/bin/sh
# check-deb.sh does not pass a wrong package: copies of a good package, each
# repacked with one fault, must fail it with the fault named.
# Usage: check-deb-detects.sh DEB DEPLOYMENT_GUIDE
set -u
deb=$(readlink -f "$1") guide=$2
checks=$(cd "$(dirname "$0")" && pwd)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
failed=0

# fault NAME MESSAGE COMMAND...: COMMAND changes the unpacked package, and
# check-deb.sh must then fail with a line that starts with MESSAGE.
fault() {
    name=$1 message=$2
    shift 2
    rm -rf "$work/tree"
    dpkg-deb -R "$deb" "$work/tree"
    (cd "$work/tree" && "$@")
    dpkg-deb --root-owner-group -b "$work/tree" "$work/faulty.deb" >/dev/null
    status=0
    sh "$checks/check-deb.sh" "$work/faulty.deb" "$guide" >"$work/out" 2>&1 || status=$?
    if [ $status -ne 0 ] && grep -q "^$message" "$work/out"; then
        echo "PASS: $name: $(grep "^$message" "$work/out" | head -n 1)"
    else
        echo "FAIL: $name: exit status $status, no line \"$message...\""
        sed 's/^/  | /' "$work/out"
        failed=1
    fi
}

fault "setup script missing" "FAIL: file list differs" rm usr/sbin/setup_script
fault "init script not executable" "FAIL: file list differs" chmod 644 etc/init.d/panel-setup
fault "/etc/default file no conffile" "FAIL: conffiles:" sed -i '\|^/etc/default/panel-setup$|d' DEBIAN/conffiles
fault "recovery unit not enabled" "FAIL: postinst lacks:" \
    sed -i "s/enable 'panel-setup-recover.service'/enable 'other.service'/" DEBIAN/postinst
fault "no Pre-Depends" "FAIL: Pre-Depends:" sed -i '/^Pre-Depends:/d' DEBIAN/control
exit $failed
