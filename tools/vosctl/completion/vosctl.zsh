#compdef vosctl
# Completion of vosctl for zsh. vosctl itself knows what a word can become.
local -a candidates
candidates=("${(@f)$(vosctl complete words -- "${(@)words[2,CURRENT]}" 2>/dev/null)}")
candidates=("${(@)candidates:#}")
if (( $#candidates )); then
    compadd -a candidates
else
    _files
fi
