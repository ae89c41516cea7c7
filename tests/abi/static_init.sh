#!/usr/bin/env bash
# No object of the library has code that runs when it is loaded.
#
#     static_init.sh ARCHIVE
source "$(dirname "$0")/common.sh"

readelf -SW "$1" >"$work/sections"
grep -q '\.text' "$work/sections" || fail "no objects in $1"
if grep -E '\.(init_array|preinit_array|ctors|fini_array|dtors)' "$work/sections"; then
    fail "code that runs at loading"
fi
