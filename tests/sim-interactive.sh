#!/bin/sh
# The virtual panel's interactive mode, used as a person would: panel-sim runs
# in tmux, keys are typed with send-keys and the screen is read back with
# capture-pane. Usage: sim-interactive.sh PANEL_SIM
set -eu
sim=$1
command -v tmux >/dev/null 2>&1 || { echo "FAILED: tmux is missing (scripts/install-deps installs it)"; exit 1; }

work=$(mktemp -d)
socket=panel-sim-test-$$
tmux() { command tmux -L "$socket" -f /dev/null "$@"; }
cleanup() {
    tmux kill-server 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT INT TERM

esc=$(printf '\033')
screen() { tmux capture-pane -p -e -t sim; }

# Waits until the screen matches an extended regular expression.
expect_screen() {
    what=$1
    pattern=$2
    tries=${3:-50} # tenths of a second
    while [ "$tries" -gt 0 ]; do
        if screen | grep -Eq -- "$pattern"; then
            echo "ok: $what"
            return 0
        fi
        sleep 0.1
        tries=$((tries - 1))
    done
    echo "FAILED: $what (no match for: $pattern). The screen:"
    screen | sed "s/$esc/<ESC>/g"
    exit 1
}
# Fails when the screen shows a fixed string.
not_on_screen() {
    if screen | grep -qF -- "$2"; then
        echo "FAILED: $1. The screen:"
        screen | sed "s/$esc/<ESC>/g"
        exit 1
    fi
}
keys() {
    tmux send-keys -t sim "$@"
    sleep 0.2
}

started=$(date +%s)
tmux new-session -d -s sim -x 100 -y 30 "'$sim' --root '$work/root'; echo \$? > '$work/exit-status'; sleep 60"

# Idle as on a device: nothing drawn; the status line says why, the help line
# how to take over.
expect_screen "daemon running, help line" "daemon running \(pid [0-9]+\)$esc?"
expect_screen "help line names the activation keys" "m=hold 24\+25 5s: take over"
expect_screen "idle hint" "idle: the main application has the panel, press m to take it over"
not_on_screen "a menu is drawn before the take-over" "SETUP"
pid=$(screen | sed -n 's/.*daemon running (pid \([0-9]*\)).*/\1/p' | head -n 1)

# m holds the two activation keys 5.5 s: the daemon takes the panel over.
keys m
expect_screen "hold shown" "holding keys 24 25"
expect_screen "setup script called" "setup_script enter" 90
expect_screen "main menu drawn, SETUP highlighted" "\|$esc\[7mSETUP" 30
expect_screen "main menu items" "\|EXIT +\|"
not_on_screen "the idle hint stays after the take-over" "idle:"

# Below 80x24 the view asks for a bigger terminal instead of a cut panel; at
# 80x24 the panel is back.
tmux resize-window -t sim -x 79 -y 30
expect_screen "79 columns: asks for more" "needs a terminal of at least 80x24; this one is 79x30"
not_on_screen "79 columns: a panel drawn" "TFT 0"
tmux resize-window -t sim -x 100 -y 23
expect_screen "23 rows: asks for more" "needs a terminal of at least 80x24; this one is 100x23"
not_on_screen "23 rows: a panel drawn" "TFT 0"
tmux resize-window -t sim -x 30 -y 8
expect_screen "30x8: the message broken into lines" "(^|m)30x8\. Make it bigger to see"
tmux resize-window -t sim -x 80 -y 24
expect_screen "80x24: the panel again" "\|$esc\[7mSETUP"
expect_screen "80x24: the help line" "q=quit"
not_on_screen "80x24: still asks for more" "needs a terminal"
tmux resize-window -t sim -x 100 -y 30

# j and the arrow keys turn the menu shaft.
keys j
expect_screen "selection moved to TESTING" "\|$esc\[7mTESTING"
expect_screen "SETUP plain again" "\|SETUP +\|"
keys Up
expect_screen "Up moved back to SETUP" "\|$esc\[7mSETUP"
keys Down
expect_screen "Down moved to TESTING again" "\|$esc\[7mTESTING"

# Enter selects: the testing menu on screen 1, then the GPI test page.
keys Enter
expect_screen "testing menu on screen 1" "\| \|$esc\[7mSHAFTS"
keys Down Down Enter
expect_screen "GPI test page open" "\|GPI 7: OFF +\|"
keys w
expect_screen "GPI 0 switched on" "\|GPI 0: ON +\|"
expect_screen "GPI 0 shown active" "GPIs +$esc\[7m0"

# Backspace is the back key: the testing menu again; then the LED test page.
keys BSpace
expect_screen "back key sent" "key 2 down"
keys Down Enter
expect_screen "LED test page open" "\|$esc\[7mPSU: FAIL"
keys Enter
expect_screen "PSU toggled on the page" "\|$esc\[7mPSU: OK"
expect_screen "PSU LED on" "PSU:$esc\[7mON"

# ? shows every binding; q quits and takes the daemon with it.
keys '?'
expect_screen "key help shown" "GPIs 0-7 on/off: w e r t y u i o"
keys q
tries=50
while [ ! -f "$work/exit-status" ] && [ $tries -gt 0 ]; do sleep 0.1; tries=$((tries - 1)); done
[ "$(cat "$work/exit-status" 2>/dev/null)" = 0 ] || { echo "FAILED: panel-sim did not quit with status 0"; exit 1; }
if [ -n "$pid" ] && kill -0 "$pid" 2>/dev/null; then
    echo "FAILED: the daemon (pid $pid) still runs after q"
    exit 1
fi
grep -qx "setup_script enter" "$work/root/calls.log" || { echo "FAILED: no setup_script call logged"; exit 1; }
echo "interactive mode: all checks passed in $(($(date +%s) - started)) s"
