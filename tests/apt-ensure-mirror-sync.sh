#!/bin/sh
# scripts/apt-ensure against a mirror in the middle of a sync: apt-get update
# fails with an index of unexpected size. It is tried again after a pause; an
# index that stays so fails the run in one line when a missing package is of
# that index's architecture, and is passed over otherwise. Stubs stand in for
# id (root), dpkg-query (nothing installed), apt-get (its update fails as many
# times as the file "fails" says, its install succeeds), sleep (records the
# pause) and date; PATH holds only them and the tools the script uses, so
# nothing is installed and nobody waits. Usage: apt-ensure-mirror-sync.sh APT_ENSURE
set -eu
apt_ensure=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

fail() {
    echo "FAILED: $1"
    sed 's/^/  | /' "$work/out"
    exit 1
}

mkdir "$work/bin"
for tool in cat dirname env grep head mktemp rm sed tail; do
    ln -s "$(command -v $tool)" "$work/bin/$tool"
done
stub() {
    printf '#!/bin/sh\n%s\n' "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}
stub id 'echo 0'
stub date 'echo 1000'
stub dpkg-query 'exit 1'
stub sleep "echo \"\$*\" >>'$work/sleeps'"
index=http://deb.debian.org/debian-security/dists/bookworm-security/main/binary-armhf/Packages.xz
stub apt-get "w='$work'
case \$1 in
update)
    echo \"\$*\" >>\"\$w/updates\"
    [ \"\$(wc -l <\"\$w/updates\")\" -gt \"\$(cat \"\$w/fails\")\" ] && exit 0
    cat >&2 <<'END'
E: Failed to fetch $index  File has unexpected size (334084 != 350380). Mirror sync in progress? [IP: 203.0.113.80 80]
   Hashes of expected file:
    - Filesize:350380 [weak]
    - SHA256:3b08a2066fe2ffe5e0cc13a5bdbf9957adfdc93e36ac08654c6d974d395de175
   Release file created at: Mon, 23 Nov 2026 11:22:37 +0000
E: Some index files failed to download. They have been ignored, or old ones used instead.
END
    exit 100 ;;
install)
    echo \"\$*\" >>\"\$w/installs\"
    echo '0 upgraded, 3 newly installed, 0 to remove and 0 not upgraded.'
    echo 'Need to get 1,234 kB of archives.' ;;
esac"
ln -s "$(command -v wc)" "$work/bin/wc"

# run FAILS PACKAGES...: apt-ensure with an update that fails FAILS times;
# its output in out, its exit status in status.
run() {
    echo "$1" >"$work/fails"
    shift
    rm -f "$work/updates" "$work/installs" "$work/sleeps"
    status=0
    PATH=$work/bin /bin/sh "$apt_ensure" "$@" >"$work/out" 2>&1 || status=$?
}
count() {
    if [ -e "$work/$1" ]; then wc -l <"$work/$1"; else echo 0; fi
}
expect() {
    [ "$status" = "$1" ] || fail "exit status $status, not $1"
    [ "$(count updates)" = "$2" ] || fail "apt-get update ran $(count updates) times, not $2"
    [ "$(count installs)" = "$3" ] || fail "apt-get install ran $(count installs) times, not $3"
    printf '%s' "$4" >"$work/expected"
    cat "$work/sleeps" 2>/dev/null | diff "$work/expected" - >/dev/null || fail "pauses: $(cat "$work/sleeps")"
    diff "$work/expected-out" "$work/out" || fail "the output differs"
}
why="the armhf index of http://deb.debian.org/debian-security bookworm-security/main is inconsistent (mirror mid-sync)"
starting="Installing: cmake qt6-base-dev:armhf (apt's output: PANEL_SETUP_APT_VERBOSE=1)"
installed="Installed in 0 s: 3 packages, 1,234 kB downloaded"

# The mirror is consistent again at the third try.
run 2 cmake qt6-base-dev:armhf
cat >"$work/expected-out" <<END
$starting
apt-ensure: apt-get update failed: $why; trying again in 30 s (2 of 4)
apt-ensure: apt-get update failed: $why; trying again in 30 s (3 of 4)
$installed
END
expect 0 3 1 "30
30
"
grep -qxF "install -y --no-install-recommends -q cmake qt6-base-dev:armhf" "$work/installs" ||
    fail "install: $(cat "$work/installs")"
echo "ok: consistent at the third try"

# It stays inconsistent: one line says which index and what to do; no install.
run 99 cmake qt6-base-dev:armhf
cat >"$work/expected-out" <<END
$starting
apt-ensure: apt-get update failed: $why; trying again in 30 s (2 of 4)
apt-ensure: apt-get update failed: $why; trying again in 30 s (3 of 4)
apt-ensure: apt-get update failed: $why; trying again in 30 s (4 of 4)
apt-ensure: $why after 4 tries; retry later, or set PANEL_SETUP_APT_TRIES (4) and PANEL_SETUP_APT_PAUSE (30 s) to wait longer
END
expect 1 4 0 "30
30
30
"
echo "ok: stays inconsistent, a package of its architecture is missing"

# The same with fewer, shorter tries.
echo 99 >"$work/fails"
rm -f "$work/updates" "$work/installs" "$work/sleeps"
status=0
PATH=$work/bin PANEL_SETUP_APT_TRIES=2 PANEL_SETUP_APT_PAUSE=5 /bin/sh "$apt_ensure" qt6-base-dev:armhf \
    >"$work/out" 2>&1 || status=$?
cat >"$work/expected-out" <<END
Installing: qt6-base-dev:armhf (apt's output: PANEL_SETUP_APT_VERBOSE=1)
apt-ensure: apt-get update failed: $why; trying again in 5 s (2 of 2)
apt-ensure: $why after 2 tries; retry later, or set PANEL_SETUP_APT_TRIES (2) and PANEL_SETUP_APT_PAUSE (5 s) to wait longer
END
expect 1 2 0 "5
"
echo "ok: PANEL_SETUP_APT_TRIES and PANEL_SETUP_APT_PAUSE"

# No missing package is of that architecture: the install goes on.
run 99 cmake
cat >"$work/expected-out" <<END
Installing: cmake (apt's output: PANEL_SETUP_APT_VERBOSE=1)
apt-ensure: apt-get update failed: $why; trying again in 30 s (2 of 4)
apt-ensure: apt-get update failed: $why; trying again in 30 s (3 of 4)
apt-ensure: apt-get update failed: $why; trying again in 30 s (4 of 4)
apt-ensure: apt-get update failed: $why; installing from the indexes at hand
$installed
END
expect 0 4 1 "30
30
30
"
echo "ok: stays inconsistent, nothing of its architecture is missing"
