#!/usr/bin/env bash
# The library exports the whole interface that programs are linked to, and nothing else.
#
#     interface.sh LIBRARY
source "$(dirname "$0")/common.sh"

grep -v '^#' "$SOURCE/tests/abi/interface.txt" | sort >"$work/wanted"
[ "$(wc -l <"$work/wanted")" -gt 200 ] || fail "the list of the interface is cut short"
exported "$1" >"$work/exported"
same "interface and library" "$work/wanted" "$work/exported"
