# Sourced by the checks on the board. Waits are in the guest's time, which costs nothing: sleep,
# rather than look again and again.

# check NAME COMMAND...: one line; what the command said only when it failed.
check() {
    check_name=$1
    shift
    if "$@" >/tmp/said 2>&1; then
        echo "ok   $subject: $check_name"
    else
        echo "FAIL $subject: $check_name (status $?)"
        { echo "$*"; tail -n 15 /tmp/said; echo "vimbrad's log:"; tail -n 8 /tmp/vimbrad.log; } |
            cut -c 1-200 | sed 's/^/     | /'
    fi
}

# says PATTERN COMMAND...: the command succeeds and a line of what it says matches.
says() {
    pattern=$1
    shift
    "$@" >/tmp/output 2>&1
    result=$?
    cat /tmp/output
    [ "$result" -eq 0 ] && grep -qE -- "$pattern" /tmp/output
}

# tells PATTERN COMMAND...: a line matches, whatever the command's status.
tells() {
    pattern=$1
    shift
    "$@" 2>&1 | tee /tmp/output
    grep -qE -- "$pattern" /tmp/output
}

# silent PATTERN COMMAND...: no line matches.
silent() {
    pattern=$1
    shift
    "$@" >/tmp/output 2>&1
    cat /tmp/output
    ! grep -qE -- "$pattern" /tmp/output
}

# refused STATUS COMMAND...: the command ends with that status.
refused() {
    wanted=$1
    shift
    "$@"
    [ $? -eq "$wanted" ]
}

# same ONE OTHER: two texts, line by line in whatever order; neither is empty.
same() {
    one=$(printf '%s\n' "$1" | sort)
    other=$(printf '%s\n' "$2" | sort)
    printf '%s\n' "-- one" "$one" "-- other" "$other"
    [ -n "$one" ] && [ "$one" = "$other" ]
}

# within SECONDS COMMAND...: tries until it succeeds.
within() {
    tries=$(($1 * 2))
    shift
    until "$@" >/tmp/tried 2>&1; do
        tries=$((tries - 1))
        if [ "$tries" -eq 0 ]; then
            cat /tmp/tried
            return 1
        fi
        sleep 0.5
    done
}

not() {
    ! "$@"
}

# ---- The daemon ------------------------------------------------------------------------------------

# The options of the first start hold for the next ones.
start_daemon() {
    daemon_options=${*:-${daemon_options:-}}
    rm -f /tmp/ready
    mkfifo /tmp/ready
    # shellcheck disable=SC2086  # the options are words
    vimbrad $daemon_options --ready-fd=3 3>/tmp/ready >>/tmp/vimbrad.log 2>&1 </dev/null &
    daemon=$!
    read -r _ </tmp/ready
}

stop_daemon() {
    kill "$daemon"
    wait "$daemon"
}

# As hard as can be, and the next life of it.
restart_daemon() {
    kill -KILL "$daemon"
    wait "$daemon" 2>/dev/null
    start_daemon
}

# ---- The second host: a namespace at the other end of eth0 -----------------------------------------

other() {
    /bin/ip netns exec other "$@"
}

make_other() {
    /bin/ip netns add other
    for host in '' other; do
        $host sh -c 'echo 0 >/proc/sys/net/ipv6/conf/all/accept_dad
                     echo 0 >/proc/sys/net/ipv6/conf/default/accept_dad'
    done
    other /bin/ip link set lo up
    cable eth0 far0
}

# cable HERE THERE: one between the two hosts, with its far end up.
cable() {
    /bin/ip link add "$1" type veth peer name "$2" netns other
    other /bin/ip link set "$2" up
}

# Does a packet come back? The first may be lost while a neighbour is looked for.
reaches() {
    ping -n -q -c 1 -W 1 "$@" >/dev/null 2>&1 || ping -n -c 2 -W 2 "$@"
}

# watch FILE COMMAND...: runs in the background, what it says in the file; `watched` ends it.
watch() {
    watch_file=$1
    shift
    "$@" >"$watch_file" 2>&1 </dev/null &
    watcher=$!
}

watched() {
    kill "$watcher" 2>/dev/null
    wait "$watcher"
}
