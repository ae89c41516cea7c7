# Sourced by the checks of this directory: fails at the first error, works in a directory of its own
# that is gone at the end. SOURCE, BUILD, CC, CXX come from ctest.
set -euo pipefail
export LC_ALL=C

work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

fail() {
    echo "FAILED: $*" >&2
    exit 1
}

# same WHAT FILE FILE: two sorted lists that have to be equal.
same() {
    diff -u --label "$1: first list" --label "second list" "$2" "$3" || fail "$1"
}
