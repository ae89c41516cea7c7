#!/usr/bin/env bash
# Every example does what it says, with a daemon by a script.
source "$(dirname "$0")/common.sh"

if [ -z "${INSIDE:-}" ]; then
    INSIDE=1 exec "$BUILD/bin/vimbra-sandbox" --keep "$SOURCE" --keep "$BUILD" -- "$0"
fi
examples=$BUILD/examples
fake=$BUILD/tools/testkit/vimbra-fake
cd "$work"

# with SCRIPT: from here on the daemon is played by it; what it was asked is in ./asked.
with() {
    stop
    echo "$1" >script
    mkfifo told
    "$fake" script <told >asked 2>errors &
    daemon=$!
    exec 9>told # the daemon's standard input stays open
    rm told
    until [ -S /tmp/api_daemon ]; do
        kill -0 $daemon 2>/dev/null || { cat errors; fail "vimbra-fake has ended"; }
        sleep 0.02
    done
}
stop() {
    [ -n "${daemon:-}" ] || return 0
    exec 9>&-
    kill $daemon
    wait $daemon || fail "vimbra-fake ended with $?"
    [ ! -e /tmp/api_daemon ] || fail "vimbra-fake leaves its socket"
    daemon=
}
# says STATUS TEXT COMMAND...: the command ends so and prints just this.
says() {
    local wanted=$1 text=$2 got=0
    shift 2
    "$@" >out 2>err || got=$?
    [ "$got" = "$wanted" ] && [ "$(cat out err)" = "$text" ] || {
        cat out err errors
        fail "$* ended with $got"
    }
}
asked() { jq -r .request asked | tr '\n' ' '; }

with '{"answers": {
    "address-get": {"reply": {"tIpcAllIp": {"atNetIfaceIp": [{"tIpAddr": "192.0.2.10", "dwPrefix": 24}]}}},
    "gateway-get": {"reply": {"tIpaddr": "192.0.2.1"}}}}'
says 0 "eth0 has 192.0.2.10/24, gateway 192.0.2.1" "$examples/configure" eth0 192.0.2.10/24 192.0.2.1
[ "$(asked)" = "address-set gateway-set address-get gateway-get " ] || fail "asked: $(asked)"
says 1 "the gateway is not there: success" "$examples/configure" eth0 192.0.2.10/24 192.0.2.2
with '{"default": {"code": 19}}'
says 1 "address: general failure; the daemon refused: No such device" \
    "$examples/configure" eth0 192.0.2.10/24 192.0.2.1
stop
says 1 "address: general failure; ApicIpaddrSet: No such file or directory" \
    "$examples/configure" eth0 192.0.2.10/24 192.0.2.1

with '{"answers": {"dhcp-client-start": {"then": [{"notify": "lease", "socket": "ipc_dhcpc_eth0",
    "body": {"achDevName": "eth0", "tIpAddrs": "192.0.2.7", "dwLeaseTime": 600}}]}}}'
says 0 "eth0: 192.0.2.7 for 600 seconds" "$examples/dhcp_client" eth0
[ "$(asked)" = "dhcp-client-start dhcp-client-stop " ] || fail "asked: $(asked)"
with '{"answers": {"dhcp-client-start": {"then": [{"notify": "lease-failed",
    "socket": "ipc_dhcpc_eth0", "body": {"achDevName": "eth0"}}]}}}'
says 1 "eth0: no lease" "$examples/dhcp_client" eth0

with '{"answers": {"ping-start": {"then": [
    {"notify": "echo", "body": {"nUserID": 1, "seq": 1, "time": 250, "ttl": 64}},
    {"notify": "echo", "type": 1, "body": {"nUserID": 1, "seq": 2}},
    {"notify": "echo", "body": {"nUserID": 1, "seq": 3, "time": 300, "ttl": 64, "over_flag": 1}}]}}}'
says 0 "1: 250 us, ttl 64
2: no answer (1)
3: 300 us, ttl 64
2 of 3" "$examples/ping" 192.0.2.1

with '{"answers": {"conflict-start": {"then": [{"notify": "conflict", "socket": "ipc_ip_conflict",
    "body": {"achIfcName": "eth0", "tIpAddr": "192.0.2.7", "mac": "02:00:5e:00:53:01"}}]}}}'
says 0 "address 192.0.2.7 is used by 02:00:5e:00:53:01" "$examples/conflict_watch"

with '{"answers": {"pppoe-start": {"then": [{"notify": "link-up", "socket": "ipc_pppoe",
    "body": {"tOurIpaddr": "198.51.100.7", "tPeerIpAddr": "198.51.100.1"}}]}}}'
echo sesame >password
says 0 "up: 198.51.100.7, peer 198.51.100.1
over" "$examples/pppoe_dial" eth0 me <password
grep -q '"username":"me"' asked && grep -q '"password":"\*\*\*"' asked || fail "what was dialled"
! grep -q sesame asked || fail "vimbra-fake shows a password"

with '{"answers": {
    "interface-report": {"reply": {"ipaddr_show_info": {"mac": "02:00:5e:00:53:01",
        "ipaddr_param_all": {"ipaddr_param": [{"ipaddr": "192.0.2.10", "ipmask": 24}]}}}},
    "mtu-get": {"reply": {"dwMtu": 1400}}}}'
says 0 "eth0: 192.0.2.10, MTU 1400" "$examples/legacy"

with '{"answers": {"advertisement-start": {"then": [{"notify": "advertisement", "body":
    {"achIfaceName": "eth0", "tNetIfaceAllIp": {"atNetIfaceIp": [{"tIpAddr": "2001:db8::7", "dwPrefix": 64}]}}}]}}}'
says 0 "2001:db8::7/64" "$examples/watch" eth0
with '{"answers": {"advertisement-start": {"code": 19}}}'
says 1 "watch: no watch of eth0" "$examples/watch" eth0

with '{}'
says 0 "done" "$examples/failures" eth0 1400
[ "$(jq -c .body asked)" = '{"achIfaceName":"eth0","dwMtu":1400}' ] || fail "what was asked"
says 2 "a wrong argument" "$examples/failures" a-name-that-is-too-long 1400
with '{"default": {"code": 22}}'
says 1 "refused: Invalid argument" "$examples/failures" eth0 1400
stop
says 1 "try 1: No such file or directory
try 2: No such file or directory
try 3: No such file or directory" "$examples/failures" eth0 1400

says 0 '{"request":"dhcp-client-start","type":1281,"body":{"wSinFamily":2,"achIfaceName":"eth0"}}
{"request":"dhcp-client-start","type":1281,"body":{"wSinFamily":2,"achIfaceName":"eth0"}}
{"request":"dhcp-client-stop","type":1282,"body":{"wSinFamily":2,"achIfaceName":"eth0"}}' \
    "$examples/lease_test"

# A notification from outside, while the daemon runs.
with '{}'
"$examples/conflict_watch" >out &
until [ -s asked ]; do sleep 0.02; done
echo '{"notify": "conflict", "socket": "ipc_ip_conflict", "type": 2, "body": {"tIpAddr": "192.0.2.9"}}' >&9
wait $! || fail "the watch ended with $?"
grep -q '^MAC address of 192.0.2.9 is used by 00:00:00:00:00:00$' out || fail "what the watch said"
stop

# Scripts that are none.
wrong() {
    echo "$2" >script
    says 2 "vimbra-fake: $1" "$fake" --check script
}
wrong 'there is no request "mtu-got"' '{"answers": {"mtu-got": {}}}'
wrong 'mtu-get: TIpcMtu has no mtu' '{"answers": {"mtu-get": {"reply": {"mtu": 1}}}}'
wrong 'priority-get: its reply has no code' '{"answers": {"priority-get": {"code": 1}}}'
wrong 'mtu-get: an answer has no "replies"' '{"answers": {"mtu-get": {"replies": {}}}}'
wrong 'ping-start: there is no notification "ecco"' '{"answers": {"ping-start": {"then": [{"notify": "ecco"}]}}}'
wrong 'ping-start: "echo" has no type 4' '{"answers": {"ping-start": {"then": [{"notify": "echo", "type": 4}]}}}'
wrong 'dhcp-client-start: "lease" needs its socket, such as ipc_dhcpc_eth0' \
    '{"answers": {"dhcp-client-start": {"then": [{"notify": "lease"}]}}}'
wrong 'the script has no "answer"' '{"answer": {}}'
says 0 "" "$fake" --check <(echo '{"answers": {} /* a comment */}')
