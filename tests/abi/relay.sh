#!/usr/bin/env bash
# vimbractl monitor --proxy shows what any daemon tells its listeners, whoever comes and goes, and takes
# nothing from them.
#
#     relay.sh VIMBRACTL VIMBRA-FAKE
source "$(dirname "$0")/common.sh"

if [ -z "${INSIDE:-}" ]; then
    INSIDE=1 exec "$BUILD/bin/vimbra-sandbox" --keep "$SOURCE" --keep "$BUILD" -- "$0" "$@"
fi
vimbractl=$1 fake=$2
cd "$work"

# until_true COMMAND: waits for it.
until_true() {
    local tries=0
    until eval "$1" 2>/dev/null; do
        [ $((tries += 1)) -lt 2000 ] || { cat seen errors watched; fail "never: $1"; }
        sleep 0.02
    done
}
# stands_in NAME...: the monitor stands in front of these sockets.
stands_in() {
    local name
    for name in "$@"; do
        until_true "[ -S /tmp/$name.monitor ]"
    done
}
conflict() {
    echo "{\"notify\": \"conflict\", \"socket\": \"${2:-ipc_ip_conflict}\", \"type\": 1,
        \"body\": {\"achIfcName\": \"eth0\", \"tIpAddr\": \"192.0.2.$1\"}}" | tr -d '\n' >&9
    echo >&9
}
monitor() {
    : >seen
    "$vimbractl" monitor --proxy --json "$@" >seen 2>errors &
    monitor=$!
    until_true 'grep -q watching seen'
}

echo '{"answers": {"ping-start": {"then": [
    {"notify": "echo", "body": {"nUserID": 1, "seq": 1, "time": 250, "ttl": 64}},
    {"notify": "echo", "type": 1, "body": {"nUserID": 1, "seq": 2}},
    {"notify": "echo", "body": {"nUserID": 1, "seq": 3, "time": 300, "ttl": 64, "over_flag": 1}}]}}}' >script
mkfifo told
"$fake" script <told >asked 2>errors.fake &
daemon=$!
exec 9>told
until_true '[ -S /tmp/api_daemon ]'

# Who listens already is found, and so is everything that is sent, in its order.
"$vimbractl" conflict watch --json >watched &
watcher=$!
until_true 'grep -q conflict-start asked'
chmod 640 /tmp/ipc_ip_conflict
monitor --pcap messages
stands_in ipc_ip_conflict ipc_ipv6_conflict
[ "$(stat -c %a /tmp/ipc_ip_conflict)" = 640 ] || fail "another mode than the listener's"
for each in {1..40}; do
    conflict "$each"
done
until_true '[ "$(wc -l <watched)" = 40 ]'
until_true '[ "$(grep -c ipc_ip_conflict seen)" = 40 ]'
[ "$(jq -r 'select(.name == "conflict") | .body.tIpAddr' seen)" = "$(printf '192.0.2.%d\n' {1..40})" ] ||
    fail "another order"
jq -se 'any(.[]; .kind == "notification" and .socket == "ipc_ip_conflict" and .type == 1 and
    .body.achIfcName == "eth0" and (.time | test("^[0-9-]{10} [0-9:]{8}")))' seen >/dev/null ||
    fail "what is shown"

# Who comes later is, too, and again when it takes its name anew.
for each in 1 2 3; do
    "$BUILD/examples/ping" 192.0.2.1 >pinged || true
    [ "$(tail -n 1 pinged)" = "2 of 3" ] || { cat pinged; fail "echoes are lost"; }
done

# Nobody takes what is sent to a listener that has died; its name is free.
kill -9 $watcher
wait $watcher 2>/dev/null || true
python3 -c 'import socket, struct
to = socket.socket(socket.AF_UNIX)
to.connect("/tmp/ipc_ip_conflict")
to.send(struct.pack("=III42s", 1, 42, 0, b"nobody"))'
until_true '[ ! -e /tmp/ipc_ip_conflict.monitor ]'
"$vimbractl" conflict watch --json >watched &
watcher=$!
stands_in ipc_ip_conflict
conflict 51
until_true 'grep -q 192.0.2.51 watched'
until_true 'grep -q 192.0.2.51 seen'
! grep -q nobody seen || fail "what nobody has taken is shown"

# What is no listener's is left alone.
python3 -c 'import socket; s = socket.socket(socket.AF_UNIX); s.bind("/tmp/ipc_other"); s.listen()
import time; time.sleep(600)' &
other=$!
until_true '[ -S /tmp/ipc_other ]'

# In the end all have their names, and everything that was sent.
[ ! -e /tmp/ipc_other.monitor ] || fail "somebody else's socket"
kill $other
before=$(stat -c %i /tmp/ipc_ip_conflict.monitor)
for each in {60..69}; do
    conflict "$each"
done
kill $monitor
wait $monitor || fail "the proxy ended with $?"
! ls /tmp | grep -F .monitor || fail "the proxy leaves sockets"
[ "$(stat -c %i /tmp/ipc_ip_conflict)" = "$before" ] || fail "the listener's socket is not back"
conflict 70
until_true 'grep -q 192.0.2.70 watched'
until_true '[ "$(grep -c "tIpAddr\|192.0.2" watched)" = 12 ]'
"$BUILD/tools/protocol/vimbra-protocol" --lua >vimbra.lua
tshark -X lua_script:vimbra.lua -r messages -V 2>errors >analysed || fail "the capture is not read"
[ "$(grep -c '^Vimbra notification: conflict$' analysed)" -ge 41 ] || fail "the capture"

# One that is killed takes nothing away for good: the next one clears up.
monitor
stands_in ipc_ip_conflict
kill -9 $monitor
wait $monitor 2>/dev/null || true
monitor
"$vimbractl" mtu show eth0 >/dev/null || fail "a request after a killed monitor"
stands_in ipc_ip_conflict
conflict 80
until_true 'grep -q 192.0.2.80 watched'
until_true 'grep -q 192.0.2.80 seen'
kill $monitor
wait $monitor || fail "the second proxy ended with $?"
"$vimbractl" mtu show eth0 >/dev/null || fail "a request after the second monitor"
[ ! -s errors.fake ] || { cat errors.fake; fail "the daemon has met with refusals"; }
kill $watcher
wait $watcher || true
kill $daemon
