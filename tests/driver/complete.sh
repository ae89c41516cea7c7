#!/usr/bin/env bash
# The driver uses every symbol that the library exports.
#
#     complete.sh LIBRARY DRIVER
source "$(dirname "$0")/../abi/common.sh"

exported "$1" | grep -v '^VIMBRA_' >"$work/exported"
# Functions it imports, data it may hold a copy of.
readelf --dyn-syms -W "$2" | awk 'NR > 4 { sub(/@.*/, "", $8); print $8 }' | sort -u >"$work/used"
wc -l <"$work/exported"
if comm -23 "$work/exported" "$work/used" | grep .; then
    fail "never used"
fi
