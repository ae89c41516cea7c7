#!/usr/bin/env bash
# Odd behaviour that is kept has one mark, "Kept: the oddity; the test is Suite.Name.", and the test
# is there. Marks that are wrong are planted in a copy, each of which has to be found.
source "$(dirname "$0")/common.sh"

find "$SOURCE/tests" -name '*.cpp' -exec cat {} + | tr '\n' ' ' |
    grep -oE 'TEST(_F|_P)?\( *[A-Za-z0-9_]+, *[A-Za-z0-9_]+' |
    sed -E 's/^[^(]*\( *//; s/, */./' | sort -u >"$work/tests"
[ "$(wc -l <"$work/tests")" -gt 1000 ] || fail "where are the tests?"

# comments SRC: the comments below it, each in a line behind its place.
comments() {
    (cd "$1" && find . -name '*.[ch]pp' -printf '%P\n' | sort | xargs awk '
        function tell() { if (text != "") print place ":" text; text = "" }
        FNR == 1 { tell() }
        /^ *\/\// {
            if (text == "") place = FILENAME ":" FNR
            sub(/^ *\/\//, "")
            text = text $0
            next
        }
        { tell() }
        /[^:]\/\/ / { place = FILENAME ":" FNR; sub(/^.*[^:]\/\//, ""); text = $0; tell() }
        END { tell() }
    ')
}

# wrong SRC: marks that are not whole, tests that are named without a mark or are not there.
wrong() {
    comments "$1" >"$work/comments"
    { grep -iE 'kept: |the test is |log readers|callers rely' "$work/comments" || true; } |
        while IFS= read -r comment; do
            marks=$({ grep -oE 'Kept: [^;]+; the test is [A-Za-z0-9_]+\.[A-Za-z0-9_]+\.' \
                <<<"$comment" || true; })
            words=$(grep -oiE 'kept: |the test is |log readers|callers rely' <<<"$comment" | wc -l)
            found=$(grep -c . <<<"$marks" || true)
            [ "$words" -eq $((2 * found)) ] || echo "not in the one form: $comment"
            sed -E 's/.*the test is (.*)\.$/\1/' <<<"$marks" | while IFS= read -r name; do
                [ -z "$name" ] || grep -qxF "$name" "$work/tests" || echo "no test $name: $comment"
            done
        done
}

wrong "$SOURCE/src" >"$work/found"
[ ! -s "$work/found" ] || { cat "$work/found"; fail "the marks of what is kept"; }
marks=$(grep -c 'Kept: ' "$work/comments")
[ "$marks" -gt 20 ] || fail "where are the marks?"

# planted WHAT LINE...: the comment at the end of a file is found.
planted() {
    rm -rf "$work/copy"
    cp -r "$SOURCE/src" "$work/copy"
    printf '%s\n' "" "${@:2}" >>"$work/copy/lib/log.cpp"
    [ -n "$(wrong "$work/copy")" ] || fail "not found: $1"
}
planted "a test that there is not" "// Kept: so; the test is Nobody.WroteIt."
planted "a test that there is not, in another line" "// Kept: so; the test" "// is Nobody.WroteIt."
planted "a mark without a test" "// Kept: so."
planted "a mark without a test beside one with" \
    "// Kept: so. Kept: this; the test is Stat.SecondStartKeepsTheFirstCallback."
planted "a mark behind a statement" "int x;  // Kept: so."
planted "a test without the mark" "// Odd; the test is Stat.SecondStartKeepsTheFirstCallback."
planted "a small letter" "// kept: so; the test is Stat.SecondStartKeepsTheFirstCallback."
planted "other words" "// Log readers know it so."

echo "$marks oddities"
