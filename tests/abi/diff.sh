#!/usr/bin/env bash
# Programs that were linked with the library go on: nothing of what it promised has changed. First
# changes are planted in what was promised, each of which has to be found.
source "$(dirname "$0")/common.sh"

stored=$(ls "$SOURCE"/tests/abi/libvimbra.so.*.abi)
[ "$(grep -c '<function-decl ' "$stored")" -gt 200 ] || fail "next to nothing is stored"

# planted EXPRESSION: the stored promise as it would have been before a change.
planted() {
    sed -E "$1" "$stored" >"$work/before.abi"
    ! cmp -s "$stored" "$work/before.abi" || fail "nothing is planted by $1"
}
# breaks WHAT EXPRESSION: the change is found, told, and not stored.
breaks() {
    planted "$2"
    cp "$work/before.abi" "$work/kept.abi"
    if "$SOURCE/script/abi" "$work/before.abi" >"$work/log" 2>&1; then
        fail "$1 goes unseen"
    fi
    grep -q 'needs a new soname' "$work/log" || { cat "$work/log"; fail "$1: no word of a soname"; }
    if "$SOURCE/script/abi" --update "$work/before.abi" >"$work/log" 2>&1; then
        fail "$1 is stored"
    fi
    cmp -s "$work/kept.abi" "$work/before.abi" || fail "$1 has touched what is stored"
}
body="/<function-decl name='VimbraDNSSet'/,/<\/function-decl>"
breaks "a function that is gone" \
    "s/(name='|=')VimbraDNSSet('|@)/\1VimbraDNSSat\2/g"
breaks "an argument more" "$body/{/<return/i <parameter type-id='95e97e5e'/>
}"
breaks "an argument's type" "$body/s/(<parameter type-id=')[0-9a-f]+/\195e97e5e/"
breaks "a record's size" "/<class-decl name='TNetDhcpsState'/s/size-in-bits='32'/size-in-bits='64'/"
breaks "a field's place" "/<class-decl name='TNetDevStat'/,/<\/class-decl>/s/(offset-in-bits=')64'/\196'/"
breaks "an enumerator's number" "/VIMBRA_SCOPE_TYPE_LINK/s/value='2'/value='9'/"
breaks "a variable that is gone" "s/g_nVimbraLogSwitch/g_nVimbraLogSwitched/g"

# What is new is told as well, and stored when asked.
planted "/<elf-symbol name='VimbraDNSSet'/d; $body/d"
if "$SOURCE/script/abi" "$work/before.abi" >"$work/log" 2>&1; then
    fail "a new function goes unseen"
fi
grep -q 'script/abi --update stores it' "$work/log" || { cat "$work/log"; fail "what to do is not told"; }
"$SOURCE/script/abi" --update "$work/before.abi" || fail "a new function is not stored"
"$SOURCE/script/abi" "$work/before.abi" || fail "what is stored differs"

"$SOURCE/script/abi" || fail "the library has changed"
