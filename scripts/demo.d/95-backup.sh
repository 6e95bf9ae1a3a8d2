# Demo: configuration backup (one appliance exported, imported into a fresh one, compared)
# Two appliances of their own beside the demo's: the source, as the skeleton plus a few
# changes, and a fresh one that receives the backup.
source="$root/../demo-root-source"
fresh="$root/../demo-root-fresh"
backup="$source/tmp/demo-backup.kbk"
rm -rf "$source" "$fresh"
cp -a "$here/skeleton" "$source"
cp -a "$here/skeleton" "$fresh"
in_source() {
    printf '\n$ kovactl --root %s %s\n' "$source" "$*"
    "$here/$build/kovactl" --root "$source" "$@" || printf '(exit %d)\n' "$?"
}
in_source user add dora --password 'Dora-pw1' --description "Dora Lane"
in_source group set sales --members alice,bob,dora
in_source conf set /etc/kovainfo.conf runmysql yes
in_source backup export "$backup"
in_source backup show "$backup"
printf '\n$ kovactl --root %s backup import %s\n' "$fresh" "$backup"
"$here/$build/kovactl" --root "$fresh" backup import "$backup" || printf '(exit %d)\n' "$?"
printf '\n$ cat %s/var/log/services.log   (stopped around the import, web manager kept)\n' \
    "$fresh"
cat "$fresh/var/log/services.log"
printf '\n$ kovactl --root %s log show sys | cut -f 2-   (the import recorded its event)\n' "$fresh"
"$here/$build/kovactl" --root "$fresh" log show sys | cut -f 2-
printf '\n$ compare the two appliances (days and times of last change left out; the lines of a\n'
printf '  reserved smb.conf section come back in the order of its stored list)\n'
cut_times() { sed -E 's/:[0-9]+:0:99999:/::0:99999:/; s/:LCT-[0-9A-F]+:/:/; s/^([^:]*):[0-9]+:/\1::/'; }
by_section() { awk '/^\[/ { section = $0; next } { print section "|" $0 }' | sort; }
same() {
    if diff -q <("$2" <"$source/$1") <("$2" <"$fresh/$1") >/dev/null; then
        echo "$1: same"
    else
        echo "$1: differs"
        diff <("$2" <"$source/$1") <("$2" <"$fresh/$1") | head -5 || true
    fi
}
for f in etc/passwd etc/group etc/group_desc etc/kovainfo.conf; do same "$f" cat; done
same usr/kova/etc/smb.conf by_section
for f in etc/shadow usr/kova/etc/private/smbpasswd; do same "$f" cut_times; done
rm -rf "$source" "$fresh"
