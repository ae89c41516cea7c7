#!/usr/bin/env bash
# The list's header and GLib's go together in either order, as C and as C++, and both work on one
# list.
#
#     glib.sh LIBRARY
source "$(dirname "$0")/common.sh"

library=$1
program=$SOURCE/tests/abi/consumer/glib.c
read -ra compile <<<"$(pkg-config --cflags glib-2.0)"
read -ra link <<<"$(pkg-config --libs glib-2.0)"
strict=(-Wall -Wextra -Wshadow -Werror -I "$SOURCE/include")

# runs COMPILER LANGUAGE STANDARD [OPTION...]
runs() {
    local compiler=$1
    "$compiler" -x "$2" -std="$3" "${strict[@]}" "${@:4}" "${compile[@]}" "$program" -x none \
        "$library" "${link[@]}" -Wl,-rpath,"$(dirname "$library")" -o "$work/program" ||
        fail "does not build: $*"
    "$work/program" || fail "works wrongly: $*"
}

for order in -DVIMBRA_FIRST -DGLIB_FIRST; do
    for standard in c99 c11 gnu17; do
        runs "$CC" c $standard $order
    done
    for standard in c++11 c++17 c++20; do
        runs "$CXX" c++ $standard $order
    done
done

# A C++ program may wrap a C library's header itself.
echo 'extern "C" {
#include <vimbra/vimbra.h>
}' | "$CXX" -x c++ -std=c++20 "${strict[@]}" "${compile[@]}" -fsyntax-only - ||
    fail "inside extern \"C\""
