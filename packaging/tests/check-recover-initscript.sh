#!/bin/sh
# Runs the configured init script of the boot's recovery against a stub
# program in a temporary directory: start, restart and force-reload run it
# once each, stop and status do not, an unknown action exits with 3, and the
# script does nothing when the program is not installed. The LSB header puts
# it in runlevel S before networking.
# Usage: check-recover-initscript.sh CONFIGURED_INIT_SCRIPT
set -u
PATH=/sbin:/usr/sbin:/bin:/usr/bin

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

grep -qx '# Default-Start:     S' "$1" || fail "not in runlevel S"
grep -qx '# X-Start-Before:    networking panel-setup' "$1" || fail "not started before networking"
grep -qx '# Required-Start:    $local_fs' "$1" || fail "not after the local file systems"

# The copy runs the stub and never logs to the machine's syslog.
init=$work/panel-setup-recover
sed -e "s|^RECOVER=.*|RECOVER=$work/recover|" -e "s|/dev/log|$work/no-log|" "$1" >"$init"
cat >"$work/recover" <<STUB
#!/bin/sh
echo "\$*" >>"$work/calls"
echo "recovered" >&2
STUB
chmod +x "$work/recover"
calls() { [ -f "$work/calls" ] && wc -l <"$work/calls" || echo 0; }

out=$(sh "$init" start 2>&1) || fail "start failed"
[ "$out" = recovered ] || fail "start printed: $out"
[ "$(calls)" -eq 1 ] || fail "start ran the program $(calls) times"
[ "$(cat "$work/calls")" = "" ] || fail "the program got arguments: $(cat "$work/calls")"
for action in stop status; do
    sh "$init" $action >/dev/null 2>&1 || fail "$action failed"
done
[ "$(calls)" -eq 1 ] || fail "stop or status ran the program"
for action in restart force-reload; do
    sh "$init" $action >/dev/null 2>&1 || fail "$action failed"
done
[ "$(calls)" -eq 3 ] || fail "restart and force-reload did not run the program once each"
sh "$init" bogus >/dev/null 2>&1
[ $? -eq 3 ] || fail "an unknown action must exit with 3"

rm "$work/recover"
out=$(sh "$init" start 2>&1) || fail "start without the program failed"
[ -z "$out" ] || fail "start without the program printed: $out"
echo "PASS"
