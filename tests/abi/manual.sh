#!/usr/bin/env bash
# The manual has a page for every public name and both programs, man(1) reads it without complaint,
# and no link of the browser's pages leads nowhere.
#
#     manual.sh LIBRARY DIRECTORY
source "$(dirname "$0")/common.sh"

exported "$1" >"$work/exported"
(cd "$2/man/man3" && ls) | sed 's/\.3$//' | grep -v '^vimbra_[a-z_]*$' | sort >"$work/pages"
grep '^vimbra_[a-z_]*$' "$work/exported" | while read -r name; do
    [ -f "$2/man/man3/$name.3" ] && echo "$name"
done | sort - "$work/pages" >"$work/named"
same "exported names and pages" "$work/exported" "$work/named"

pages=("$2"/man/man1/vimbractl.1 "$2"/man/man8/vimbrad.8 "$2"/man/man7/vimbra.7)
for header in "$SOURCE"/include/vimbra/*.h; do
    pages+=("$2/man/man3/vimbra_$(basename "$header" .h).3")
done
cd "$2/man"
for page in "${pages[@]}"; do
    groff -man -Tutf8 -ww -P-c -P-b -P-u "$page" >"$work/text" 2>"$work/complaints" || fail "$page"
    [ ! -s "$work/complaints" ] || { cat "$work/complaints"; fail "$page"; }
    [ "$(wc -l <"$work/text")" -gt 20 ] || fail "next to nothing in $page"
done
# What stands in a header stands in its page: a call, a parameter, a result.
groff -man -Tutf8 -P-c -P-b -P-u man3/VimbraPingStart.3 | tr -s ' \n' ' ' >"$work/text"
for words in 'u32\|s32 VimbraPingStart(TVimbraAddr tDestIp' 'nUserID names the test until it ends' \
    '1301 no thread could be made'; do
    grep -q "$words" "$work/text" || fail "VimbraPingStart(3) does not say: $words"
done
grep -q 'dhcp start' man1/vimbractl.1 || fail "vimbractl(1) knows no dhcp start"

cd "$2/html"
grep -oh 'href="[^"]*"' ./*.html | sed 's/href="//; s/"$//' | grep -v '^http' | sort -u |
    while IFS='#' read -r file mark; do
        [ -f "$file" ] || { echo "$file"; continue; }
        [ -z "$mark" ] || grep -q "id=\"$mark\"" "$file" || echo "$file#$mark"
    done >"$work/dead"
[ ! -s "$work/dead" ] || { cat "$work/dead"; fail "links that lead nowhere"; }
echo "$(wc -l <"$work/exported") names"
