#!/bin/sh
# Renders each manual page given and fails on any warning of groff (all of
# them enabled, as man --warnings=all asks), when man renders nothing, and
# when lexgrog cannot read its NAME line (what whatis and apropos show).
# Usage: check-manpages.sh PAGE...
set -u

fail() { echo "FAIL: $*"; exit 1; }

for tool in man:man-db lexgrog:man-db groff:groff-base; do
    command -v "${tool%:*}" >/dev/null ||
        fail "${tool%:*} is missing (package ${tool#*:}; scripts/install-deps installs it)"
done

for page in "$@"; do
    warnings=$(LC_ALL=C.UTF-8 groff -man -Tutf8 -ww -z "$page" 2>&1)
    [ -z "$warnings" ] || fail "$page: $warnings"
    rendered=$(LC_ALL=C.UTF-8 MANWIDTH=80 man -E UTF-8 -l "$page" 2>/dev/null)
    [ -n "$rendered" ] || fail "$page renders as nothing"
    lexgrog "$page" >/dev/null || fail "$page: lexgrog cannot read its NAME section"
    echo "$page: $(lexgrog "$page" | sed 's/^[^:]*: //')"
done
echo "PASS"
