# shellcheck shell=bash
# Completion of vosctl for bash. vosctl itself knows what a word can become.
_vosctl() {
    local IFS=$'\n'
    # shellcheck disable=SC2207  # one candidate per line
    COMPREPLY=($(vosctl complete words -- "${COMP_WORDS[@]:1:COMP_CWORD}" 2>/dev/null))
}
complete -o default -F _vosctl vosctl
