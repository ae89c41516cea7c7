#!/usr/bin/env bash
# The library exports the whole interface that programs are linked to, and nothing else.
#
#     interface.sh LIBRARY
source "$(dirname "$0")/common.sh"

grep -v '^#' "$SOURCE/tests/abi/interface.txt" | sort >"$work/wanted"
[ "$(wc -l <"$work/wanted")" -gt 200 ] || fail "the list of the interface is cut short"
nm -D --defined-only "$1" | awk '$2 ~ /^[TDBR]$/ { print $3 }' | sed 's/@.*//' | sort >"$work/exported"
same "interface and library" "$work/wanted" "$work/exported"
