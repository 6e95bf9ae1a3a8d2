# Demo: event logs (binary rings of events, rendered as text from the message catalogue)
printf '\n$ /usr/kova/bin/kovalogset1 sys err 0x1180050A    (as the appliance scripts record an event)\n'
"$root/usr/kova/bin/kovalogset1" sys err 0x1180050A
show log add sys info 11100001 media admin
show log add sys info 11100003 alicia admin
show log add man warn 11100006 sda 58
show log add sys err 11100007 /volume1
show log show sys
show log show sys --json
printf '\n$ xxd /var/log/kovasys.log | head -4    (16-byte header "KOVA", head, tail, then the records)\n'
xxd "$root/var/log/kovasys.log" | head -4
printf '\n$ for n in $(seq 1 40); do kovalogset1 sys info 11100001 share$n admin; done\n'
for n in $(seq 1 40); do "$root/usr/kova/bin/kovalogset1" sys info 11100001 "share$n" admin; done
printf '\n$ kovactl log show sys | wc -l; ls -l /var/log/kovasys.log\n'
kovactl log show sys | wc -l
stat -c '%s bytes' "$root/var/log/kovasys.log"
show log size sys 512
show log size sys 1024
printf '\n$ kovactl log show sys | cut -f 3-    (the oldest events made room)\n'
kovactl log show sys | cut -f 3-
show log size sur 4096
show log show bkp
printf "\n(the management class writes into the system log and reads its own file)\n"
show log show man
show log conn
