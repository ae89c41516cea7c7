#!/usr/bin/env bash
# The device's library, stripped, stays as small as it is promised: every process there loads it.
#
#     size.sh LIBRARY STRIP
source "$(dirname "$0")/common.sh"

bound=120000
"$2" -o "$work/stripped" "$1"
size=$(stat -c %s "$work/stripped")
echo "$size bytes ($bound at most)"
[ "$size" -le "$bound" ] || fail "the library has grown"
