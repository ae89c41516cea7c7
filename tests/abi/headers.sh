#!/usr/bin/env bash
# Every public header compiles alone as C and as C++, without a word from the compiler, and one of
# the two umbrella headers brings it.
source "$(dirname "$0")/common.sh"

cd "$SOURCE/include"
headers=(vimbra/*.h)
[ ${#headers[@]} -ge 10 ] || fail "where are the headers?"

strict=(-pedantic -Wall -Wextra -Wshadow -Wstrict-aliasing -Werror -fsyntax-only -I .)
for header in "${headers[@]}"; do
    for standard in c99 c11 gnu17; do
        echo "#include <$header>" |
            "$CC" -x c -std=$standard -Wstrict-prototypes "${strict[@]}" - ||
            fail "$header as $standard"
    done
    for standard in c++11 c++17 c++20; do
        echo "#include <$header>" | "$CXX" -x c++ -std=$standard "${strict[@]}" - ||
            fail "$header as $standard"
    done
done

# Twice, and both generations in one file.
both='#include <vimbra/vimbra.h>
#include <vimbra/net.h>
#include <vimbra/vimbra.h>'
echo "$both" | "$CC" -x c -std=c99 "${strict[@]}" - || fail "both umbrella headers as C"
echo "$both" | "$CXX" -x c++ -std=c++20 "${strict[@]}" - || fail "both umbrella headers as C++"

printf '%s\n' "${headers[@]}" | sort >"$work/all"
echo "$both" | "$CC" -x c -M -I . - | tr ' \\' '\n\n' | sed -n 's|^\(\./\)\?\(vimbra/.*\.h\)$|\2|p' |
    sort -u >"$work/reached"
same "headers that an umbrella header brings" "$work/all" "$work/reached"

# The document shows the program that is built and tested.
sed -n '/^```c$/,/^```$/{/^```/!p}' "$SOURCE/README.md" >"$work/shown"
same "the example in README.md" "$SOURCE/examples/set_address.c" "$work/shown"
