#!/usr/bin/env bash
# A machine without the packages of the tests or the tools still builds the library, and is told what
# it goes without; the project's own scripts stop there instead.
source "$(dirname "$0")/common.sh"

# configure OPTION...: as somebody who has just got the sources types it.
configure() {
    rm -rf "$work/build"
    cmake -S "$SOURCE" -B "$work/build" -G Ninja -DCMAKE_C_COMPILER="$CC" \
        -DCMAKE_CXX_COMPILER="$CXX" -DVIMBRA_BENCH=OFF "$@" >"$work/log" 2>&1
}
# has TARGET: whether the build that was configured has it.
has() { ninja -C "$work/build" -t targets all | grep "^$1: phony" >/dev/null; }

configure -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON || fail "configuring without GoogleTest"
grep -q "Left out: the tests, for want of GoogleTest and GoogleMock" "$work/log" ||
    fail "not a word of the tests"
has vimbra && has vimbrad && has example_set_address || fail "more than the tests is gone"
! has bed_test || fail "there are tests without GoogleTest"

configure -DCMAKE_DISABLE_FIND_PACKAGE_CLI11=ON || fail "configuring without CLI11"
grep -q "Left out: daemon and command line, for want of CLI11" "$work/log" ||
    fail "not a word of the tools"
has bed_test || fail "more than the tools is gone"
! has vimbractl || fail "there is a command line without CLI11"

# Whoever has a daemon of his own needs nothing of what this one is made of.
configure -DVIMBRA_DAEMON=OFF -DCMAKE_DISABLE_FIND_PACKAGE_PkgConfig=ON -DVIMBRA_REQUIRE_ALL=ON ||
    fail "configuring without the daemon"
has vimbractl || fail "the command line is gone with the daemon"
! has vimbrad || fail "there is a daemon"

if configure -DCMAKE_DISABLE_FIND_PACKAGE_GTest=ON -DVIMBRA_REQUIRE_ALL=ON; then
    fail "a missing package is an error where all is required"
fi
grep -q "script/bootstrap$" "$work/log" || fail "the error does not say what to do"
grep -q VIMBRA_REQUIRE_ALL=ON "$SOURCE/script/lib/common.sh" || fail "the scripts do not require all"
