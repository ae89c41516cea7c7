#!/usr/bin/env bash
# vimbractl monitor shows what passes: as vimbrad tells it, and in front of any daemon.
#
#     monitor.sh VIMBRACTL VIMBRAD VIMBRA-FAKE
source "$(dirname "$0")/common.sh"

if [ -z "${INSIDE:-}" ]; then
    INSIDE=1 exec "$BUILD/bin/vimbra-sandbox" --keep "$SOURCE" --keep "$BUILD" -- "$0" "$@"
fi
vimbractl=$1 vimbrad=$2 fake=$3
cd "$work"

# until_has FILE TEXT: waits for a line that has it.
until_has() {
    local tries=0
    until grep -qF -- "$2" "$1" 2>/dev/null; do
        [ $((tries += 1)) -lt 2000 ] || { cat "$1"; fail "never seen in $1: $2"; }
        sleep 0.02
    done
}
until_socket() { until [ -S /tmp/api_daemon ]; do sleep 0.02; done; }

status=0
"$vimbractl" monitor --run-dir "$work/run" >out 2>errors || status=$?
[ $status = 3 ] && grep -q 'cannot be asked at' errors || fail "without a daemon: $status"

# The companion daemon.
ip link set lo up
ip link add eth0 type veth peer name peer0 && ip link set eth0 up && ip link set peer0 up
"$vimbrad" --run-dir="$work/run" 2>log &
daemon=$!
until_socket
"$vimbractl" monitor --run-dir "$work/run" --json >lines 2>errors &
watcher=$!
"$vimbractl" monitor --run-dir "$work/run" >text 2>errors.text &
reader=$!
until_has lines '"watching"'
# Both look on once a request is told by both.
until grep -q mtu-get lines && grep -q mtu-get text; do
    "$vimbractl" mtu show eth0 >/dev/null
    sleep 0.05
done
"$vimbractl" mtu set eth0 1400
"$vimbractl" mtu show eth1 >/dev/null 2>&1 && fail "there is no eth1"
echo "open sesame" | "$vimbractl" pppoe start eth0 --user me >/dev/null 2>&1 || true
"$vimbractl" ping 127.0.0.1 --count 1 >/dev/null
until_has lines '"name":"echo"'
kill $watcher
wait $watcher || fail "the watch ended with $?"
jq -se 'any(.[]; (.name == "mtu-set") and (.process == "vimbractl" and .pid > 0 and .uid == 0 and
    .body == {"achIfaceName": "eth0", "dwMtu": 1400} and .reply.nErrid == 0 and
    (.time | test("^[0-9-]{10} [0-9:]{8}\\.[0-9]{3}$"))))' lines >/dev/null || fail "the request"
jq -se 'any(.[]; (.name == "mtu-get" and .body.achIfaceName == "eth1") and (.reply.nErrid == 19))' lines \
    >/dev/null || fail "the refusal"
jq -se 'any(.[]; (.kind == "notification" and .name == "echo") and (.socket == "ipc_ping" and .type == 0 and
    .body.seq == 1))' lines >/dev/null || fail "the notification"
jq -se 'any(.[]; (.name == "pppoe-start") and (.body.tConfig.password == "***"))' lines >/dev/null ||
    fail "what was dialled"
! grep -q sesame lines text || fail "a password is shown"
until_has text 'ipc_ping <- echo 0'
grep -qE '^[0-9:]{8}\.[0-9]{3} vimbractl\[[0-9]+\] mtu-set achIfaceName eth0, dwMtu 1400 -> nErrid 0$' \
    text || { cat text; fail "the line of a request"; }
kill $daemon
wait $daemon || true
status=0
wait $reader || status=$?
[ $status = 3 ] && grep -q 'has ended' errors.text || fail "a daemon that ends: $status"

# Any other one.
status=0
"$vimbractl" monitor --proxy >out 2>errors || status=$?
[ $status = 3 ] && grep -q 'no daemon at /tmp/api_daemon' errors || fail "nobody to stand in front of"
echo '{"answers": {"mtu-get": {"reply": {"dwMtu": 1234}}, "mtu-set": {"silent": true}}}' >script
"$fake" script </dev/null >asked &
daemon=$!
until_socket
chmod 600 /tmp/api_daemon
before=$(stat -c %i /tmp/api_daemon)
rm lines # not the first part's
"$vimbractl" monitor --proxy --json --pcap messages >lines 2>errors &
watcher=$!
until_has lines '"watching"'
[ "$(stat -c %a /tmp/api_daemon)" = 600 ] || fail "the proxy's socket has another mode"
[ "$("$vimbractl" mtu show eth0 --json | jq .mtu)" = 1234 ] || fail "a request through the proxy"
"$vimbractl" mtu set eth0 1400 >/dev/null 2>&1 || true # closed without an answer
until_has lines mtu-set
kill $watcher
wait $watcher || fail "the proxy ended with $?"
[ "$(stat -c %i /tmp/api_daemon)" = "$before" ] || fail "the daemon's socket is not back"
[ "$(ls /tmp | grep -c 'api_daemon\.')" = 0 ] || fail "the proxy leaves a socket"
[ "$("$vimbractl" mtu show eth0 --json | jq .mtu)" = 1234 ] || fail "a request after the proxy"
jq -se 'any(.[]; (.name == "mtu-get") and (.reply.dwMtu == 1234))' lines >/dev/null || fail "the reply"
jq -se 'any(.[]; (.name == "mtu-set") and (.reply == null))' lines >/dev/null || fail "no reply"
python3 - messages <<'END' || fail "the capture"
import struct, sys
data = open(sys.argv[1], "rb").read()
assert struct.unpack("=IHHIIII", data[:24])[0::6] == (0xa1b2c3d4, 147)
at, seen = 24, []
while at < len(data):
    length = struct.unpack("=I", data[at + 8 : at + 12])[0]
    seen.append((data[at + 16], struct.unpack("=I", data[at + 17 : at + 21])[0], length))
    at += 16 + length
assert seen == [(0, 274, 29), (1, 274, 21), (0, 273, 33)], seen
END
"$BUILD/tools/protocol/vimbra-protocol" --lua >vimbra.lua
tshark -X lua_script:vimbra.lua -r messages -V >told 2>errors || { cat errors; fail "the capture is not read"; }
grep -q '^Vimbra request: mtu-set$' told && grep -q '^    achIfaceName: eth0$' told &&
    grep -q '^    dwMtu: 1234$' told || { cat told; fail "what the analyser shows of the capture"; }
kill $daemon
