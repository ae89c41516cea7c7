# DHCP both ways, DNS, NTP, accounts, inetd's services and the web server, each against another
# program: udhcpd, dnsmasq, udhcpc, nslookup, chronyd, busybox's login, telnetd and wget.
subject=services
. /board/lib.sh

make_other
other ip addr add 192.0.2.1/24 dev far0
start_daemon
vimbractl link up eth0

# ---- DHCP client
cat >/tmp/udhcpd.conf <<'END'
start 192.0.2.50
end 192.0.2.50
interface far0
lease_file /tmp/far.leases
opt subnet 255.255.255.0
opt router 192.0.2.1
opt dns 192.0.2.53
opt lease 3600
END
: >/tmp/far.leases
/bin/ip netns exec other udhcpd -f /tmp/udhcpd.conf >/tmp/udhcpd.log 2>&1 &
server=$!
: >/tmp/lease
watch /tmp/lease vimbractl --json dhcp start eth0 --watch
check 'a lease is told' within 20 says '192.0.2.50' cat /tmp/lease
check "the address is the kernel's" says 'inet 192.0.2.50/24' /bin/ip addr show eth0
check 'the gateway too' says '^default via 192.0.2.1 dev eth0' /bin/ip route
check 'and the DNS server' says '^nameserver 192.0.2.53' cat /etc/resolv.conf
check 'the lease as the daemon knows it' says '192.0.2.50' vimbractl dhcp lease eth0
check 'the client runs' says 'udhcpc' ps
restart_daemon
check 'a killed daemon leaves the address' says 'inet 192.0.2.50/24' /bin/ip addr show eth0
: >/tmp/lease
check 'its next life confirms the lease' within 30 says '192.0.2.50' cat /tmp/lease
watched
check 'the client stops' vimbractl dhcp stop eth0
kill "$server"
check 'the address is gone' silent 192.0.2.50 /bin/ip addr show eth0
check 'and the gateway' silent default /bin/ip route

# ---- DHCP client by IPv6: the advertisements send whoever wants an address to the server.
other ip addr add 2001:db8::1/64 dev far0
/bin/ip netns exec other dnsmasq --no-daemon --conf-file=/dev/null --port=0 --user=root --pid-file= \
    --dhcp-leasefile=/tmp/far6.leases --log-dhcp --interface=far0 --enable-ra \
    --dhcp-range=2001:db8::100,2001:db8::100,64,120 \
    --dhcp-option=option6:dns-server,[2001:db8::53] >/tmp/dnsmasq.log 2>&1 &
server=$!
: >/tmp/lease
watch /tmp/lease vimbractl --json dhcp start eth0 -6 --watch
check 'IPv6: a lease is told' within 30 says '2001:db8::100' cat /tmp/lease
check "IPv6: the address is the kernel's" says 'inet6 2001:db8::100/' /bin/ip addr show eth0
check "IPv6: and in the server's list" says ' 2001:db8::100 ' cat /tmp/far6.leases
check 'IPv6: the DNS server too' says '^nameserver 2001:db8::53' cat /etc/resolv.conf
check 'IPv6: the server answers' reaches 2001:db8::1
check 'IPv6: the router that advertised is the gateway' within 10 \
    says '^default via fe80:.* dev eth0 proto ra' /bin/ip -6 route
check 'IPv6: and told' says 'fe80:' vimbractl gateway show eth0 -6
check 'IPv6: the lease as the daemon knows it' says '2001:db8::100' vimbractl dhcp lease eth0 -6
asked() {
    grep -cE 'DHCP(REQUEST|RENEW|CONFIRM|REBIND)\(far0\)' /tmp/dnsmasq.log
}
asked_more() {
    [ "$(asked)" -gt "$before" ]
}
before=$(asked)
check 'IPv6: a renewal' vimbractl dhcp renew eth0 -6
check 'IPv6: asks the server' within 20 asked_more
check 'IPv6: and leaves the address' says 'inet6 2001:db8::100/' /bin/ip addr show eth0
restart_daemon
check 'IPv6: a killed daemon leaves the address' says 'inet6 2001:db8::100/' /bin/ip addr show eth0
: >/tmp/lease
check 'IPv6: its next life confirms the lease' within 30 says '2001:db8::100' cat /tmp/lease
watched
check 'IPv6: the client stops' vimbractl dhcp stop eth0 -6
check 'IPv6: the address is gone' within 15 silent '2001:db8::100' /bin/ip addr show eth0
check 'IPv6: and the server has it back' within 10 silent '2001:db8::100' cat /tmp/far6.leases
check 'IPv6: and the DNS server' silent '2001:db8::53' cat /etc/resolv.conf
kill "$server"

# ---- DHCP server
vimbractl addr set eth0 192.0.2.10/24
other ip addr flush dev far0
check 'the server starts' vimbractl dhcp-server start eth0 192.0.2.100/24 192.0.2.100 --router 192.0.2.10 --dns 192.0.2.54
cat >/tmp/bound <<'END'
#!/bin/sh
[ "$1" = bound ] && /bin/ip addr add "$ip/$mask" dev "$interface" && echo "$ip $router $dns" >/tmp/got
exit 0
END
chmod +x /tmp/bound
other udhcpc -f -q -n -i far0 -s /tmp/bound >/tmp/udhcpc.log 2>&1
check 'another host gets a lease' says '^192.0.2.100 192.0.2.10 192.0.2.54$' cat /tmp/got
check 'its address answers' reaches 192.0.2.100
check 'the state' says 'run|on|yes' vimbractl dhcp-server state eth0
restart_daemon
rm -f /tmp/got
other ip addr flush dev far0
other udhcpc -f -q -n -i far0 -s /tmp/bound >/tmp/udhcpc.log 2>&1
check "a killed daemon's next life serves on" says '^192.0.2.100' cat /tmp/got
check 'the server stops' vimbractl dhcp-server stop eth0
check 'no server is left' silent udhcpd ps

# ---- DNS
check 'DNS servers set' vimbractl dns set eth0 192.0.2.53 192.0.2.54
check 'in the resolver configuration' same "$(printf 'nameserver 192.0.2.53\nnameserver 192.0.2.54')" \
    "$(grep ^nameserver /etc/resolv.conf)"
check 'told' says '192.0.2.54' vimbractl dns show
check 'taken away' vimbractl dns set eth0
check 'gone' silent '192.0.2.53' cat /etc/resolv.conf

other ip addr add 2001:db8::1/64 dev far0
vimbractl addr add eth0 2001:db8::10/64
/bin/ip netns exec other dnsmasq --no-daemon --conf-file=/dev/null --no-resolv --no-hosts --user=root --pid-file= \
    --address=/board.example/192.0.2.99 >/tmp/dnsmasq.log 2>&1 &
server=$!
check 'IPv6 servers set' vimbractl dns set eth0 2001:db8::1 2001:db8::54
check 'IPv6 servers in the resolver configuration' same \
    "$(printf 'nameserver 2001:db8::1\nnameserver 2001:db8::54')" "$(grep ^nameserver /etc/resolv.conf)"
check 'IPv6 servers told' says '2001:db8::54' vimbractl dns show
check 'a name is asked of the first' says '192.0.2.99' nslookup -type=a board.example
check 'IPv4 ones leave them' vimbractl dns set eth0 192.0.2.53
check 'both in the resolver configuration' same \
    "$(printf 'nameserver 192.0.2.53\nnameserver 2001:db8::1\nnameserver 2001:db8::54')" \
    "$(grep ^nameserver /etc/resolv.conf)"
restart_daemon
check 'a killed daemon leaves both' says '2001:db8::54' cat /etc/resolv.conf
check 'its next life takes the IPv4 one away' vimbractl dns set eth0
check 'and leaves the others' same "$(printf 'nameserver 2001:db8::1\nnameserver 2001:db8::54')" \
    "$(grep ^nameserver /etc/resolv.conf)"
kill "$server"

# ---- NTP
printf 'local stratum 3\nallow all\ncmdport 0\npidfile /tmp/chronyd.pid\n' >/tmp/chrony.conf
/bin/ip netns exec other chronyd -d -x -U -u root -f /tmp/chrony.conf >/tmp/chronyd.log 2>&1 &
server=$!
other ip addr flush dev far0
other ip addr add 192.0.2.1/24 dev far0
other ip addr add 2001:db8::1/64 dev far0
sleep 5
check 'a time server answers' vimbractl ntp check 192.0.2.1
check 'one that is none does not' refused 4 vimbractl ntp check 192.0.2.99
: >/tmp/ntp
watch /tmp/ntp vimbractl --json ntp start 192.0.2.1 --interval 16 --watch
check 'the offset is told' within 30 says offset cat /tmp/ntp
restart_daemon
: >/tmp/ntp
check "a killed daemon's next life asks on" within 60 says offset cat /tmp/ntp
watched
check 'a time server answers by IPv6' vimbractl ntp check 2001:db8::1
check 'one that is none does not by IPv6' refused 4 vimbractl ntp check 2001:db8::99
: >/tmp/ntp
watch /tmp/ntp vimbractl --json ntp start 2001:db8::1 --interval 16 --watch
check 'the offset is told by IPv6' within 30 says offset cat /tmp/ntp
check 'as an IPv6 client of the daemon' says '2001:db8::1' vimbractl status
watched
kill "$server"

# ---- Accounts and inetd's services: a login from the other host, with a password.
for each in telnetd login; do
    ln -s busybox "/usr/bin/$each"
done
ln -s ../bin/busybox /usr/sbin/telnetd
echo '# of the board' >/etc/inetd.conf
inetd -i /etc/inetd.conf >/tmp/inetd.log 2>&1 &
sleep 1
printf 'first word\n' | vimbractl user add tester
check 'an account' says '^tester:' cat /etc/passwd
check 'telnetd is switched on' vimbractl service start telnetd
check "in inetd's configuration" says '^telnet.*telnetd' cat /etc/inetd.conf
sleep 1
# log_in PASSWORD: what a terminal at the other host shows.
log_in() {
    { sleep 2; printf 'tester\r\n'; sleep 2; printf '%s\r\n' "$1"; sleep 3; printf 'echo in-$((40 + 2))\r\n'
      sleep 2; } | other nc 192.0.2.10 23 | tr -d '\r'
}
check 'a login with its password' says '^in-42' log_in 'first word'
check 'a wrong one is no login' silent '^in-42' log_in 'other word'
check 'the password is changed' sh -c 'printf "second word\n" | vimbractl user passwd tester'
check 'a login with the new one' says '^in-42' log_in 'second word'
check 'the old one is no login' silent '^in-42' log_in 'first word'
check 'the account is deleted' vimbractl user delete tester
check 'no account is left' silent '^tester:' cat /etc/passwd
check 'telnetd is switched off' vimbractl service stop telnetd
check "gone from inetd's configuration" silent '^telnet' cat /etc/inetd.conf

# ---- Web server
mkdir -p /tmp/web
echo 'this is the board' >/tmp/web/index.html
stop_daemon
start_daemon --web-root=/tmp/web
vimbractl addr set eth0 192.0.2.10/24
check 'the web server starts' vimbractl web start
fetch() {
    other wget -q -O - "http://192.0.2.10:$1/"
}
check 'a page for the other host' says '^this is the board' fetch 80
check 'another port' vimbractl web start 8080
check 'the page is there' says '^this is the board' fetch 8080
check 'and not where it was' not fetch 80
restart_daemon
check "a killed daemon's next life serves on" within 10 says '^this is the board' fetch 8080
check 'the web server stops' vimbractl web stop
check 'nobody serves' not fetch 8080
check 'an end' stop_daemon
