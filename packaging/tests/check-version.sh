#!/bin/sh
# The version is the same wherever it is named: the CMake project, the top
# entry of debian/changelog (a native package, so no Debian revision) and the
# Yocto recipe's PV (the recipe's file name carries it too).
# Usage: check-version.sh PROJECT_VERSION CHANGELOG RECIPE
set -u
version=$1 changelog=$2 recipe=$3
status=0
top=$(sed -n '1s/^panel-setup (\([^)]*\)) .*/\1/p' "$changelog")
[ "$top" = "$version" ] ||
    { echo "FAIL: the top entry of $changelog is ${top:-unreadable}, the project's version $version"; status=1; }
pv=$(sed -n 's/^PV = "\([^+"]*\).*/\1/p' "$recipe")
[ "$pv" = "$version" ] ||
    { echo "FAIL: PV in $recipe is ${pv:-missing}, the project's version $version"; status=1; }
[ $status -eq 0 ] && echo "PASS: $version"
exit $status
