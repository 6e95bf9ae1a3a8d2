# Demo: host discovery between two sandbox appliances, each in its own network namespace
# Two appliance roots, "demo-a" (this one) and "demo-b", joined by a veth pair inside private
# network namespaces; each runs its own findhostd. Nothing is sent on this machine's links.
if [ "$(id -u)" -ne 0 ] || ! command -v ip >/dev/null || ! command -v nsenter >/dev/null ||
    ! unshare -n true 2>/dev/null; then
    echo "(skipped: private network namespaces need root, ip and nsenter here)"
else
    peer="$root/tmp/appliance-b"
    rm -rf "$peer"
    cp -a "$here/skeleton" "$peer"
    for r in "$root" "$peer"; do
        mkdir -p "$r/usr/kova/bin"
        ln -sf "$here/$build/findhostd" "$r/usr/kova/bin/findhostd"
    done
    sed -i 's/^hostname=.*/hostname="demo-a"/' "$root/etc/kovainfo.conf"
    sed -i 's/^hostname=.*/hostname="demo-b"/' "$peer/etc/kovainfo.conf"
    sed -i 's/^IPADDR=.*/IPADDR="192.0.2.1"/' "$root/etc/sysconfig/network-scripts/ifcfg-eth0"
    sed -i 's/^IPADDR=.*/IPADDR="192.0.2.2"/' "$peer/etc/sysconfig/network-scripts/ifcfg-eth0"
    export peer
    unshare -n -- bash -euo pipefail -c '
        # Appliance b: a namespace held by a sleeping process.
        unshare -n -- sleep 120 &
        holder=$!
        while [ "$(readlink /proc/$holder/ns/net)" = "$(readlink /proc/self/ns/net)" ]; do
            sleep 0.05
        done
        in_b() { nsenter --net=/proc/$holder/ns/net "$@"; }
        stop() {
            for r in "$peer" "$root"; do
                [ -f "$r/var/run/findhostd.pid" ] && kill "$(cat "$r/var/run/findhostd.pid")" 2>/dev/null
            done
            kill $holder 2>/dev/null || true
        }
        trap stop EXIT
        ip link set lo up
        ip link add eth0 type veth peer name eth0 netns /proc/$holder/ns/net
        ip addr add 192.0.2.1/24 dev eth0 && ip link set eth0 up
        in_b ip link set lo up
        in_b ip addr add 192.0.2.2/24 dev eth0 && in_b ip link set eth0 up
        echo "appliance a: 192.0.2.1 (demo-a); appliance b: 192.0.2.2 (demo-b), veth eth0<->eth0"
        KOVA_ROOT="$peer" in_b "$peer/usr/kova/bin/findhostd"
        "$root/usr/kova/bin/findhostd"
        sleep 0.3
        show net cards
        show discover
    '
    rm -rf "$peer"
fi
