# Demo: RAID arrays and partition layouts (real layouts on image files; mdadm only shown)
# The appliance's partition tool works on two sparse 4 GiB images in the sandbox's /dev.
mkdir -p "$root/dev"
for d in sdx sdy; do truncate -s 4G "$root/dev/$d"; done
show part layout
show part create sdx --system
show part create sdx --data
show part check sdx --json
show part create sdy --layout 1 --system
show part check sdy
show part clean sdy
show part check sdy
# No arrays run in a sandbox: a stand-in mdadm on PATH shows what the library would run.
mkdir -p "$root/shim"
cat >"$root/shim/mdadm" <<'SHIM'
#!/bin/sh
echo "(mdadm $*)"
SHIM
chmod +x "$root/shim/mdadm"
PATH="$root/shim:$PATH" show raid create /dev/md2 --level raid5 --disks 3 /dev/sdx3 /dev/sdy3
printf '\n(two devices for three slots: created degraded, with "missing" in the empty slot)\n'
show raid list
printf '\n(real arrays, their rebuilds and disk preparation run in the storage test VM: make test-vm)\n'
