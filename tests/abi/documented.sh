#!/usr/bin/env bash
# The headers are the manual: every public name has its comment, every result its line, and README's
# table names calls that exist. Holes are planted in a copy first, each of which has to be found.
source "$(dirname "$0")/common.sh"

# Results that are values, not codes: a @return line says it all.
values="i64c"

# holes HEADER...: what is not told, a line each; and, as "name NAME", what is declared and told.
holes() {
    awk -v values="$values" '
        function hole(what) { print FILENAME ":" FNR ": " what }

        # A comment belongs to what follows it directly.
        function begin() { statement = ""; told = doc; doc = "" }

        # Each parameter has its line, unless nothing is done with any.
        function parameters(call, list,    count, i, part) {
            if (told ~ /ithout effect|Not supported|no queue/) return
            while (match(list, /\(\*[a-z_]+\)\([^()]*\)/)) {  # a function is known by its name
                part = substr(list, RSTART + 2, RLENGTH - 2)
                sub(/\).*/, "", part)
                list = substr(list, 1, RSTART - 1) " " part substr(list, RSTART + RLENGTH)
            }
            sub(/\).*/, "", list)
            count = split(list, parts, ",")
            for (i = 1; i <= count; i++) {
                if (parts[i] ~ /^ *(void|\.\.\.) *$/) continue
                match(parts[i], /[A-Za-z_0-9]+ *$/)
                part = substr(parts[i], RSTART, RLENGTH)
                gsub(/ /, "", part)
                if (told !~ "@param +" part "( |\n|$)") hole(call " does not tell of " part)
            }
        }

        function declared(    name, line, codes, isFunction, rest) {
            line = statement
            gsub(/__attribute__ *\(\(([^()]|\([^()]*\))*\)\)/, "", line)
            gsub(/__extension__/, "", line)
            if (line ~ /^ *typedef/) {
                if (told != "" && match(line, /(struct|union|enum) +[A-Za-z_0-9]+/))
                    known[substr(line, RSTART, RLENGTH)] = 1
                sub(/ *;.*/, "", line)
                if (match(line, /\( *\*[A-Za-z_0-9]+\)/)) {
                    name = substr(line, RSTART, RLENGTH)
                    gsub(/[(* )]/, "", name)
                } else {
                    match(line, /[A-Za-z_0-9]+$/)
                    name = substr(line, RSTART, RLENGTH)
                }
                if (told == "" && (!trailing || line ~ /\{/)) hole(name " has no comment")
                return
            }
            if (line !~ /VIMBRA_API/) {
                # A type may be told where its name is first seen.
                match(line, /(struct|union|enum) +[A-Za-z_0-9]+/)
                if (line ~ /\{/ && told == "" && !(substr(line, RSTART, RLENGTH) in known))
                    hole("a type without comment")
                return
            }
            codes = line ~ /VIMBRA_API +s32 /
            isFunction = match(line, /[A-Za-z_0-9]+ *\(/)
            if (isFunction) {
                name = substr(line, RSTART, RLENGTH - 1)
                rest = substr(line, RSTART + RLENGTH)
            } else {
                sub(/(\[[^]]*\])* *;.*/, "", line)
                match(line, /[A-Za-z_0-9]+ *$/)
                name = substr(line, RSTART, RLENGTH)
            }
            gsub(/ /, "", name)
            if (told == "") hole(name " has no comment")
            else print "name " name
            if (isFunction) parameters(name, rest)
            if (!isFunction || line ~ /VIMBRA_API +void +[A-Za-z_]/) return
            if (codes && name != values && told !~ /@retval/) hole(name " has no @retval line")
            if (told !~ /@retval|@return/) hole(name " does not say what it returns")
        }

        FNR == 1 { inComment = 0; inPlain = 0; depth = 0; doc = ""; statement = ""; pending = "" }

        # Multi-line comments, and the order of their lines.
        inComment {
            doc = doc "\n" $0
            if ($0 ~ /^ *\* *$/) {
                tagged = 0
            } else if ($0 ~ /^ *\* +@(param|retval|return)/) {
                tagged = 1
            } else if (tagged && $0 ~ /^ *\* [^ ]/) {
                hole("a line of a tag is not indented:" $0)
                tagged = 0
            }
            if ($0 ~ /\*\//) {
                inComment = 0
                if (doc ~ /@file/) doc = ""
            }
            next
        }
        /^ *\/\*\*($| )/ && !/\*\// { inComment = 1; tagged = 0; doc = $0; next }
        /^ *\/\*\* .*\*\/ *$/ {
            doc = $0
            if (doc ~ /@(retval|param|return)/) hole("a tag in a one-line comment")
            next
        }
        /^ *\/\*([^*]|$)/ { inPlain = $0 !~ /\*\//; next }
        inPlain { if ($0 ~ /\*\//) inPlain = 0; next }

        # The preprocessor: a constant or a macro is public, a guard is not.
        /^#/ {
            if ($0 ~ /^#define/ && $2 !~ /^VIMBRA_[A-Z0-9_]+_H$/ && doc == "")
                hole($2 " has no comment")
            if ($0 !~ /^#(pragma|if|else|endif)/) doc = ""
            next
        }
        /^ *$/ { doc = ""; next }
        /^VIMBRA_(BEGIN|END)_DECLS$/ { doc = ""; next }
        depth == 0 && /^(extern "C(\+\+)?" \{|\})$/ { next }  # around another header

        # Statements, with their records.
        statement == "" { begin(); trailing = 0 }
        {
            if ($0 ~ /\/\*\*</) trailing = 1
            code = $0
            sub(/\/\*.*/, "", code)
            opens = gsub(/\{/, "{", code); closes = gsub(/\}/, "}", code)
            inside = depth > 0 && code !~ /^ *\}/ && code !~ /\{ *$/
            # A comment in the middle of a field (union) or behind it, in this line or the next.
            if (inside && code ~ /[A-Za-z0-9_]/) {
                if (pending != "") { hole("no comment:" pending); pending = "" }
                if ($0 !~ /\/\*\*</ && doc == "" &&
                    code ~ /[;,] *$|^ *[A-Z_0-9]+( *= *[-0-9]+)? *$/)
                    pending = $0
                doc = ""
            } else if ($0 ~ /\/\*\*</) {
                pending = ""
            } else if (pending != "") {
                hole("no comment:" pending); pending = ""
            }
            if (depth == 0 && opens && closes && code ~ /enum/)
                hole("constants in one line have no comments")
            depth += opens - closes
            statement = statement " " code
            if (depth == 0 && code ~ /; *$/) { declared(); statement = ""; doc = "" }
        }
    ' "$@"
}

# check DIRECTORY: 0 when its headers tell all that the version script lists; $work/holes says what.
check() {
    holes "$1"/*.h >"$work/found"
    grep -v '^name ' "$work/found" >"$work/holes" || true
    sed -n 's/^name //p' "$work/found" | sort -u >"$work/told"
    comm -23 "$work/listed" "$work/told" | sed 's/$/ is exported and not told/' >>"$work/holes"
    [ ! -s "$work/holes" ]
}

sed -n '/global:/,/local:/p' "$SOURCE/src/libvimbra.map" | sed 's/#.*//' | tr ';' '\n' |
    sed -E 's/(global|local)://; s/[[:space:]]//g' | grep '^[A-Za-z]' | sort >"$work/listed"
[ "$(wc -l <"$work/listed")" -gt 200 ] || fail "the version script lists next to nothing"

check "$SOURCE/include/vimbra" || { cat "$work/holes"; fail "holes in the manual"; }

# planted WHAT HEADER SCRIPT: the change makes a hole, which is found.
planted() {
    rm -rf "$work/copy"
    cp -r "$SOURCE/include/vimbra" "$work/copy"
    sed -i -E "$3" "$work/copy/$2"
    ! cmp -s "$SOURCE/include/vimbra/$2" "$work/copy/$2" || fail "nothing to plant: $1"
    ! check "$work/copy" || fail "not found: $1"
}
planted "a call without comment" ping.h '/VimbraPingStop\(/s/^/\n/'
planted "a call without results" ping.h '/@retval/d'
planted "a call that is not there" ping.h '/VimbraPingStop\(/d'
planted "a call that does not say what it returns" queue.h '/@retval/d'
planted "a parameter that is not told" ping.h '/@param ptPingOpt/d'
planted "the last parameter that is not told" process.h '/@param flag/d'
planted "a function that is not told" thread.h '/@param proc/d'
planted "a pointer that is not told" service.h '/@return/d'
planted "a variable without comment" ping.h '/g_ptApiPingInfo/s/^/\n/'
planted "a record without comment" ping.h '/^typedef struct PingInfo/s/^/\n/'
planted "a field without comment" ping.h '/s32 nUserId;/s|/\*.*||'
planted "the last field without comment" addr.h '/abyMacAddr/s|/\*.*||'
planted "a constant without comment" types.h '/VIMBRA_ERR_PARAM/s|/\*.*||'
planted "the last constant without comment" types.h '/VIMBRA_ERR_TRACE_STOP/s|/\*.*||'
planted "constants in one line" common.h \
    '/^VIMBRA_API s32 VimbraInit/s|$|\n\n/** Two. */\nenum { VIMBRA_A = 1, VIMBRA_B = 2 };|'
planted "a definition without comment" ping.h '/#define VIMBRA_PING_MAX/s/^/\n/'
planted "a callback without comment" ping.h '/TVimbraPingCallBack\)/s/^/\n/'
planted "a name of a type without comment" net_ping.h '/TPingOpt;/s/^/\n/'
planted "a result that reflowing broke" ping.h 's/^ \* +(the test keeps its place)/ * \1/'
planted "a tag in one line" msg_queue.h 's|^VIMBRA_API int DestroyMsgQueue|/** @retval 0 */\n&|'

# The operations that README tells of are calls of the library: second and third column.
# operations README: their names, one a line.
operations() {
    sed -n '/^| operation |/,/^$/p' "$1" | sed 1,2d | cut -d '|' -f 3,4 |
        { grep -o '`[^`]*`' || true; } | tr -d '`' | sort -u
}
operations "$SOURCE/README.md" >"$work/operations"
[ "$(wc -l <"$work/operations")" -gt 100 ] || fail "README's table is cut short"
comm -23 "$work/operations" "$work/listed" >"$work/unknown"
[ ! -s "$work/unknown" ] || { cat "$work/unknown"; fail "README names calls that there are not"; }
sed 's/`VimbraPingStart`/`VimbraPingStarted`/' "$SOURCE/README.md" >"$work/readme"
operations "$work/readme" | comm -23 - "$work/listed" | grep -qx VimbraPingStarted ||
    fail "not found: a call in README that there is not"

echo "$(wc -l <"$work/told") names"
