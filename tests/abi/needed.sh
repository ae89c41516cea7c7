#!/usr/bin/env bash
# The library needs the C library, its crypt and the dynamic loader, and no symbol of C++.
#
#     needed.sh LIBRARY
source "$(dirname "$0")/common.sh"

readelf -d "$1" | sed -n 's/.*(NEEDED).*\[\(.*\)\]/\1/p' >"$work/needed"
cat "$work/needed"
grep -qxE 'libc\.so(\.[0-9]+)?' "$work/needed" || fail "the C library is missing"
if grep -vxE 'libc\.so(\.[0-9]+)?|libcrypt\.so\.[0-9]+|ld-linux[-a-z0-9_]*\.so\.[0-9]+' \
    "$work/needed"; then
    fail "needs more than the system has"
fi
if readelf --dyn-syms -W "$1" | awk '$7 == "UND" { print $8 }' |
    grep -E '^(_Z|__gxx|__cxa_(guard|throw|pure|begin)|_Unwind)'; then
    fail "needs C++ at run time"
fi
readelf -d "$1" | grep -q 'SONAME.*\[libvimbra\.so\.2\]' || fail "the soname"
