#!/bin/sh
# panel-sim's command line: a script from stdin, an unmet expectation, the
# time scale, script errors, the sandbox root made afresh or reused, and a daemon started by hand
# against --listen-only, the web view's options. Usage: sim-command-line.sh
# PANEL_SIM PANEL_SETUP web|no-web (whether panel-sim was built with the web view)
set -eu
sim=$1
daemon=$2
web_view=$3
work=$(mktemp -d)
daemon_pid=""
cleanup() {
    [ -z "$daemon_pid" ] || kill "$daemon_pid" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT INT TERM

fail() {
    echo "FAILED: $1"
    [ ! -f "$work/out" ] || sed 's/^/  | /' "$work/out"
    exit 1
}
# run EXPECTED_STATUS SCRIPT_TEXT [panel-sim options]: the script comes on stdin.
run() {
    expected=$1
    script=$2
    shift 2
    status=0
    printf '%b' "$script" | "$sim" --script - "$@" >"$work/out" 2>&1 || status=$?
    [ "$status" = "$expected" ] || fail "exit status $status, not $expected, for: $script"
}
has() {
    grep -qF -- "$1" "$work/out" || fail "no line with: $1"
}
# listen [panel-sim options]: panel-sim --listen-only in the background
# (sim_pid); returns with its line that tells how to start the daemon (line).
# The output file is emptied here, not only by the background shell, which may
# run later than the wait: the wait would then read the previous run's line
# and its ports.
listen() {
    : >"$work/out"
    "$sim" --listen-only "$@" >"$work/out" 2>&1 &
    sim_pid=$!
    tries=50
    while ! grep -q "waiting for a daemon started by hand" "$work/out" && [ $tries -gt 0 ]; do
        sleep 0.1
        tries=$((tries - 1))
    done
    line=$(grep "waiting for a daemon started by hand" "$work/out") || fail "no waiting line"
}

# An unmet expectation: status 1, the line, what is there, the whole panel.
run 1 'write /mnt/flashdisk/etc/network/start_setup_program ""\nexpect line 0 0 "SETUP" highlighted\nexpect line 0 1 "NOPE" within 300ms\n'
has '-:3: FAILED: expect line 0 1 "NOPE" within 300ms'
has 'not met within 0.3 s: line 0 1 is "TESTING" plain'
has 'The panel shows:'
has 'line 0 0 "SETUP" highlighted'
has 'calls: none'
has 'The end of the daemon'"'"'s log'
echo "ok: unmet expectation"

# A shell command as an expectation: run again until it exits 0, in the
# sandbox's environment; when it never does, its last status and output.
run 0 'expect command "test -x \\"$PANEL_SETUP_ROOT/stub-bin/reboot\\""\n'
run 1 'expect command "echo not yet; exit 3" within 300ms\n'
has '-:1: FAILED: expect command "echo not yet; exit 3" within 300ms'
has 'not met within 0.3 s: exit status 3, output:'
# Not before the time given (a coarse timer ends it up to 5 % early).
grep -q '^\[  0\.[3-9][0-9] s\] -:1: FAILED' "$work/out" || fail "the expectation ended before 0.30 s"
has '    not yet'
marker="$work/later"
(sleep 0.5 && touch "$marker") &
run 0 "expect command \"test -e '$marker'\" within 5s\n"
echo "ok: expect command"

# A slower machine: --time-scale N gives each expectation N times its time,
# while a wait keeps its own.
run 1 'expect command "exit 3" within 300ms\n' --time-scale 3
has '-:1: FAILED: expect command "exit 3" within 300ms'
has 'not met within 0.9 s: exit status 3'
grep -q '^\[  \(0\.8[6-9]\|0\.9[0-9]\|1\.[0-9][0-9]\) s\] -:1: FAILED' "$work/out" ||
    fail "the expectation did not take 0.9 s"
run 0 'wait 300ms\nexpect command "true"\n' --time-scale 10
grep -q '^\[  0\.[3-9][0-9] s\] 2: expect command "true"$' "$work/out" || fail "the wait did not keep its 300 ms"
run 2 'dump\n' --time-scale 0
has '--time-scale is a whole number from 1 to 10'
echo "ok: --time-scale"

# Script errors stop before anything runs: status 2 and the line.
run 2 'tap 30\n'
has '-:1: a key is 0 to 29, select, back, act1 or act2: 30'
run 2 '\n# fine\nfly away\n'
has '-:3: unknown command fly'
run 2 'expect line 0 0 SETUP\n'
has 'expect line SCREEN ROW "TEXT" [highlighted|plain]'
run 2 'write ../etc/passwd "x"\n'
has 'write /PATH "CONTENT"'
run 2 'expect line 0 0 "open\n'
has 'a text without its closing "'
run 2 'expect command ls\n'
has 'expect command "SHELL COMMAND"'
echo "ok: script errors"

# A daemon that is not there.
run 1 'start\n' --daemon "$work/no-such-daemon"
has "no daemon at $work/no-such-daemon"
echo "ok: missing daemon"

# The root: refused when it holds something else; made afresh; or reused.
mkdir -p "$work/other" && echo keep >"$work/other/file"
run 2 'dump\n' --root "$work/other"
has 'holds no sandbox of an earlier run'
[ -f "$work/other/file" ] || fail "a foreign directory was touched"
run 0 'write /etc/marker "1"\nexpect calls\n' --root "$work/root"
run 0 'expect file /etc/marker "1"\n' --root "$work/root" --reuse
run 0 'expect file /etc/marker missing\nexpect file /etc/network/interfaces contains "192.168.1.10"\n' --root "$work/root"
run 2 'dump\n' --reuse
has '--reuse needs --root DIR'
echo "ok: sandbox root"

# --listen-only: the daemon is started by hand with what panel-sim prints.
printf 'write /mnt/flashdisk/etc/network/start_setup_program ""\nstart\nexpect line 0 0 "SETUP" highlighted within 10s\nturn menu +1\nexpect line 0 1 "TESTING" highlighted\n' \
    >"$work/listen.sim"
listen --root "$work/listen" --script "$work/listen.sim"
env_words=$(echo "$line" | sed 's/.*started by hand with //')
(eval "exec env $env_words '$daemon'" >"$work/daemon.out" 2>&1) &
daemon_pid=$!
status=0
wait "$sim_pid" || status=$?
[ "$status" = 0 ] || fail "listen-only run ended with $status"
kill "$daemon_pid" 2>/dev/null || true
daemon_pid=""
echo "ok: listen-only"

# Bad commands from a driver client are warnings, never a crash: an unknown
# code, a screen that does not exist, a length no command can have.
printf 'start\nwait 1s\ndump\nexpect calls\n' >"$work/peer.sim"
listen --script "$work/peer.sim"
ports=$(echo "$line" | sed -n 's/.*PANEL_SETUP_COLLECTOR_PORT=\([0-9]*\) PANEL_SETUP_DRIVER_PORT=\([0-9]*\).*/\1 \2/p')
[ -n "$ports" ] || fail "no ports printed"
bash -c 'exec 3<>"/dev/tcp/127.0.0.1/$1" 4<>"/dev/tcp/127.0.0.1/$2"
         printf "\000\000\000\010\000\000\000\143\000\000\000\000" >&4
         printf "\000\000\000\010\000\000\000\020\000\000\000\005" >&4
         printf "\377\377\377\377\000" >&4
         sleep 3' sh $ports &
peer_pid=$!
status=0
wait "$sim_pid" || status=$?
kill "$peer_pid" 2>/dev/null || true
[ "$status" = 0 ] || fail "the run with a bad peer ended with $status"
has 'warning: unknown or malformed command (8 bytes): undecodable 0000006300000000'
has 'warning: refused by the panel: clear 5'
has 'warning: frame length 4294967295 is no command: connection dropped'
echo "ok: bad commands are warnings"

# The web view's options are checked before anything starts; a build without
# the web view says so. refused MESSAGE OPTION...: exit status 2 and the message.
refused() {
    message=$1
    shift
    status=0
    "$sim" "$@" >"$work/out" 2>&1 || status=$?
    [ "$status" = 2 ] || fail "$*: exit status $status, not 2"
    has "panel-sim: $message"
}
if [ "$web_view" = web ]; then
    refused 'a port is a number from 0 to 65535' --web 70000
    refused '--web-address needs an IP address, not localhost' --web --web-address localhost
    refused '--web and --script do not go together' --web 0 --script -
    echo "ok: web view options"
else
    refused 'this panel-sim has no web view' --web
    echo "ok: no web view in this build"
fi
