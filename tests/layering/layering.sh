#!/bin/sh
# The layers hold: scripts/check-layers passes on the tree and fails on a copy
# with an upward include, and the build itself refuses an upward include from
# a source that links the pages while it builds a downward one.
#   layering.sh CHECK_LAYERS BUILD_DIR SOURCE_DIR
set -u
check_layers=$1
build=$2
source=$3
failures=0
fail() {
    echo "FAIL: $*"
    failures=$((failures + 1))
}

if output=$("$check_layers" "$build" "$source" 2>&1); then
    echo "PASS: the tree keeps to the layers"
else
    fail "check-layers on the tree: $output"
fi

copy=$(mktemp -d)
trap 'rm -rf "$copy"' EXIT
for folder in base panel pages qcollector buttondriver netutil unixsignalhandler; do
    cp -R "$source/$folder" "$copy/"
done
sed -i '1a #include "panel/Setup_Panel.h"' "$copy/pages/Page_Main.cpp"
expected='pages/Page_Main.cpp:2: includes "panel/Setup_Panel.h" of panelcontrol (tier 3) from pages (tier 2), which does not link it'
output=$("$check_layers" "$build" "$copy" 2>&1)
status=$?
if [ "$status" -eq 1 ] && [ "$output" = "$expected" ]; then
    echo "PASS: check-layers refuses an upward include"
else
    fail "check-layers on an upward include: status $status, output: $output"
fi

if output=$(cmake --build "$build" --target layering_probe_downward 2>&1); then
    echo "PASS: a downward include builds"
else
    fail "the downward include did not build: $output"
fi
output=$(cmake --build "$build" --target layering_probe_upward 2>&1)
status=$?
case "$status:$output" in
    0:*) fail "the upward include built" ;;
    *"panel/Setup_Panel.h: No such file or directory"*) echo "PASS: the build refuses an upward include" ;;
    *) fail "the upward include failed for another reason: $output" ;;
esac

echo "$((4 - failures)) passed, $failures failed"
[ "$failures" -eq 0 ]
