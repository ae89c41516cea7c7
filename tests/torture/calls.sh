#!/usr/bin/env bash
# Every call that the archive makes of the C library is in calls.inc, and nothing else is: a call
# that is new has to be given its outcomes.
set -euo pipefail
archive=$1 calls=$2
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

# What is left undefined when all of the archive is one. Sanitizers and gcov add names of theirs, and
# have names of their own for some.
ld -r --whole-archive "$archive" -o "$work/whole.o"
nm -u "$work/whole.o" | awk '{ print $2 }' | sed 's/^__asan_\(mem[a-z]*\)$/\1/' |
    grep -vE '^(__(asan|ubsan|tsan|gcov|sanitizer|cxa|gxx|stack_chk|emutls|tls)_|_Unwind)' |
    sort -u >"$work/made"
sed -nE 's/^(FAILS|TRACKED|PASSED)\(([A-Za-z_0-9]+).*/\2/p' "$calls" | sort >"$work/known"
[ -z "$(uniq -d "$work/known")" ] || { echo "twice: $(uniq -d "$work/known")"; exit 1; }

unknown=$(comm -23 "$work/made" "$work/known")
[ -z "$unknown" ] || { echo "not in calls.inc:" $unknown; exit 1; }
# A sanitizer's build calls less by its own name: that nothing is listed in vain is for the others.
grep -q '^__.*san_' <(nm -u "$work/whole.o" | awk '{ print $2 }') && exit 0
needless=$(comm -13 "$work/made" "$work/known")
[ -z "$needless" ] || { echo "not called any more:" $needless; exit 1; }
echo "$(wc -l <"$work/made") calls"
