#!/usr/bin/env bash
# An installed library serves C projects outside this tree: through pkg-config and through CMake.
# TOOLCHAIN and EMULATOR come from ctest for a cross build.
source "$(dirname "$0")/common.sh"

# The project's version is the only place where it stands.
version=$(sed -nE 's/^#define VIMBRA_VERSION_(MAJOR|MINOR|PATCH) //p' \
    "$SOURCE/include/vimbra/version.h" | paste -sd .)
major=${version%%.*}
[[ $version == *.*.* ]] || fail "version.h tells no version"

prefix=$work/usr
cmake --install "$BUILD" --prefix "$prefix" >"$work/log" || {
    cat "$work/log"
    fail "cmake --install"
}

libraries=$(dirname "$(find "$prefix" -name libvimbra.so)")
[ "$(readlink "$libraries/libvimbra.so")" = libvimbra.so.$major ] || fail "the development link"
[ "$(readlink "$libraries/libvimbra.so.$major")" = libvimbra.so.$version ] || fail "the soname's link"
[ -f "$libraries/libvimbra.so.$version" ] || fail "the library"
if find "$prefix" -name '*.a' | grep .; then
    fail "a static archive is for tests only"
fi
(cd "$SOURCE/include" && ls vimbra) | sort >"$work/source"
(cd "$prefix/include" && ls vimbra) | sort >"$work/installed"
same "installed headers" "$work/source" "$work/installed"
if grep -rlF -e "$SOURCE" -e "$BUILD" -e "$prefix" "$prefix"; then
    fail "installed files name the place where they were built"
fi

# The command line, where there is one, comes with what its shells need.
if [ -x "$prefix/bin/vimbractl" ]; then
    for file in bash-completion/completions/vimbractl zsh/site-functions/_vimbractl \
        fish/vendor_completions.d/vimbractl.fish; do
        grep -q __complete "$prefix/share/$file" || fail "$file"
    done
fi

run() {
    LD_LIBRARY_PATH=$libraries ${EMULATOR:+"$EMULATOR"} "$1" >"$work/out"
    grep -q '^Vimbras Module Version: V'"${version//./\\.}"'\.' "$work/out" || fail "$1 does not run"
}

# What runs here runs from where it lies, without a word to the loader.
if [ -z "${EMULATOR:-}" ] && [ -x "$prefix/bin/vimbractl" ]; then
    mv "$prefix" "$work/elsewhere"
    [ "$("$work/elsewhere/bin/vimbractl" --version)" = "vimbractl $version" ] ||
        fail "the installed vimbractl"
    [ "$("$work/elsewhere/sbin/vimbrad" --version)" = "vimbrad $version" ] ||
        fail "the installed vimbrad"
    mv "$work/elsewhere" "$prefix"
fi

# From another place than the one it was installed to, as a package is staged.
mv "$prefix" "$work/moved"
prefix=$work/moved
libraries=${libraries/#"$work/usr"/$prefix}

export PKG_CONFIG_PATH=$libraries/pkgconfig
[ "$(pkg-config --modversion vimbra)" = "$version" ] || fail "pkg-config"
cp "$SOURCE/tests/abi/consumer/version.c" "$work"
read -ra flags <<<"$(pkg-config --cflags --libs vimbra)"
"$CC" ${CFLAGS:-} -std=c99 -Wall -Werror "$work/version.c" -o "$work/by-pkg-config" "${flags[@]}"
run "$work/by-pkg-config"

# A test of an application, with nothing but what is installed.
if [ -z "${EMULATOR:-}" ] && [ -f "$libraries/libvimbra_test.so" ]; then
    read -ra flags <<<"$(pkg-config --cflags --libs vimbra vimbra-test)"
    "$CC" -std=c99 -Wall -Werror "$SOURCE/examples/lease_test.c" -o "$work/lease_test" "${flags[@]}" \
        -pthread
    LD_LIBRARY_PATH=$libraries "$prefix/bin/vimbra-sandbox" --keep "$work" -- "$work/lease_test" \
        >"$work/out" || fail "the test of an application"
    grep -q dhcp-client-stop "$work/out" || fail "what the application asked"
fi

cmake -S "$SOURCE/tests/abi/consumer" -B "$work/consumer" -G Ninja -Dvimbra_ROOT="$prefix" \
    -DCMAKE_C_COMPILER="$CC" -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH \
    ${TOOLCHAIN:+-DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN"} >"$work/log" &&
    cmake --build "$work/consumer" >>"$work/log" || {
    cat "$work/log"
    fail "find_package(vimbra)"
}
run "$work/consumer/version"

# Taken away again, and nothing else. The build's own manifest stays what it was.
mkdir "$work/build" "$work/root"
cp "$BUILD/CMakeCache.txt" "$work/build"
DESTDIR=$work/root cmake --install "$BUILD" --prefix /usr >"$work/log" || fail "a staged install"
mv "$BUILD/install_manifest.txt" "$work/build"
touch "$work/root/usr/include/vimbra.h"
(cd "$work/build" && DESTDIR=$work/root cmake -P "$SOURCE/cmake/Uninstall.cmake" >"$work/log") ||
    fail "uninstall"
find "$work/root" ! -type d >"$work/left"
echo "$work/root/usr/include/vimbra.h" >"$work/foreign"
same "what is left after uninstalling" "$work/foreign" "$work/left"
find "$work/root" -type d -path '*/include/vimbra' | (! grep .) || fail "a directory is left"
if (cd "$work/build" && cmake -P "$SOURCE/cmake/Uninstall.cmake") >"$work/log" 2>&1; then
    fail "uninstalling twice"
fi
grep -q "Nothing was installed" "$work/log" || fail "a second uninstall says why"
