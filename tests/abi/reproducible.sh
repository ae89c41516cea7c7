#!/usr/bin/env bash
# Two builds of the same sources in two places are the same library to the byte.
# TOOLCHAIN comes from ctest for a cross build.
source "$(dirname "$0")/common.sh"

export SOURCE_DATE_EPOCH=1700000000
export CCACHE_DISABLE=1

# build DIRECTORY: a copy of the library's sources, built below it.
build() {
    mkdir -p "$work/$1"
    cp -r "$SOURCE"/{CMakeLists.txt,CMakePresets.json,cmake,include,src} "$work/$1"
    (cd "$work/$1" && cmake --preset "$PRESET" -DVIMBRA_TESTS=OFF -DVIMBRA_EXAMPLES=OFF \
        -DVIMBRA_DOCS=OFF -DVIMBRA_TOOLS=OFF -DVIMBRA_BENCH=OFF && cmake --build "build/$PRESET" -j 2 --target vimbra) \
        >"$work/log" 2>&1 || {
        cat "$work/log"
        fail "building in $1"
    }
}

build here
build another/place/with-a-longer-name
cmp "$work/here/build/$PRESET/src/libvimbra.so" \
    "$work/another/place/with-a-longer-name/build/$PRESET/src/libvimbra.so" || fail "they differ"
grep -aq 'vimbra@reproducible\|reproducible' "$work/here/build/$PRESET/src/libvimbra.so" ||
    fail "the version text does not take the fixed builder"
grep -aq '2023-11-14' "$work/here/build/$PRESET/src/libvimbra.so" ||
    fail "the version text does not take the given date"
if grep -aF "$work" "$work/here/build/$PRESET/src/libvimbra.so"; then
    fail "the library names the place where it was built"
fi
