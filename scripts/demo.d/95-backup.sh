# Demo: configuration backup (one appliance exported, imported into a fresh one, compared)
backup="$root/../demo-backup.kbk"
fresh="$root/../demo-root-fresh"
show user add dora --password 'Dora-pw1' --description "Dora Lane"
show group set sales --members alice,bob,dora
show conf set /etc/kovainfo.conf runmysql yes
show backup export "$backup"
show backup show "$backup"
rm -rf "$fresh"
cp -a "$here/skeleton" "$fresh"
printf '\n$ kovactl --root %s backup import %s\n' "$fresh" "$backup"
"$here/$build/kovactl" --root "$fresh" backup import "$backup" || printf '(exit %d)\n' "$?"
printf '\n$ cat %s/var/log/services.log   (stopped around the import, web manager kept)\n' \
    "$fresh"
cat "$fresh/var/log/services.log"
printf '\n$ compare the two appliances (days and times of last change left out; the lines of a\n'
printf '  reserved smb.conf section come back in the order of its stored list)\n'
cut_times() { sed -E 's/:[0-9]+:0:99999:/::0:99999:/; s/:LCT-[0-9A-F]+:/:/; s/^([^:]*):[0-9]+:/\1::/'; }
by_section() { awk '/^\[/ { section = $0; next } { print section "|" $0 }' | sort; }
same() {
    if diff -q <("$2" <"$root/$1") <("$2" <"$fresh/$1") >/dev/null; then
        echo "$1: same"
    else
        echo "$1: differs"
        diff <("$2" <"$root/$1") <("$2" <"$fresh/$1") | head -5 || true
    fi
}
for f in etc/passwd etc/group etc/group_desc etc/kovainfo.conf; do same "$f" cat; done
same usr/kova/etc/smb.conf by_section
for f in etc/shadow usr/kova/etc/private/smbpasswd; do same "$f" cut_times; done
rm -rf "$fresh" "$backup"
