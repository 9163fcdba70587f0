#!/bin/sh
# .ci/run reports each step as passed, skipped (the step exited 77: it could
# not run here) or FAILED, and fails only on a failed step. Runs a copy of
# .ci/run whose scripts are stubs that exit with the status the case gives.
#   ci-run-steps.sh SOURCE_DIR
set -u
source_dir=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM
mkdir -p "$work/.ci" "$work/scripts"
cp "$source_dir/.ci/run" "$work/.ci/run"
scripts=$(grep -o 'scripts/[a-z0-9-]*' "$source_dir/.ci/run" | sort -u)
for script in $scripts; do
    name=${script#scripts/}
    printf '#!/bin/sh\nexit "${STATUS_%s:-0}"\n' "$(echo "$name" | tr a-z- A-Z_)" >"$work/$script"
    chmod +x "$work/$script"
done

passed=0
failed=0
check() {
    if [ "$1" = ok ]; then
        passed=$((passed + 1))
        echo "PASS: $2"
    else
        failed=$((failed + 1))
        echo "FAIL: $2"
        sed 's/^/  | /' "$work/out"
    fi
}
# run_ci VARIABLE=STATUS...: .ci/run with those stubs' exit statuses.
run_ci() {
    status=0
    env "$@" sh "$work/.ci/run" >"$work/out" 2>&1 || status=$?
}
step_line() {
    grep -E "^=== .*$1.*: (passed|skipped|FAILED) after [0-9]+ s$" "$work/out"
}

run_ci
if [ "$status" -eq 0 ] && [ "$(grep -c ': passed after' "$work/out")" -eq "$(grep -c '^step ' "$work/.ci/run")" ] &&
    ! grep -q 'skipped\|FAILED' "$work/out"; then
    check ok "every step passed: exit 0, each reported as passed"
else
    check no "every step passed (exit status $status)"
fi

run_ci STATUS_SYSTEM_TEST=77
if [ "$status" -eq 0 ] && step_line scripts/system-test | grep -q ': skipped after' &&
    grep -q '^=== skipped steps:$' "$work/out" && ! step_line scripts/system-test | grep -q passed; then
    check ok "a step that exits 77 is reported as skipped, not passed, and does not fail the run"
else
    check no "a skipped step (exit status $status)"
fi

run_ci STATUS_CI_QT5=1 STATUS_SYSTEM_TEST=77
if [ "$status" -eq 1 ] && step_line scripts/ci-qt5 | grep -q ': FAILED after' &&
    grep -q '^=== failed steps:$' "$work/out" && step_line scripts/system-test | grep -q ': skipped after'; then
    check ok "a failed step fails the run; the others still run and report"
else
    check no "a failed step (exit status $status)"
fi

echo "$passed passed, $failed failed"
[ "$failed" -eq 0 ]
