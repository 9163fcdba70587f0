#!/bin/sh
# Runs the configured init script against a stub daemon in a temporary
# directory: the setup script path is the daemon's argument, any exit that stop
# did not ask for is followed by a restart (a failure, a clean exit, death by
# SIGPIPE), stop ends it for good, status and stop cover the whole process group.
# Usage: check-initscript.sh CONFIGURED_INIT_SCRIPT
set -u
PATH=/sbin:/usr/sbin:/bin:/usr/bin
command -v start-stop-daemon >/dev/null || { echo "SKIP: start-stop-daemon is missing"; exit 77; }

work=$(mktemp -d)
init=$work/panel-setup
cleanup() {
    sh "$init" stop >/dev/null 2>&1
    rm -rf "$work"
}
trap cleanup EXIT

fail() { echo "FAIL: $*"; exit 1; }

# The copy reads its settings from the temporary directory instead of /etc/default.
sed "s|/etc/default/|$work/default/|g" "$1" >"$init"
mkdir "$work/default"
cat >"$work/default/panel-setup" <<EOF
DAEMON=$work/daemon
SETUP_SCRIPT=$work/my_setup_script
PIDFILE=$work/panel-setup.pid
RESPAWN_DELAY=0.1
EOF

# The stub records its arguments, then exits with the status that the file
# "plan" gives for this call (one line per call; no line: keep running until
# SIGTERM, which it records).
cat >"$work/daemon" <<EOF
#!/bin/sh
echo "\$*" >>"$work/calls"
status=\$(sed -n "\$(wc -l <"$work/calls")p" "$work/plan")
[ -n "\$status" ] && exit "\$status"
trap 'echo TERM >>"$work/signals"; exit 143' TERM
sleep 300 &
wait
EOF
chmod +x "$work/daemon"

calls() { [ -f "$work/calls" ] && wc -l <"$work/calls" || echo 0; }
# Waits up to 10 s for the stub to have been called $1 times.
wait_calls() {
    n=0
    while [ "$(calls)" -lt "$1" ] && [ $n -lt 100 ]; do sleep 0.1; n=$((n + 1)); done
    [ "$(calls)" -eq "$1" ] || fail "expected $1 daemon runs, got $(calls)"
}
# Waits up to 10 s until nothing of the started process group lives.
wait_group_gone() {
    n=0
    while grep -q "^[0-9]* (.*) [^Z] [0-9]* $1 " /proc/[0-9]*/stat 2>/dev/null; do
        n=$((n + 1))
        [ $n -lt 100 ] || fail "process group $1 still runs"
        sleep 0.1
    done
}

# A failure (status 1) is followed by a restart, which then keeps running.
printf '1\n' >"$work/plan"
sh "$init" start >/dev/null || fail "start failed"
wait_calls 2
[ "$(sort -u "$work/calls")" = "$work/my_setup_script" ] || fail "daemon arguments: $(cat "$work/calls")"
group=$(cat "$work/panel-setup.pid")
out=$(sh "$init" status) || fail "status of a running daemon: $out"
[ "$out" = "panel-setup is running" ] || fail "status said: $out"

# A second start leaves the running daemon alone.
sh "$init" start >/dev/null || fail "second start failed"
sleep 0.3
[ "$(calls)" -eq 2 ] || fail "second start ran the daemon again"

sh "$init" stop >/dev/null || fail "stop failed"
wait_group_gone "$group"
[ "$(cat "$work/signals" 2>/dev/null)" = TERM ] || fail "stop did not end the daemon with SIGTERM"
[ ! -e "$work/panel-setup.pid" ] || fail "stop left the pid file"
out=$(sh "$init" status)
[ $? -eq 3 ] || fail "status of a stopped daemon: $out"
[ "$out" = "panel-setup is not running" ] || fail "status said: $out"

# A clean exit and death by SIGPIPE (141) are restarted too; stop then ends it
# for good.
rm "$work/calls" "$work/signals"
printf '0\n141\n' >"$work/plan"
sh "$init" start >/dev/null || fail "start failed"
wait_calls 3
group=$(cat "$work/panel-setup.pid")
sh "$init" stop >/dev/null || fail "stop failed"
wait_group_gone "$group"
sleep 0.3
[ "$(calls)" -eq 3 ] || fail "stop was followed by a restart"
[ "$(cat "$work/signals" 2>/dev/null)" = TERM ] || fail "stop did not end the daemon with SIGTERM"

out=$(sh "$init" bogus 2>&1)
[ $? -eq 3 ] || fail "an unknown action must exit with 3"
echo "PASS"
