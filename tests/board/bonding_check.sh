# Bonds: what the driver says of them, a cable that is cut, and what is left of them afterwards.
subject=bonding
. /board/lib.sh

make_other
cable eth1 far1
start_daemon
vimbractl link up eth0
vimbractl link up eth1
sleep 2

kernels() {
    cat "/sys/class/net/bond0/bonding/$1"
}
# What a member has and is when it is on its own.
state_of() {
    /bin/ip -o link show "$1" | sed 's/.*<\([^>]*\)>.*/\1/' | tr , '\n' | grep -x UP
    /bin/ip -o -6 addr show dev "$1" | awk '{ print $4 }'
}
before0=$(state_of eth0)
before1=$(state_of eth1)
as_before() {
    /bin/ip addr
    not test -e /sys/class/net/bond0 && same "$before0" "$(state_of eth0)" &&
        same "$before1" "$(state_of eth1)"
}
check 'an interface that is up has an address of its own' test "$(state_of eth0 | wc -l)" -eq 2

number=0
for mode in balance-rr active-backup balance-xor broadcast 802.3ad balance-tlb balance-alb; do
    check "$mode starts" vimbractl bond start "$mode" eth0 eth1
    check "$mode in the driver" says "^$mode $number$" kernels mode
    check "$mode has its members" says '^eth0 eth1$' kernels slaves
    check "$mode watches its members" says '^100$' kernels miimon
    check "$mode is up" says '[<,]UP[,>]' /bin/ip link show bond0
    check "$mode stops" vimbractl bond stop
    sleep 2
    check "$mode leaves its members as they were" as_before
    number=$((number + 1))
done

# The other host's end is a bond of its own, so that either cable will do.
other ip link set far0 down
other ip link set far1 down
other ip link add far type bond mode active-backup miimon 100
other ip link set far0 master far
other ip link set far1 master far
other ip link set far up
other ip addr add 192.0.2.1/24 dev far

check 'the active member is chosen' vimbractl bond start active-backup eth0 eth1 --active eth1
check 'the driver has it active' within 5 says '^eth1$' kernels active_slave
check 'a second start is refused' refused 4 vimbractl bond start active-backup eth0 eth1
check 'and leaves the bond' says '^eth0 eth1$' kernels slaves
check 'the bond gets an address' vimbractl addr set bond0 192.0.2.10/24
other sh -c 'echo far1 >/sys/class/net/far/bonding/active_slave'
check 'the other host answers' reaches 192.0.2.1
ping -n -i 0.2 -c 25 192.0.2.1 >/tmp/pings 2>&1 &
pinging=$!
sleep 2
# Both ends see the cable cut; each takes the other one.
other ip link set far1 down
wait "$pinging"
check 'a cable is cut' says '^eth0$' kernels active_slave
check 'no ping is lost' says ' 25 packets received' cat /tmp/pings
other ip link set far1 up
check 'the cable is back' within 10 says 'up' cat /sys/class/net/eth1/bonding_slave/mii_status

restart_daemon
check 'a killed daemon leaves the bond' says '^eth0 eth1$' kernels slaves
check 'its next life knows it' says 'bond0' vimbractl status
check 'and the other host still answers' reaches 192.0.2.1
check 'and undoes it' vimbractl bond stop
sleep 3
check 'the members are as they were' as_before
check 'a stop of none succeeds' vimbractl bond stop

check 'an unknown member is refused' refused 5 vimbractl bond start active-backup eth0 eth7
check 'the known one is as it was' as_before
# The driver takes no bridge's port and no loopback.
check 'a member that cannot be one is refused' refused 4 vimbractl bond start active-backup eth0 eth1 lo
sleep 3
check 'the others are as they were' as_before
/bin/ip link add other_bond type bond
/bin/ip link set eth1 down
/bin/ip link set eth1 master other_bond
check "another bond's member is refused" refused 4 vimbractl bond start active-backup eth0 eth1
sleep 3
check 'the free one is as it was' same "$before0" "$(state_of eth0)"
check 'and the other bond keeps its member' says '^eth1$' cat /sys/class/net/other_bond/bonding/slaves
/bin/ip link del other_bond

vimbractl link up eth1
vimbractl bond start active-backup eth0 eth1
check 'an end of the daemon' stop_daemon
sleep 3
check 'undoes its bond' as_before
