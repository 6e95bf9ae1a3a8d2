# Demo: disks (the internal bays, sizes, models, write cache, standby settings)
show disk standby
show disk standby 45
printf '\n(45 minutes is not a setting the drives know: refused, nothing stored)\n'
show disk standby 60
show disk standby --json
show disk cache --stored off
show disk cache --stored
if [ "$(id -u)" -eq 0 ] && [ -e /dev/loop-control ] && command -v losetup >/dev/null; then
    # Two loop devices over files of the sandbox stand in for the first two bays; the nodes
    # are made inside the sandbox's /dev, so nothing of this machine's own disks is reached.
    mkdir -p "$root/dev" "$root/var/disks"
    demo_loops=()
    for bay in a b; do
        truncate -s $((64 + 32 * ${#demo_loops[@]}))M "$root/var/disks/bay-$bay.img"
        loop=$(losetup --find --show "$root/var/disks/bay-$bay.img")
        demo_loops+=("$loop")
        rdev=$(stat -c '%t %T' "$loop")
        mknod "$root/dev/sd$bay" b $((16#${rdev% *})) $((16#${rdev#* }))
        mkdir -p "$root/sys/block/sd$bay/device"
        echo "DEMO LOOP DISK $bay" >"$root/sys/block/sd$bay/device/model"
    done
    show disk list
    show disk info sdb --json
    printf '\n(a loop device has no S.M.A.R.T. and no ATA write cache: unknown and off)\n'
    for loop in "${demo_loops[@]}"; do losetup -d "$loop"; done
    rm -f "$root/dev/sda" "$root/dev/sdb"
else
    printf '\n(disk list needs block devices: as root the demo attaches two loop devices)\n'
    show disk list
fi
