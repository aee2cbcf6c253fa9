# Completion of vosctl for fish. vosctl itself knows what a word can become.
function __vosctl_candidates
    set -l words (commandline -opc)[2..] (commandline -ct)
    vosctl complete words -- $words 2>/dev/null
end
complete -c vosctl -a '(__vosctl_candidates)'
