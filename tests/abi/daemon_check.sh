#!/usr/bin/env bash
# vimbrad serves every message; a daemon that does not is told message by message.
#
#     daemon_check.sh VIMBRA-DAEMON-CHECK VIMBRAD
source "$(dirname "$0")/common.sh"

if [ -z "${INSIDE:-}" ]; then
    INSIDE=1 exec "$BUILD/bin/vimbra-sandbox" --keep "$SOURCE" --keep "$BUILD" -- "$0" "$@"
fi
check=$1 vimbrad=$2

# status WANTED COMMAND...: runs it, its output is in $work/out.
status() {
    local wanted=$1 got=0
    shift
    "$@" >"$work/out" 2>"$work/errors" || got=$?
    [ "$got" = "$wanted" ] || { cat "$work/out" "$work/errors"; fail "$* ended with $got"; }
}

status 3 "$check"
grep -q '^vimbra-daemon-check: /tmp/api_daemon: ' "$work/errors" || fail "no word on a missing daemon"
status 2 "$check" --nonsense

ip link add try0 type veth peer name try1
ip link set try0 up && ip link set try1 up && ip link set lo up
"$vimbrad" --run-dir="$work/run" --web-root=/no/such/place 2>"$work/log" &
until [ -S /tmp/api_daemon ]; do sleep 0.05; done
status 0 "$check"
grep -qE '^[0-9]+ served, [0-9]+ refused, 0 not served, 0 wrong, 18 not tried$' "$work/out" ||
    { cat "$work/out"; fail "without changes"; }
[ -z "$(ip address show try0 | grep 'inet ')" ] || fail "something was changed all the same"
status 0 "$check" --changes --interface try0 --json
# What this machine can do is done; what it cannot (a link, a bond, a time server) is refused.
refused=$(jq -r 'select(.outcome != "served").request' "$work/out" | sort | tr '\n' ' ')
[ "$refused" = "bond-start ntp-check pppoe-start too-long unknown-type web-start wrong-size " ] ||
    { cat "$work/out" "$work/log"; fail "refused: $refused"; }
[ -z "$(ip address show try0 | grep 'inet ')" ] || fail "an address was not taken back"
kill %1
wait %1 2>/dev/null || true

# One that answers everything with four bytes of zero, and hangs up on what it does not like.
python3 - <<'END' &
import os, socket, struct
server = socket.socket(socket.AF_UNIX)
server.bind("/tmp/api_daemon")
server.listen(16)
while True:
    peer, _ = server.accept()
    head = peer.recv(12, socket.MSG_WAITALL)
    if len(head) < 12:
        continue
    kind, size, _ = struct.unpack("=IIi", head)
    peer.recv(size, socket.MSG_WAITALL)
    if kind == 263:
        peer.close()
    elif kind == 274:
        peer.send(struct.pack("=IIi", kind, 4, 0) + struct.pack("=i", 38))
    elif kind != 275:
        peer.send(struct.pack("=IIi", kind, 4, 0) + bytes(4))
    else:
        peer.send(struct.pack("=IIi", kind, 648, 0) + bytes(100))
    peer.close()
END
fake=$!
until python3 -c 'import socket; socket.socket(socket.AF_UNIX).connect("/tmp/api_daemon")' 2>"$work/log"; do
    sleep 0.05
done
status 1 "$check"
for line in 'mac-get +wrong: closed without a reply: applications take it for success' \
    'mtu-get +not served' 'address-add +wrong: done on vimbra-no-if, which does not exist' \
    'address-get +wrong: a result alone, where a record of 456 bytes belongs: 0' \
    'route-list +wrong: a reply of 100 bytes whose header says 648, not 648' \
    'unknown-type +wrong: it has to be refused with a number'; do
    grep -qE "$line" "$work/out" || { cat "$work/out"; fail "not told: $line"; }
done
kill "$fake"
