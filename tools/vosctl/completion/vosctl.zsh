#compdef vosctl
# Completion of vosctl for zsh. It asks vosctl for the words that are possible.
local -a candidates shown
local line files=
for line in "${(@f)$(vosctl complete words --describe -- "${(@)words[2,CURRENT]}" 2>/dev/null)}"; do
    case $line in
        '') ;;
        /files) files=1 ;;
        /directories) _files -/ ;;
        *)
            candidates+=("${line%%$'\t'*}")
            shown+=("${line/$'\t'/  -- }")
            ;;
    esac
done
(( $#candidates )) && compadd -l -d shown -a candidates
[[ -n $files ]] && _files
return 0
