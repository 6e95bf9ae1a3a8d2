# Demo: user accounts (the four account files, their cache, and the account operations)
files() {
    printf '\n$ tail -n 2 /etc/passwd /etc/shadow /etc/kovauser.conf /usr/kova/etc/private/smbpasswd\n'
    (cd "$root" && tail -n 2 etc/passwd etc/shadow etc/kovauser.conf usr/kova/etc/private/smbpasswd)
}
show user list
show user get alice
show user add carol --password s3cret --description "Sales: EMEA" --mail carol@example.com --privilege 7
files
show user set carol --name Carole --expire 2030-01-01
show user passwd Carole n3w-secret
files
show user get CAROLE --json
show user add ALICE --password x
show user del bob
show user list --prefix c --json
printf '\n$ ls %s/var/services/homes   (home folders follow the accounts)\n' "\$KOVA_ROOT"
ls "$root/var/services/homes"
printf '\n$ ls -a %s/tmp   (the cache: five btree files)\n' "\$KOVA_ROOT"
ls -a "$root/tmp" | grep '^\.db\.user'
