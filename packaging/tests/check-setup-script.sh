#!/bin/sh
# Checks the sample setup script in a sandbox root: "enter" stops and "exit"
# starts the main application, through its init script or, when systemd runs,
# through systemctl; anything else is refused.
# Usage: check-setup-script.sh SETUP_SCRIPT
set -u
script=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
fail() { echo "FAIL: $*"; exit 1; }

# Stub commands append their name and arguments to $work/log.
stub() {
    printf '#!/bin/sh\necho "%s $*" >>"%s"\n' "$2" "$work/log" >"$1"
    chmod +x "$1"
}
run() {
    rm -f "$work/log"
    PANEL_SETUP_ROOT=$work/root PATH="$work/bin:$PATH" sh "$script" "$@"
}
logged() { cat "$work/log" 2>/dev/null; }

mkdir -p "$work/root/etc/init.d" "$work/bin"
stub "$work/root/etc/init.d/kd5820m-main" init.d
stub "$work/bin/systemctl" systemctl

# Without systemd: the main application's init script.
run enter || fail "enter failed"
[ "$(logged)" = "init.d stop" ] || fail "enter ran: $(logged)"
run exit || fail "exit failed"
[ "$(logged)" = "init.d start" ] || fail "exit ran: $(logged)"

# With systemd running: systemctl on the main application's unit.
mkdir -p "$work/root/run/systemd/system"
run enter || fail "enter failed"
[ "$(logged)" = "systemctl stop kd5820m-main.service" ] || fail "enter ran: $(logged)"
run exit || fail "exit failed"
[ "$(logged)" = "systemctl start kd5820m-main.service" ] || fail "exit ran: $(logged)"

# No main application installed and no systemd: nothing to do, and no error.
rm -r "$work/root/run" "$work/root/etc/init.d/kd5820m-main"
run enter || fail "enter without a main application failed"
[ -z "$(logged)" ] || fail "enter ran: $(logged)"

# Anything but enter or exit: usage on stderr, status 2, nothing run.
err=$(run 2>&1 >/dev/null)
[ $? -eq 2 ] || fail "no argument must exit with 2"
[ "$err" = "usage: $script enter|exit" ] || fail "usage text: $err"
run restart 2>/dev/null && fail "an unknown word was accepted"
[ -z "$(logged)" ] || fail "an unknown word ran: $(logged)"
echo "PASS"
