#!/usr/bin/env bash
# The library is a house of rooms on floors: a file includes files of its own room and of lower
# floors, or of a room beside it, but never one of a higher floor; and neither rooms nor files lead
# around in a circle. Wrong arrows are planted in a copy, each of which has to be found.
source "$(dirname "$0")/common.sh"

# Floor, room and its files; the first line that fits counts. What is named nowhere has no place.
cat >"$work/floors" <<'END'
0 base      lib/wire\.hpp|lib/base/.*
1 log       lib/(log|failure)\..*
2 threads   lib/threads/.*
2 queue     lib/event_queue\..*
2 glib      lib/glib/.*
3 ipc       lib/ipc/.*|lib/ipc_api_msg\..*
3 files     lib/files/.*
4 lib       lib/[^/]*
4 forget    api/forget\.hpp
7 fork      api/fork\..*|api/api_network_common/api_init\.cpp
6 legacy    api/api_1x/.*
5 *         api/api_[^/]*/.*
END

# wrong SRC: what the #include lines below it do wrong, a line each. A room of "*" is the file's
# second directory: each service is one.
wrong() {
    (cd "$1" && find . -name '*.[ch]pp' -printf '%P\n' | sort) >"$work/files"
    (cd "$1" && grep -rHE '^ *# *include *["<]' --include='*.[ch]pp' .) | sed 's|^\./||' >"$work/lines"
    rm -f "$work/rooms" "$work/units"
    awk -v rooms="$work/rooms" -v units="$work/units" '
        FILENAME ~ /floors$/ { floor[++count] = $1; name[count] = $2; pattern[count] = $3; next }
        FILENAME ~ /files$/ { known[$0] = 1; place($0); next }
        function place(file,    i, parts) {
            for (i = 1; i <= count; i++) {
                if (file ~ "^(" pattern[i] ")$") {
                    split(file, parts, "/")
                    room[file] = name[i] == "*" ? parts[2] : name[i]
                    level[file] = floor[i]
                    return
                }
            }
            print file " has no place on any floor"
        }
        function unit(file) { sub(/\.[ch]pp$/, "", file); return file }
        {
            from = $0; sub(/:.*/, "", from)
            to = $0; sub(/^[^:]*: *# *include *["<]/, "", to); sub(/[">].*/, "", to)
            if (!(to in known)) {
                if ($0 ~ /include *"/ && to != "build_info.h") print from " includes an unknown " to
                next
            }
            if (level[to] > level[from]) print from " includes " to ", which is above it"
            if (room[from] != room[to]) print room[from], room[to] >rooms
            if (unit(from) != unit(to)) print unit(from), unit(to) >units
        }
    ' "$work/floors" "$work/files" "$work/lines"
    for graph in rooms units; do
        sort -u "$work/$graph" | tsort 2>&1 >/dev/null | sed "s/^tsort: /$graph in a circle: /"
    done
}

wrong "$SOURCE/src" >"$work/found"
[ ! -s "$work/found" ] || { cat "$work/found"; fail "the rooms of src"; }
[ "$(wc -l <"$work/lines")" -gt 300 ] || fail "where are the #include lines?"
arrows=$(sort -u "$work/rooms" | wc -l)

# planted WHAT FILE TARGET [FILE TARGET]: the arrow, or the two, are found.
planted() {
    local what=$1
    rm -rf "$work/copy"
    cp -r "$SOURCE/src" "$work/copy"
    shift
    while [ $# -gt 0 ]; do
        [ -f "$work/copy/$1" ] || fail "nothing to plant in: $1"
        case $2 in
            "<"*) echo "#include $2" ;;
            *) echo "#include \"$2\"" ;;
        esac >>"$work/copy/$1"
        shift 2
    done
    [ -n "$(wrong "$work/copy")" ] || fail "not found: $what"
}
planted "current includes legacy" api/api_ping/api_ping.cpp api/api_1x/legacy.hpp
planted "the library includes a service" lib/deal_process.cpp api/api_bond/api_bond.hpp
planted "the log includes the protocol" lib/log.cpp lib/ipc_api_msg.hpp
planted "the wire needs the log" lib/wire.hpp lib/log.hpp
planted "files include what stands on them" lib/files/inetd.cpp lib/pw_encrypt.hpp
planted "a service includes forks" api/api_serv/api_serv.cpp api/fork.hpp
planted "services in a circle" api/api_bond/api_bond.cpp api/api_webs/api_webs.hpp \
    api/api_webs/api_webs.cpp api/api_bond/api_bond.hpp
planted "rooms of one floor in a circle" lib/ipc/connect.cpp lib/files/inetd.hpp \
    lib/files/pw_file.cpp lib/ipc/connect.hpp
planted "files of one room in a circle" api/api_serv/serv_table.hpp api/api_serv/inetd_list.hpp
planted "a file that there is not" lib/log.cpp lib/nothing.hpp
planted "an arrow between angle brackets" lib/log.cpp '<lib/ipc/request.hpp>'
rm -rf "$work/copy"
cp -r "$SOURCE/src" "$work/copy"
mkdir "$work/copy/attic"
echo >"$work/copy/attic/file.cpp"
wrong "$work/copy" >"$work/found"
grep -qx 'attic/file.cpp has no place on any floor' "$work/found" || fail "not found: a file outside"

echo "$arrows arrows between rooms"
