# Demo: shared folders (the sections of smb.conf, their cache, access lists following users and groups)
show share list
show share get sales
show share add media --path /volume1/media --comment "Films and music" --rw alicia,@sales --ro guest --access none
show share rights media
printf '\n$ sed -n '"'"'/^\\[media\\]/,$p'"'"' /usr/kova/etc/smb.conf\n'
sed -n '/^\[media\]/,$p' "$root/usr/kova/etc/smb.conf"
show group set sales --name vertrieb
show share get media --json
show share add bad --path volume1/bad
show share del media
