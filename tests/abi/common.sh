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

# exported LIBRARY: its defined dynamic symbols without the version's own name, for any processor.
exported() {
    readelf --dyn-syms -W "$1" |
        awk '$5 != "LOCAL" && $7 ~ /^[0-9]+$/ { sub(/@.*/, "", $8); print $8 }' | sort -u
}
