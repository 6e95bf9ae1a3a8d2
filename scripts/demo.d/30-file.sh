# Demo: settings files (keys of /etc/kovainfo.conf, sections, the helper programs)
show conf get /etc/kovainfo.conf hostname
show conf set /etc/kovainfo.conf hostname nas-office
show conf get /etc/kovainfo.conf hostname
show conf get /etc.defaults/kovainfo.conf maxdisks
show conf set /etc/kovainfo.conf ntpserver time.example.org
show conf rm /etc/kovainfo.conf usb_standbytimer
show conf get /etc/kovainfo.conf usb_standbytimer
printf '[global]\nworkgroup = WORKGROUP\n[public]\npath = /volume1/public\n' >"$root/etc/shares.demo.conf"
show conf set /etc/shares.demo.conf --section homes browseable no
show conf set /etc/shares.demo.conf --section global workgroup OFFICE
show conf sections /etc/shares.demo.conf
show conf section /etc/shares.demo.conf global
# The helper programs the library runs, linked into the sandbox's /bin by the demo.
printf '\n$ /bin/set_key_value /etc/kovainfo.conf language deu && /bin/get_key_value ... language\n'
"$root/bin/set_key_value" "$root/etc/kovainfo.conf" language deu
"$root/bin/get_key_value" "$root/etc/kovainfo.conf" language
printf '\n$ ls %s/tmp/lock | head -3   (lock files made on first use)\n' "\$KOVA_ROOT"
ls "$root/tmp/lock" | head -3
