# What is watched: traffic, conflicts, router advertisements; and echo tests and traces.
subject=watch
. /board/lib.sh

# The first thing after a boot; nothing may wait for random numbers here.
start_daemon
before=$(cut -d . -f 1 /proc/uptime)
check 'the first ping after a boot' says '127.0.0.1' vimbractl ping 127.0.0.1 --count 1
check 'waits for nothing' test $(($(cut -d . -f 1 /proc/uptime) - before)) -le 4

make_other
other ip addr add 192.0.2.1/24 dev far0
other ip addr add 2001:db8::1/64 dev far0
other ip addr add 198.51.100.1/32 dev lo
other sh -c 'echo 1 >/proc/sys/net/ipv4/ip_forward'
# Behind it a third host.
/bin/ip netns add third
other ip link add far2 type veth peer name third0 netns third
other ip addr add 203.0.113.1/24 dev far2
other ip link set far2 up
/bin/ip netns exec third /bin/ip addr add 203.0.113.2/24 dev third0
/bin/ip netns exec third /bin/ip link set third0 up
/bin/ip netns exec third /bin/ip route add default via 203.0.113.1
other ip addr add 2001:db8:3::1/64 dev far2 nodad
/bin/ip netns exec third /bin/ip addr add 2001:db8:3::2/64 dev third0 nodad
/bin/ip netns exec third /bin/ip route add default via 2001:db8:3::1
other sh -c 'echo 1 >/proc/sys/net/ipv6/conf/all/forwarding'
vimbractl link up eth0
vimbractl addr set eth0 192.0.2.10/24 2001:db8::10/64
vimbractl gateway set eth0 192.0.2.1
vimbractl gateway set eth0 2001:db8::1
sleep 1

check 'ping' says '3 transmitted, 3 received|3 packets transmitted, 3 received' vimbractl ping 192.0.2.1 --count 3
check 'ping by IPv6' says '2001:db8::1' vimbractl ping 2001:db8::1 --count 2
echoes() {
    other cat /proc/net/snmp | awk '/^Icmp: [0-9]/ { print $10 }'
}
count=$(echoes)
vimbractl ping 192.0.2.1 --count 4 >/dev/null
check 'as many as the other host counts' same 4 "$(($(echoes) - count))"
echoes6() {
    other cat /proc/net/snmp6 | awk '$1 == "Icmp6InEchos" { print $2 }'
}
count=$(echoes6)
vimbractl ping 2001:db8::1 --count 4 >/dev/null
check 'by IPv6 too' same 4 "$(($(echoes6) - count))"
check 'nobody there' tells '"received":0' vimbractl ping 192.0.2.77 --count 2 --json
check 'a time to live that is too short' tells 'time to live exceeded' vimbractl ping 203.0.113.2 --count 1 --ttl 1
check 'a hop limit that is too short' tells 'time to live exceeded' vimbractl ping 2001:db8:3::2 --count 1 --ttl 1
check 'one that is not' says '1 received' vimbractl ping 2001:db8:3::2 --count 1 --ttl 2
check 'nobody there by IPv6' tells '"received":0' vimbractl ping 2001:db8::77 --count 2 --json
check 'no trace by IPv6: the library has none' refused 2 vimbractl traceroute 2001:db8:3::2
check 'trace' says '203.0.113.2' vimbractl traceroute 203.0.113.2
vimbractl traceroute 203.0.113.2 >/tmp/trace 2>&1
check 'the router comes before it' same '192.0.2.1 203.0.113.2' \
    "$(sed 1d /tmp/trace | grep -oE '192\.0\.2\.1|203\.0\.113\.2' | uniq | xargs)"

watch /tmp/stat vimbractl stat watch --json --interval 2 --count 3
sleep 1
vimbractl ping 192.0.2.1 --count 3 >/dev/null
sleep 5
bytes=$(cat /sys/class/net/eth0/statistics/rx_bytes)
check 'traffic is told' says 'eth0' cat /tmp/stat
check 'with the kernel'"'"'s counters' says "$bytes" cat /tmp/stat
watched 2>/dev/null

watch /tmp/conflicts vimbractl conflict watch --json
sleep 3
check 'no conflict, nothing told' not test -s /tmp/conflicts
other ip addr add 192.0.2.10/24 dev far0
far=$(other cat /sys/class/net/far0/address)
check 'a conflict is told' within 40 says "192.0.2.10.*$far" cat /tmp/conflicts
other ip addr del 192.0.2.10/24 dev far0
other ip -6 addr add 2001:db8::10/64 dev far0 nodad
check 'an IPv6 conflict is told' within 40 says '2001:db8::10' cat /tmp/conflicts
other ip -6 addr del 2001:db8::10/64 dev far0
restart_daemon
: >/tmp/conflicts
other ip addr add 192.0.2.10/24 dev far0
check "a killed daemon's next life watches on" within 40 says '192.0.2.10' cat /tmp/conflicts
other ip addr del 192.0.2.10/24 dev far0
watched

cat >/tmp/radvd.conf <<'END'
interface far0 {
    AdvSendAdvert on;
    MinRtrAdvInterval 3;
    MaxRtrAdvInterval 4;
    prefix 2001:db8:77::/64 { AdvOnLink on; AdvAutonomous on; };
};
END
watch /tmp/advertised vimbractl ra watch eth0 --json
sleep 1
other radvd -n -C /tmp/radvd.conf -p /tmp/radvd.pid -m stderr >/tmp/radvd.log 2>&1 &
check 'an advertisement is told' within 30 says '2001:db8:77:' cat /tmp/advertised
made=$(/bin/ip -o -6 addr show dev eth0 | sed -n 's/.* \(2001:db8:77:[^/]*\).*/\1/p')
check "with the kernel's address" says "${made:-none}" cat /tmp/advertised
kill "$(cat /tmp/radvd.pid)"
watched
check 'an end' stop_daemon
