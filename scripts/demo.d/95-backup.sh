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
printf '\n$ diff of the accounts, shares and settings (last-change days and times left out)\n'
for f in etc/passwd etc/group etc/group_desc usr/kova/etc/smb.conf etc/kovainfo.conf; do
    if diff -q "$root/$f" "$fresh/$f" >/dev/null; then
        echo "$f: same"
    else
        echo "$f: differs"
        diff "$root/$f" "$fresh/$f" | head -5
    fi
done
cut_times() { sed -E 's/:[0-9]+:0:99999:/::0:99999:/; s/:LCT-[0-9A-F]+:/:/; s/^([^:]*):[0-9]+:/\1::/'; }
for f in etc/shadow usr/kova/etc/private/smbpasswd; do
    if diff <(cut_times <"$root/$f") <(cut_times <"$fresh/$f") >/dev/null; then
        echo "$f: same hashes"
    else
        echo "$f: differs"
    fi
done
rm -rf "$fresh" "$backup"
