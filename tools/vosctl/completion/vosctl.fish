# Completion of vosctl for fish. It asks vosctl for the words that are possible.
function __vosctl_candidates
    set -l words (commandline -opc)[2..] (commandline -ct)
    for line in (vosctl complete words --describe -- $words 2>/dev/null)
        switch $line
            case /files
                __fish_complete_path (commandline -ct)
            case /directories
                __fish_complete_directories (commandline -ct)
            case '*'
                echo $line
        end
    end
end
complete -c vosctl -f -a '(__vosctl_candidates)'
