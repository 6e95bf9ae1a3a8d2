# bash completion for kovactl. The words come from kovactl itself: `kovactl --completion`
# prints each command with its subcommands from the tables behind `kovactl --help`, so a new
# command or subcommand completes without a change here.
_kovactl() {
    local cur=${COMP_WORDS[COMP_CWORD]} first=1
    COMPREPLY=()
    if [[ ${COMP_WORDS[1]-} == --root ]]; then
        if ((COMP_CWORD == 2)); then
            mapfile -t COMPREPLY < <(compgen -d -- "$cur")
            return
        fi
        first=3
    fi
    local table
    table=$("${COMP_WORDS[0]}" --completion 2>/dev/null) || return
    if ((COMP_CWORD == first)); then
        local commands
        commands=$(cut -d' ' -f1 <<<"$table")
        ((first == 1)) && commands+=" --root --help"
        mapfile -t COMPREPLY < <(compgen -W "$commands" -- "$cur")
    elif ((COMP_CWORD == first + 1)); then
        local subs
        subs=$(awk -v c="${COMP_WORDS[first]}" '$1 == c { $1 = ""; print }' <<<"$table")
        mapfile -t COMPREPLY < <(compgen -W "$subs --help --json" -- "$cur")
    elif [[ $cur == -* ]]; then
        mapfile -t COMPREPLY < <(compgen -W "--json --help" -- "$cur")
    else
        mapfile -t COMPREPLY < <(compgen -f -- "$cur")  # most arguments are appliance paths
    fi
}
complete -F _kovactl kovactl
