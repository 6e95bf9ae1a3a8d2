# Demo: string hash and string utilities (slot order, settings lines, escapes)
show hash code abcd
show hash code workgroup 119
show hash section global 'workgroup = "KOVA NET"' 'server string=Kova NAS' 'charset=UTF-8' 'guest account = nobody'
show str pair '  "time zone" = "Europe/Berlin"  '
show str pair 'no equals sign'
show str colon-encode 'backup:C;share'
show str colon-decode 'backup;,C;;share'
show str hex 'Kova'
show str unhex 'x4Bx6Fx76x61'
show str join ', ' admin guest nobody
