# Demo: processes (finding them by command line) and the registry of running operations
show ps "kovactl"
show ops
# A backup holds its registration for a few seconds in the background.
"$here/$build/kovactl" --root "$root" ops hold backup 3 &
sleep 0.5
show ops
show ops check restore
show ops check volume
wait
show ops
