#!/bin/sh
# Keeps the Yocto recipe in step with the CMake options: every PANEL_SETUP_*
# cache variable of the build is named in the recipe (set with -D, or listed
# there as not used), and every -DPANEL_SETUP_* the recipe sets exists.
# Usage: check-yocto-options.sh CMAKE_CACHE RECIPE
set -u
cache=$1 recipe=$2
status=0
for name in $(sed -n 's/^\(PANEL_SETUP_[A-Z0-9_]*\):.*/\1/p' "$cache"); do
    grep -qE "(^|[^A-Z0-9_]|-D)$name([^A-Z0-9_]|\$)" "$recipe" || { echo "FAIL: the recipe does not mention $name"; status=1; }
done
for name in $(grep -o -- '-DPANEL_SETUP_[A-Z0-9_]*' "$recipe" | cut -c3- | sort -u); do
    grep -q "^$name:" "$cache" || { echo "FAIL: the recipe sets $name, which CMake does not know"; status=1; }
done
[ $status -eq 0 ] && echo "PASS"
exit $status
