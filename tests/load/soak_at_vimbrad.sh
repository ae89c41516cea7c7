#!/bin/sh
# soak_at_vimbrad.sh VIMBRAD SOAK [OPTION...]: lets the soak ask a vimbrad of its own. Under
# vimbra-sandbox.
vimbrad=$1
soak=$2
shift 2
for number in 0 1; do
    ip link add eth$number type veth peer name peer$number
    ip link set eth$number up
    ip link set peer$number up
done
ip address add 192.168.1.1/24 dev eth0
ip address add 192.0.2.2/24 dev eth1
ip address add 2001:db8::2/64 dev eth1 nodad
# Where the kernel knows no PPP, links are dialled by a program that finds nobody and goes on looking.
if ! [ -e /dev/ppp ]; then
    ln -s null /dev/ppp
    mkdir /tmp/bin
    printf '#!/bin/sh\nexec sleep 1000\n' >/tmp/bin/pppd
    chmod 755 /tmp/bin/pppd
    PATH=/tmp/bin:$PATH
fi
"$vimbrad" >/tmp/vimbrad.log 2>&1 &
daemon=$!
until [ -S /tmp/api_daemon ]; do
    kill -0 $daemon || { cat /tmp/vimbrad.log; exit 1; }
    sleep 0.1
done
"$soak" --daemon $daemon "$@"
status=$?
kill $daemon
wait $daemon || { cat /tmp/vimbrad.log; exit 1; }
exit $status
