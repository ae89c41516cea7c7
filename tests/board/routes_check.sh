# Routes, gateways, tables, rules and the network priority, beside what ip says.
subject=routes
. /board/lib.sh

make_other
cable eth1 far1
for each in 192.0.2.1/24 192.0.2.2/24 2001:db8::1/64; do
    other ip addr add "$each" dev far0
done
other ip addr add 198.18.0.1/24 dev far1
other ip addr add 198.51.100.1/32 dev lo
other ip addr add 2001:db8:1::1/128 dev lo
start_daemon
vimbractl link up eth0
vimbractl link up eth1
vimbractl addr set eth0 192.0.2.10/24 2001:db8::10/64
vimbractl addr set eth1 198.18.0.10/24

# The whole route as ip shows it.
kernel() {
    /bin/ip "$@"
}
first_default() {
    /bin/ip route get 203.0.113.1 | sed -n 's/.* dev \([^ ]*\) .*/\1/p'
}

check 'nothing leads there yet' not ping -c 1 -W 1 198.51.100.1
check 'route added' vimbractl route add 198.51.100.0/24 --via 192.0.2.1 --interface eth0
check 'in the kernel' says '^198.51.100.0/24 via 192.0.2.1 dev eth0' kernel route
check 'told' says '198.51.100.0/24.*192.0.2.1.*eth0' vimbractl route show
check 'it leads there' reaches 198.51.100.1
check 'metric changed' vimbractl route metric 198.51.100.0/24 20 --interface eth0
check 'the metric in the kernel' says '^198.51.100.0/24 .*metric 20' kernel route
check 'one that is there is refused' refused 4 vimbractl route add 198.51.100.0/24 --via 192.0.2.1 --metric 20
check 'an unreachable gateway is refused' refused 4 vimbractl route add 198.51.100.0/24 --via 10.9.9.9
check 'IPv6 route added' vimbractl route add 2001:db8:1::/48 --via 2001:db8::1
check 'IPv6 in the kernel' says '^2001:db8:1::/48 via 2001:db8::1 dev eth0' kernel -6 route
check 'IPv6: it leads there' reaches 2001:db8:1::1
restart_daemon
check 'a killed daemon leaves the routes' says '^198.51.100.0/24 .*metric 20' kernel route
check 'its next life deletes one' vimbractl route del 198.51.100.0/24 --metric 20
check 'gone in the kernel' silent 198.51.100 kernel route
check 'one that is not there is refused' refused 4 vimbractl route del 198.51.100.0/24
check 'IPv6 route deleted' vimbractl route del 2001:db8:1::/48
check 'IPv6 gone' silent 'db8:1:' kernel -6 route

check 'gateway set' vimbractl gateway set eth0 192.0.2.1
check 'in the kernel: gateway' says '^default via 192.0.2.1 dev eth0' kernel route
check 'gateway told' says 192.0.2.1 vimbractl gateway show eth0
check 'another one takes its place' vimbractl gateway set eth0 192.0.2.2
check 'one in the kernel' same 'default via 192.0.2.2 dev eth0' \
    "$(/bin/ip route show default | sed 's/ *$//; s/ proto.*//')"
check 'IPv6 gateway' vimbractl gateway set eth0 2001:db8::1
check 'IPv6 in the kernel: gateway' says '^default via 2001:db8::1 dev eth0' kernel -6 route
check 'a second interface' vimbractl gateway set eth1 198.18.0.1
check 'first come, first served' same eth0 "$(first_default)"
check 'priority set' vimbractl priority set eth1=1 eth0=2
check 'the order is the kernel'"'"'s' same eth1 "$(first_default)"
check 'priority told' says 'eth1' vimbractl priority show
restart_daemon
check 'a killed daemon leaves the order' same eth1 "$(first_default)"
check 'its next life knows it' says 'eth1' vimbractl priority show
check 'empty priority list' vimbractl priority set
check 'first come, first served again' same eth0 "$(first_default)"
check 'gateway deleted' vimbractl gateway del eth0
check 'the other one is left' same eth1 "$(first_default)"
vimbractl gateway set eth0 192.0.2.1
check 'first come is another one now' same eth1 "$(first_default)"

check 'table made' vimbractl table add 100
check 'a second time is refused' refused 4 vimbractl table add 100
check 'gateway of a table' vimbractl gateway set eth0 192.0.2.2 --table 100
check 'in that table' says '^default via 192.0.2.2 dev eth0' kernel route show table 100
check 'route of a table' vimbractl route add 203.0.113.0/24 --via 192.0.2.1 --table 100
check 'in that table: route' says '^203.0.113.0/24 via 192.0.2.1' kernel route show table 100
check 'table told' says '203.0.113.0/24' vimbractl table show 100
check 'rule added' vimbractl rule add --from 192.0.2.10/32 --table 100 --priority 1000
check 'rule in the kernel' says '^1000:.from 192.0.2.10 lookup 100' kernel rule
check 'rule of a mark' vimbractl rule add --fwmark 7 --table 100 --priority 1001
check 'mark in the kernel' says '^1001:.from all fwmark 0x7 lookup 100' kernel rule
check 'rules told' says 1001 vimbractl rule show
check 'a packet goes that way' says 'via 192.0.2.1' kernel route get 203.0.113.1 from 192.0.2.10
restart_daemon
check 'a killed daemon leaves the rules' says '^1000:' kernel rule
check 'rule deleted' vimbractl rule del --from 192.0.2.10/32 --table 100 --priority 1000
check 'rule of a mark deleted' vimbractl rule del --fwmark 7 --table 100 --priority 1001
check 'none in the kernel' silent '^100[01]:' kernel rule
check 'table removed' vimbractl table del 100
check 'its routes are gone' silent . kernel route show table 100
check 'a table that is none' refused 4 vimbractl table del 100

check 'an end' stop_daemon
check 'takes its gateways away' silent default kernel route
check 'and its addresses' silent 192.0.2.10 kernel addr
