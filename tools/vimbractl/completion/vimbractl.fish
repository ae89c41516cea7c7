# Completion of vimbractl for fish. What can follow, the command itself knows.
function __vimbractl_complete
    set -l words (commandline -opc)
    $words[1] __complete $words[2..] (commandline -ct) 2>/dev/null
end
complete -c vimbractl -f -a '(__vimbractl_complete)'
