#!/bin/sh
# scripts/install-deps for a user without root and without sudo: it stops at
# once, before apt-get, names the missing packages and the one command to run
# as root, and exits with 3. Stubs stand in for id (a user), dpkg-query (cmake
# and g++ installed, nothing else) and apt-get (records any call); PATH holds
# only them and the tools the scripts use, so there is no sudo. Nothing is
# installed, as root or not. Usage: install-deps-no-root.sh INSTALL_DEPS
set -eu
install_deps=$1
STUBBED_TOOLS="dirname grep"
. "$(dirname "$0")/stubbed-path.sh"
stub id 'echo 1000'
stub apt-get "echo \"\$*\" >>'$work/apt-get-calls'"
# dpkg-query -W -f=FORMAT PACKAGE
stub dpkg-query 'case $3 in cmake|g++) printf "install ok installed" ;; *) exit 1 ;; esac'

started=$(date +%s)
status=0
PATH=$work/bin /bin/sh "$install_deps" >"$work/out" 2>&1 || status=$?
elapsed=$(($(date +%s) - started))
cat "$work/out"
[ "$status" = 3 ] || fail "exit status $status, not 3"
[ ! -e "$work/apt-get-calls" ] || fail "apt-get was called: $(cat "$work/apt-get-calls")"
[ "$elapsed" -le 3 ] || fail "took $elapsed s; it should stop at once"
missing="ninja-build qt6-base-dev qt6-httpserver-dev qt6-websockets-dev libfreetype-dev xfonts-base chromium chromium-driver python3-selenium python3-pil tmux man-db systemd valgrind"
grep -qxF "These packages are missing: $missing" "$work/out" || fail "no list of the missing packages"
grep -qF "needs root" "$work/out" || fail "does not say that it needs root"
grep -qxF "    apt-get update && apt-get install -y --no-install-recommends $missing" "$work/out" ||
    fail "no apt-get install line for the missing packages"
[ "$(grep -c "apt-get install" "$work/out")" = 1 ] || fail "not exactly one apt-get install line"
echo "ok: no root, no sudo"

# With nothing missing, neither root nor sudo is needed.
stub dpkg-query 'printf "install ok installed"'
status=0
PATH=$work/bin /bin/sh "$install_deps" >"$work/out" 2>&1 || status=$?
[ "$status" = 0 ] || fail "exit status $status with every package installed"
[ ! -s "$work/out" ] || fail "printed something with every package installed"
[ ! -e "$work/apt-get-calls" ] || fail "apt-get was called: $(cat "$work/apt-get-calls")"
echo "ok: nothing missing"
