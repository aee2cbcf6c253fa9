# shellcheck shell=bash
# Completion of vosctl for bash. It asks vosctl for the words that are possible.
_vosctl() {
    local word candidate words=() before=''
    # bash takes = and : for ends of words; here they are put together again.
    for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
        if [[ ${#words[@]} -gt 0 && ($word == [=:]* || ${words[-1]} == *[=:]) ]]; then
            before=${words[-1]}
            words[-1]+=$word
        else
            before=''
            words+=("$word")
        fi
    done
    [[ $before && $word == [=:] ]] && before+=$word # bash completes what stands behind it
    local lines=()
    mapfile -t lines < <(vosctl complete words --describe -- "${words[@]}" 2>/dev/null)
    COMPREPLY=()
    for candidate in "${lines[@]}"; do
        candidate=${candidate%%$'\t'*}
        case $candidate in
        /files) compopt -o default ;;
        /directories) compopt -o dirnames ;;
        *)
            candidate=${candidate#"$before"}
            [[ $candidate ]] || continue
            printf -v candidate %q "$candidate"
            COMPREPLY+=("$candidate")
            [[ $candidate == *: ]] && compopt -o nospace
            ;;
        esac
    done
}
complete -F _vosctl vosctl
