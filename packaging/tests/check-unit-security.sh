#!/bin/sh
# The systemd unit's exposure as systemd-analyze security rates it (0.0 best,
# 10.0 worst) may not rise above the recorded figure: a directive taken out of
# the sandbox fails this test.
# Usage: check-unit-security.sh UNIT RECORDED_EXPOSURE (for example 2.6)
set -u
unit=$1 recorded=$2

command -v systemd-analyze >/dev/null ||
    { echo "FAIL: systemd-analyze is missing (package systemd; scripts/install-deps installs it)"; exit 1; }
output=$(systemd-analyze security --offline=true "$unit" 2>&1)
exposure=$(echo "$output" | sed -n 's/^→ Overall exposure level for .*: \([0-9.]*\) .*/\1/p')
[ -n "$exposure" ] || { echo "$output"; echo "FAIL: no overall exposure level"; exit 1; }
echo "exposure $exposure, recorded $recorded"
# Tenths as integers: 2.6 -> 26.
tenths() { echo "$1" | awk '{ printf "%d", $1 * 10 + 0.5 }'; }
if [ "$(tenths "$exposure")" -gt "$(tenths "$recorded")" ]; then
    echo "$output" | grep '✗'
    echo "FAIL: exposure $exposure is worse than the recorded $recorded"
    exit 1
fi
echo "ok"
