# Demo: record store (a btree cache file with its bookkeeping records)
mkdir -p "$root/tmp"
db="$root/tmp/demo.db"
show bdb set "$db" alice "1001:/volume1/homes/alice" --dup
show bdb set "$db" bob "1002:/volume1/homes/bob" --dup
show bdb set "$db" bob "1002:a second record under one key" --dup
show bdb list-set "$db" administrators "admin,alice"
show bdb sync "$db" "$root/etc/kovainfo.conf"
show bdb sync "$db" "$root/etc/kovainfo.conf"
show bdb dump "$db"
show bdb deprecate "$db"
show bdb info "$db"
show bdb get "$db" carol
