#!/bin/sh
# Run a command on a network with a second host: a network namespace of its own behind a pair of virtual Ethernet
# interfaces, with a name server; and give it a small disk, which can be filled. Inside ./dev sandbox only:
#
#     ./dev sandbox examples/recorder/second_host.sh COMMAND [ARGUMENT...]
#
# All of it goes when the sandbox does.
set -eu

if [ ! -d /.etc ] || [ $# -eq 0 ]; then
    sed -n 's/^# \{0,1\}//; 2,7p' "$0" >&2
    exit 2
fi

# The second host is whatever runs in this process's network namespace. It has said so once it is there.
mkfifo /dvr/ready
unshare --net sh -c 'echo there >/dvr/ready && exec sleep 1000000' </dev/null >/dev/null 2>&1 &
second_host=$!
read -r _ </dvr/ready
rm /dvr/ready

there="nsenter --net=/proc/$second_host/ns/net"
printf '#!/bin/sh\nexec %s "$@"\n' "$there" >/dvr/second_host.sh
chmod 755 /dvr/second_host.sh

ip link add eth0 address 02:00:00:00:07:01 type veth peer name eth0 address 02:00:00:00:07:02 netns "$second_host"
$there ip address add 10.7.0.2/24 dev eth0
$there ip link set eth0 up
ip address add 10.7.0.1/24 dev eth0
ip link set eth0 up
ip route add default via 10.7.0.2 dev eth0

# Its name server keeps its rights (--no-daemon): where an ordinary user is root, there are no others to change to.
$there dnsmasq --no-daemon --conf-file=/dev/null --no-resolv --no-hosts --pid-file= --log-facility=/dev/null \
    --host-record=camera.example,10.7.0.20 </dev/null >/dev/null 2>&1 &
echo $! >/dvr/name_server.pid
until [ -n "$($there ss -Hlun 'sport = :53')" ]; do
    kill -0 $! # or it has ended
done

# Whoever asks gives up long before the resolver would.
rm -f /etc/resolv.conf
printf 'nameserver 10.7.0.2\noptions timeout:30 attempts:2\n' >/etc/resolv.conf

mkdir /tmp/disk0
mount -t tmpfs -o size=40m disk0 /tmp/disk0

exec "$@"
