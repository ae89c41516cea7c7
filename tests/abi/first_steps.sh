#!/usr/bin/env bash
# The first screen of README works as it is typed. Installing packages and building are what everybody
# does who runs this; the rest runs in a machine of its own with an empty /usr/local.
source "$(dirname "$0")/common.sh"

if [ -z "${FIRST_STEPS:-}" ]; then
    FIRST_STEPS=1 exec "$BUILD/bin/vimbra-sandbox" --keep "$SOURCE" --keep "$BUILD" -- "$0"
fi

sed -n '/^## First steps/,/^## An example/p' "$SOURCE/README.md" | sed -n 's/^    //p' |
    sed '/^script\//d; /^ /d' >"$work/typed"
grep -q '^script/bootstrap' "$work/typed" && fail "a script is left"
sed -n '/^    script\/bootstrap/p' "$SOURCE/README.md" | grep . >/dev/null || fail "no packages"
grep -q '^cmake --preset release && cmake --build --preset release$' "$work/typed" ||
    fail "README builds otherwise than the project"
sed -i '/^cmake --preset/d' "$work/typed"
sed -i "s|cmake --install build/release|cmake --install $BUILD --prefix /usr/local|" "$work/typed"

mount -t tmpfs none /usr/local
echo /usr/local/lib >/etc/ld.so.conf # as Debian has it
mkdir -p /run/vimbrad 2>/dev/null || mount -t tmpfs none /run
cd "$work"
ln -s "$SOURCE/examples" examples
# Patience instead of README's second.
sed -i 's|sleep 1|until [ -S /tmp/api_daemon ]; do sleep 0.1; done|' typed
PATH=/usr/local/bin:/usr/local/sbin:$PATH bash -e typed >out 2>errors || {
    tail -n 12 out errors
    fail "the first steps end with an error"
}
grep -q 'lo' out || { tail -n 12 out; fail "vimbractl shows no interface"; }
grep -q 'inet 192.168.7.1/24' out || { tail -n 12 out errors; fail "the example set no address"; }
MANPATH=/usr/local/share/man man -w vimbra >/dev/null 2>&1 || [ -f /usr/local/share/man/man7/vimbra.7 ] ||
    fail "no manual"
