# PPPoE: pppd here, an access concentrator on the second host.
subject=pppoe
. /board/lib.sh

make_other
mkdir -p /etc/ppp /etc/server
: >/etc/ppp/options
printf '"good" * "right secret" *\n' >/etc/ppp/pap-secrets
chmod 600 /etc/ppp/pap-secrets
cp /etc/ppp/pap-secrets /etc/ppp/chap-secrets

# serve NAME OPTION...: a concentrator that asks for proof in the way of these options of pppd.
serve() {
    printf '%s\n' "$@" nodetach 'ms-dns 192.0.2.53' 'ms-dns 192.0.2.54' lcp-echo-interval 0 \
        ipcp-accept-remote >/etc/server/options
    /bin/ip netns exec other pppoe-server -F -I far0 -L 10.64.0.1 -R 10.64.0.100 -N 4 -O /etc/server/options \
        >>/tmp/server.log 2>&1 </dev/null &
    server=$!
    sleep 1
}
# With its links, which it would hang up one by one: it is gone as if its power was cut.
cut_server() {
    kill -KILL "$server" 2>/dev/null
    for each in $(server_links); do
        kill -KILL "$each"
    done
    killall -KILL pppoe
    wait "$server" 2>/dev/null
}
server_links() {
    ps -o pid,args | awk '$2 == "pppd" && $3 == "pty" { print $1 }'
}
# The daemon's.
our_links() {
    ps -o pid,args | awk '$2 == "pppd" && $3 == "file" { print $1 }'
}
end_server() {
    kill "$server"
    wait "$server" 2>/dev/null
    sleep 2
}

# dial OPTION...: with the password in `secret`; what is told goes to /tmp/events.
secret='right secret'
dial() {
    printf '%s\n' "$secret" >/tmp/secret
    : >/tmp/events
    vimbractl --json pppoe start eth0 --user good --watch "$@" >>/tmp/events 2>&1 </tmp/secret &
    watcher=$!
}
told() {
    within "$1" says "$2" cat /tmp/events
}
hang_up() {
    kill "$watcher" 2>/dev/null
    wait "$watcher"
}
no_pppd() {
    [ -z "$(our_links)" ]
}
told_are() {
    same "$1" "$(events)"
}
events() {
    sed -n 's/.*"event": *"\([^"]*\)".*/\1/p' /tmp/events | tr '\n' ' '
}

start_daemon
vimbractl link up eth0

for way in pap chap mschap-v2; do
    serve "require-$way"
    dial
    check "$way: the link comes up" told 20 '"connected"'
    check "$way: the address told is the kernel's" same \
        "$(sed -n 's/.*"address": *"\([0-9.]*\)".*/\1/p' /tmp/events)" \
        "$(/bin/ip -o -4 addr show dev ppp0 | awk '{ print $4 }')"
    check "$way: the peer told is the server's" says '"peer": *"10.64.0.1"' cat /tmp/events
    check "$way: DNS servers are told" says '192.0.2.53.*192.0.2.54' cat /tmp/events
    check "$way: the peer answers" reaches 10.64.0.1
    check "$way: no default route" silent default /bin/ip route
    check "$way: it hangs up" hang_up
    check "$way: no link is left" silent ppp0 /bin/ip link
    check "$way: no pppd is left" within 10 no_pppd

    secret='wrong secret'
    dial
    check "$way: a wrong password is told as one" told 30 '"refused"'
    check "$way: and is the end without redialling" told 10 '"stopped"'
    hang_up
    dial --auto-dial 2 --retries 3
    check "$way: three wrong ones are the end" told 60 '"stopped"'
    check "$way: each is told" same 'refused refused refused stopped ' "$(events)"
    hang_up
    secret='right secret'
    end_server
done

# Its hang-up comes before our pppd has ended by itself.
serve require-chap 'chap-interval 0' 'silent'
secret='wrong secret'
dial --auto-dial 1
told 30 '"refused"' >/dev/null
cut_server
check 'a server that is cut off: nobody answers' told 60 '"no-link"'
hang_up
secret='right secret'

dial
check 'nobody answers' told 60 '"no-link"'
check 'and that is all' told 10 '"stopped"'
hang_up

serve require-chap
dial --auto-dial 2
check 'a link' told 20 '"connected"'
kill $(server_links)
check 'the server hangs up' told 20 '"lost"'
again() {
    says '^connected lost (no-link )*connected $' events
}
check 'it is dialled again' within 30 again
hang_up

dial --auto-dial 2 --echo-interval 2 --echo-failures 2
check 'a link with echo' told 20 '"connected"'
other ip link set far0 down
check 'a cut cable is noticed' told 30 '"lost"'
check 'and nobody answers' told 60 '"no-link"'
other ip link set far0 up
check 'the cable is back: up again' within 90 again
check 'the peer answers again' reaches 10.64.0.1

restart_daemon
check 'a killed daemon: the link is lost' told 20 'connected.*lost|"lost"'
check 'and its next life dials again' within 60 says 'inet 10.64.0.1' /bin/ip addr show dev ppp0
check 'the peer answers' within 10 reaches 10.64.0.1
check 'the daemon knows the link' says ppp vimbractl status
hang_up
check 'a stop ends it' within 20 no_pppd

dial --default-route
check 'a link as default route' told 20 '"connected"'
check 'the kernel has it' within 5 says '^default dev ppp0' /bin/ip route
hang_up
check 'it went with the link' silent default /bin/ip route
vimbractl addr set eth0 192.0.2.10/24
vimbractl gateway set eth0 192.0.2.1
dial --default-route
check 'with a gateway there' told 20 '"connected"'
check 'the gateway stays the default' says '^default via 192.0.2.1 dev eth0' /bin/ip route
hang_up
check 'and is there afterwards' says '^default via 192.0.2.1 dev eth0' /bin/ip route
vimbractl gateway del eth0

# With --keep a link outlives an end of its daemon, in the kernel as it was: the same pppd, which the next
# daemon takes up. One that is killed has not said so, and takes its links along.
link() {
    our_links
    /bin/ip -o addr show dev ppp0 | awk '{ print $3, $4, $6 }'
    /bin/ip route show dev ppp0
}
lives_on() {
    same "$before" "$(link)" && reaches 10.64.0.1
}
keepers() {
    grep -l link-keeper /proc/[0-9]*/comm
}
files_of_links() {
    find /run/vimbrad -name 'files.*'
}
kill_daemon() {
    kill -KILL "$daemon"
    wait "$daemon" 2>/dev/null
}
stop_daemon
start_daemon --keep
dial --default-route --auto-dial 2
check 'kept: a link' told 20 '"connected"'
before=$(link)
check 'kept: it has an address' says '^inet 10.64' link
check 'kept: a default route' says '^default' link
check 'kept: and a keeper' keepers
check 'kept: an end of the daemon' stop_daemon
sleep 10
check 'kept: leaves the link' lives_on
check 'kept: and tells its listener nothing' told_are 'connected '
start_daemon
check 'kept: the next life tells it anew' within 20 told_are 'connected connected '
check 'kept: and knows it' says '10.64.0.1' vimbractl status
check 'kept: without a dial' lives_on
kill_daemon
check 'kept: a killed daemon takes it along' within 10 no_pppd
check 'kept: with its keeper' not keepers
check 'kept: and its route' silent default /bin/ip route
start_daemon
check 'kept: the next life tells of the loss, dials and tells it' within 30 \
    told_are 'connected connected lost connected '
before=$(link)
stop_daemon
start_daemon
check 'kept: a link of a second life lives on too' within 20 \
    told_are 'connected connected lost connected connected '
check 'kept: without a dial too' lives_on
kill $(server_links)
check 'kept: one that was taken up is dialled when the server hangs up' within 30 \
    told_are 'connected connected lost connected connected lost connected '
hang_up
check 'kept: a stop ends pppd' within 10 no_pppd
check 'kept: no keeper is left' within 5 not keepers
check 'kept: no interface' silent ppp /bin/ip link
check 'kept: no route' silent default /bin/ip route
check 'kept: and no file' silent . files_of_links

dial
told 20 '"connected"' >/dev/null
stop_daemon
check 'a kept link without a daemon' reaches 10.64.0.1
start_daemon --keep --forget
check 'ends with one that is to forget' within 10 no_pppd
check 'and its keeper too' within 5 not keepers
hang_up
stop_daemon
daemon_options=
start_daemon
end_server

serve require-chap +ipv6
dial -6
check 'IPv6: the link comes up' told 20 '"connected"'
check "IPv6: the address told is the kernel's" same \
    "$(sed -n 's/.*"address": *"\([0-9a-f:]*\)".*/\1/p' /tmp/events)" \
    "$(/bin/ip -o -6 addr show dev ppp0 | awk '{ sub("/.*", "", $4); print $4 }')"
check 'IPv6: no IPv4' silent 'inet ' /bin/ip addr show dev ppp0
check 'IPv6: the peer answers' reaches \
    "$(sed -n 's/.*"peer": *"\([0-9a-f:]*\)".*/\1/p' /tmp/events)%ppp0"
hang_up
check 'IPv6: it hangs up' within 10 no_pppd
dial --family both
check 'both families: one link' told 20 '"family": *"ipv6"'
check 'both families: IPv4 too' told 10 '"family": *"ipv4"'
check 'both families: in the kernel' says 'inet 10.64' /bin/ip addr show dev ppp0
check 'both families: one pppd' same 1 "$(our_links | wc -l)"
restart_daemon
check 'both families: dialled by the next life' within 60 says 'inet 10.64.0.1' \
    /bin/ip addr show dev ppp0
hang_up
check 'both families: it hangs up' within 10 no_pppd

# A stop in each state.
printf '%s\n' "$secret" >/tmp/secret
dial_alone() {
    vimbractl pppoe start eth0 --user good "$@" </tmp/secret
}
stop_ends_it() {
    vimbractl pppoe stop && no_pppd
}
check 'stop with no link' vimbractl pppoe stop
dial_alone
check 'stop while it is dialled' stop_ends_it
dial_alone
sleep 1
check 'stop in the middle of the talk' stop_ends_it
dial_alone
sleep 5
check 'stop of a link that is up' stop_ends_it
end_server
dial_alone --auto-dial 100
sleep 1
check 'stop while nobody answers' stop_ends_it
dial_alone --auto-dial 100
sleep 60
check 'stop between two dials' stop_ends_it
dial_alone
sleep 60
check 'stop of one that is over' stop_ends_it
check 'no interface is left' silent ppp /bin/ip link
check 'an unknown interface is refused' refused 5 vimbractl pppoe start eth7 --user good </tmp/secret
