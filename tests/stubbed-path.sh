# Sourced by the script tests: a scratch directory $work (removed at exit),
# fail MESSAGE (prints it and $work/out, exits 1), and $work/bin for PATH
# holding only links to the real tools named in STUBBED_TOOLS and the stubs
# that stub NAME BODY writes.
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT INT TERM

fail() {
    echo "FAILED: $1"
    sed 's/^/  | /' "$work/out"
    exit 1
}

mkdir "$work/bin"
for tool in $STUBBED_TOOLS; do
    ln -s "$(command -v "$tool")" "$work/bin/$tool"
done
stub() {
    printf '#!/bin/sh\n%s\n' "$2" >"$work/bin/$1"
    chmod +x "$work/bin/$1"
}
