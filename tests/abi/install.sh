#!/usr/bin/env bash
# An installed library serves C projects outside this tree: through pkg-config and through CMake.
# TOOLCHAIN and EMULATOR come from ctest for a cross build.
source "$(dirname "$0")/common.sh"

# The project's version is the only place where it stands.
version=$(sed -n 's/^project(vimbra VERSION \([0-9.]*\).*/\1/p' "$SOURCE/CMakeLists.txt")
major=${version%%.*}
[ -n "$version" ] || fail "CMakeLists.txt tells no version"

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

cmake -S "$SOURCE/tests/abi/consumer" -B "$work/consumer" -G Ninja -Dvimbra_ROOT="$prefix" \
    -DCMAKE_C_COMPILER="$CC" -DCMAKE_FIND_ROOT_PATH_MODE_PACKAGE=BOTH \
    ${TOOLCHAIN:+-DCMAKE_TOOLCHAIN_FILE="$TOOLCHAIN"} >"$work/log" &&
    cmake --build "$work/consumer" >>"$work/log" || {
    cat "$work/log"
    fail "find_package(vimbra)"
}
run "$work/consumer/version"
