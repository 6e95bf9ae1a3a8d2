# Demo: local groups (/etc/group and /etc/group_desc, their cache, members following users)
show group list
show group add marketing --members alice,zed,GUEST --description "Events and print"
printf '\n(zed is no user: left out; GUEST is written as the user is named)\n'
show group get marketing --json
show group set engineering --name eng --members alice
show user set alice --name alicia
show group members sales
show group del marketing
printf '\n$ cat /etc/group /etc/group_desc\n'
cat "$root/etc/group" "$root/etc/group_desc"
