# Interfaces, addresses, MTU and MAC address, beside what ip says.
subject=addresses
. /board/lib.sh

make_other
other ip addr add 192.0.2.1/24 dev far0
other ip addr add 2001:db8::1/64 dev far0
start_daemon

ours() {
    vimbractl addr show eth0 "$@" | sed -n 's/^ *\(ipv[46]\) *\([0-9a-f.:]*\/[0-9]*\).*/\1 \2/p'
}
kernels() {
    /bin/ip -o addr show dev eth0 | sed -n 's/.* inet\(6*\) \([^ ]*\) .*/ipv\1 \2/p' |
        sed 's/^ipv /ipv4 /'
}
same_addresses() {
    vimbractl addr show eth0
    same "$(ours)" "$(kernels)"
}

check 'interface up' vimbractl link up eth0
check 'the kernel has it up' says '[<,]UP[,>]' /bin/ip link show eth0
check 'link state' says 'eth0.*up' vimbractl link show eth0
check 'interface down' vimbractl link down eth0
check 'the kernel has it down' silent '[<,]UP[,>]' /bin/ip link show eth0
check 'up again' vimbractl link up eth0
check 'addresses set' vimbractl addr set eth0 192.0.2.10/24 2001:db8::10/64
check 'the same addresses in the kernel' same_addresses
check 'the other host answers' reaches 192.0.2.1
check 'and by IPv6' reaches 2001:db8::1
check 'address added' vimbractl addr add eth0 192.0.2.11/24
check 'added in the kernel' same_addresses
check 'one that is there is refused' refused 4 vimbractl addr add eth0 192.0.2.11/24
check 'a multicast one is refused' refused 2 vimbractl addr add eth0 224.0.0.1/24
check 'address deleted' vimbractl addr del eth0 192.0.2.11/24
check 'deleted in the kernel' same_addresses
check 'no such interface' refused 5 vimbractl addr add eth7 192.0.2.12/24
restart_daemon
check 'a killed daemon leaves the addresses' same_addresses
check 'and its next life adds one' vimbractl addr add eth0 192.0.2.12/24
check 'in the kernel too' same_addresses
check 'addresses flushed' vimbractl addr flush eth0
check 'none in the kernel' silent 'inet 192' /bin/ip addr show eth0

check 'MTU set' vimbractl mtu set eth0 1400
check 'MTU in the kernel' says 'mtu 1400' /bin/ip link show eth0
check 'MTU told' says 1400 vimbractl mtu show eth0
check 'MTU too small' refused 2 vimbractl mtu set eth0 499
check 'MAC address set' vimbractl mac set eth0 02:00:00:00:00:10
check 'MAC address in the kernel' says 'ether 02:00:00:00:00:10' /bin/ip link show eth0
check 'MAC address told' says '02:00:00:00:00:10' vimbractl mac show eth0
check 'same subnet' vimbractl check same-net 192.0.2.10/24 192.0.2.1
check 'version' vimbractl version

vimbractl addr set eth0 192.0.2.10/24
check 'an end puts back what was before' stop_daemon
check 'its address is gone' silent 192.0.2.10 /bin/ip addr show eth0
