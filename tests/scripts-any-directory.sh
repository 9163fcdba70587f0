#!/bin/sh
# The README's commands work from any directory: scripts/run-tests and
# scripts/run-sim are called by an absolute path from /, by a relative path
# from the checkout's parent and from inside scripts/. Each runs on a copy of
# the checkout's scripts and presets, with stubs first on PATH for cmake,
# ctest and dpkg-query (every package installed, so nothing is installed) and
# a stub panel-sim in the build directory; the stubs record their working
# directory and arguments, which must be the checkout's.
#   scripts-any-directory.sh SOURCE_DIR
set -u
unset BUILD_DIR CMAKE_BUILD_TYPE
source_dir=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
checkout=$work/parent/main
mkdir -p "$checkout/build/bin" "$checkout/build-other" "$work/bin"
cp -R "$source_dir/scripts" "$source_dir/CMakePresets.json" "$checkout/"

record() {
    printf '#!/bin/sh\necho "%s in $(pwd): $*" >>"%s/calls"\n' "$1" "$work" >"$2"
    chmod +x "$2"
}
record cmake "$work/bin/cmake"
record ctest "$work/bin/ctest"
record panel-sim "$checkout/build/bin/panel-sim"
printf '#!/bin/sh\nprintf "install ok installed"\n' >"$work/bin/dpkg-query"
chmod +x "$work/bin/dpkg-query"

passed=0
failed=0
# expect NAME DIRECTORY COMMAND...: runs COMMAND in DIRECTORY and compares the
# recorded calls with the expected ones on standard input.
expect() {
    name=$1
    directory=$2
    shift 2
    cat >"$work/expected"
    rm -f "$work/calls"
    status=0
    (cd "$directory" && PATH="$work/bin:$PATH" "$@") >"$work/out" 2>&1 || status=$?
    if [ "$status" -eq 0 ] && diff -u "$work/expected" "$work/calls" >"$work/diff" 2>&1; then
        echo "PASS: $name"
        passed=$((passed + 1))
    else
        echo "FAIL: $name (exit status $status)"
        sed 's/^/  | /' "$work/out" "$work/diff"
        failed=$((failed + 1))
    fi
}

jobs=$(nproc)
for from in "/:$checkout/scripts/run-tests" "$work/parent:main/scripts/run-tests" \
            "$checkout/scripts:./run-tests"; do
    expect "run-tests called as ${from#*:} from ${from%%:*}" "${from%%:*}" "${from#*:}" -R netutil <<EOF
cmake in $checkout: -S . --preset default -B build
cmake in $checkout: --build build
ctest in $checkout/build: --output-on-failure -j $jobs -R netutil
EOF
done
expect "run-sim called as main/scripts/run-sim from the parent" "$work/parent" main/scripts/run-sim --reuse <<EOF
cmake in $checkout: -S . --preset default -B build
cmake in $checkout: --build build --target panel-sim
panel-sim in $checkout: --root $checkout/sandbox --reuse
EOF
export BUILD_DIR=build-other
expect "run-tests with BUILD_DIR from /" / "$checkout/scripts/run-tests" <<EOF
cmake in $checkout: -S . --preset default -B build-other
cmake in $checkout: --build build-other
ctest in $checkout/build-other: --output-on-failure -j $jobs
EOF
unset BUILD_DIR

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
