# Sourced by the scripts: the tree's root is the working directory.

heading() { printf '\n== %s\n' "$*"; }

# build PRESET [TARGET...]: configures and builds quietly; shows the output only when it fails. With
# long_tests=OFF those tests are not in the build's list.
build() {
    local preset=$1
    shift
    local log=build/$preset.log
    local launchers=()
    if command -v ccache >/dev/null; then
        # Precompiled headers are compared by what they were made from.
        export CCACHE_SLOPPINESS=pch_defines,time_macros
        launchers=(-DCMAKE_C_COMPILER_LAUNCHER=ccache -DCMAKE_CXX_COMPILER_LAUNCHER=ccache)
    fi
    # The tools for the board need libraries that script/lib/board.sh has unpacked.
    local tools=()
    if [ "$preset" = armel ] && [ -d build/board/sysroot ]; then
        tools=(-DVIMBRA_TOOLS=ON)
    fi
    mkdir -p build
    if ! { cmake --preset "$preset" -DVIMBRA_REQUIRE_ALL=ON \
               -DVIMBRA_LONG_TESTS="${long_tests:-ON}" "${launchers[@]}" "${tools[@]}" &&
           cmake --build --preset "$preset" ${1:+--target "$@"}; } >"$log" 2>&1; then
        echo "building $preset failed:"
        tail -n 60 "$log"
        return 1
    fi
}

# Of script/test's tests most wait for one another's processes, or for a time-out: with fewer at a time
# for each processor they leave it idle, or to what else keeps the machine busy.
tests_at_once=16

# run_tests COUNT OPTION...: the tests of script/test's list, so many at a time for each processor.
run_tests() {
    ctest --test-dir build/all --output-on-failure --parallel $(($(nproc) * $1)) "${@:2}"
}
