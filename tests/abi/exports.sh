#!/usr/bin/env bash
# What the library exports, what the version script lists and what the headers declare is the same.
#
#     exports.sh LIBRARY
source "$(dirname "$0")/common.sh"

exported "$1" >"$work/exported"

sed -n '/global:/,/local:/p' "$SOURCE/src/libvimbra.map" | sed 's/#.*//' | tr ';' '\n' |
    sed -E 's/(global|local)://; s/[[:space:]]//g' | grep . | sort >"$work/listed"
uniq -d "$work/listed" | sed 's/^/listed twice: /' | (! grep .) || fail "the version script"

# The headers' own statements, one in a line, without those of the system's headers.
for header in "$SOURCE"/include/vimbra/*.h; do
    echo "#include \"$header\""
done | "$CC" -E -x c -I "$SOURCE/include" - |
    awk -v own="$SOURCE/include/vimbra/" '
        /^# / { file = $3; gsub("\"", "", file); next }
        index(file, own) == 1 { print }' |
    tr '\n' ' ' | sed 's/;/;\n/g' >"$work/statements"
# extern "C" and bodies of records leave no statement with the mark.
mark='__attribute__((visibility("default")))'
grep -F "$mark" "$work/statements" | awk -v mark="$mark" '{
    sub(/.*visibility\("default"\)\)\)/, "")
    gsub(/__attribute__ *\(\(([^()]|\([^()]*\))*\)\)/, "")
    if (match($0, /[A-Za-z_0-9]+ *\(/)) {
        name = substr($0, RSTART, RLENGTH - 1)
    } else {
        sub(/(\[[^]]*\])* *;.*/, "")
        match($0, /[A-Za-z_0-9]+ *$/)
        name = substr($0, RSTART, RLENGTH)
    }
    gsub(/ /, "", name)
    print name
}' | sort -u >"$work/declared"

[ "$(wc -l <"$work/exported")" -gt 40 ] || fail "the library exports next to nothing"
same "version script and exported symbols" "$work/listed" "$work/exported"
same "declarations and exported symbols" "$work/declared" "$work/exported"

# A function that is declared but not marked could not be linked.
awk '{
    line = $0
    while (gsub(/\{[^{}]*\}/, "", line)) {}
    depth += gsub(/\{/, "", line) - gsub(/\}/, "", line)
    if (depth == 0 && line ~ /\(/ && line !~ /typedef|visibility|static/) print line
}' "$work/statements" | (! grep -E '[a-z0-9_]+ +\**[A-Za-z_0-9]+ *\([^*]') ||
    fail "declared without VIMBRA_API"

echo "$(wc -l <"$work/exported") symbols"

# Debian's packages promise the same names.
sed -n 's/^ \([A-Za-z_0-9]*\)@VIMBRA_2\.0 .*/\1/p' "$SOURCE/debian/libvimbra2.symbols" |
    { grep -v '^VIMBRA_2$' || true; } | sort >"$work/promised"
same "exported symbols and debian/libvimbra2.symbols" "$work/exported" "$work/promised"
