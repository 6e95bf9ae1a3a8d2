# Demo: volumes over a mount table and volume-group status written into the sandbox (nothing
# is mounted on this machine; no arrays run here, so the volumes show no arrays beneath).
mkdir -p "$root/proc" "$root/tmp" "$root/volume1" "$root/volumeUSB1/usbshare"
cat >"$root/proc/mounts" <<'MOUNTS'
/dev/md2 /volume1 ext4 rw,usrquota,grpquota 0 0
/dev/sdq1 /volumeUSB1/usbshare vfat ro 0 0
MOUNTS
show vol lvm-status set vg3 /dev/md4:0 /dev/md5:1
printf '(/tmp/lvm.status now reads:)\n'
cat "$root/tmp/lvm.status"
show vol list
show vol info /volume1 --json
show vol info /volume3
printf '\n(vg3 is listed, but neither of its arrays runs: nothing exists under /volume3)\n'
# Stand-in mount and umount on PATH write down what the library runs (its output goes to
# /dev/null).
mkdir -p "$root/shim"
for program in mount umount; do
    printf '#!/bin/sh\necho "%s $*" >>"%s/shim/ran"\n' "$program" "$root" >"$root/shim/$program"
    chmod +x "$root/shim/$program"
done
PATH="$root/shim:$PATH" show vol mount /dev/md3 /volume2
PATH="$root/shim:$PATH" show vol umount /volume2
printf '(what ran, the sandbox root shown as $root:)\n'
sed "s|$root|\$root|g" "$root/shim/ran"
printf '\n(real mounts, degraded and stopped arrays beneath volumes run in the storage test VM: make test-vm)\n'
