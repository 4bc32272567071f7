# Completion of `tarvo` for fish: bash's knows it all.

set -g __tarvo_completion (dirname (status filename))/../../bash-completion/completions/tarvo

function __tarvo_complete
    set -l words (commandline -opc) (commandline -ct)
    bash $__tarvo_completion (math (count $words) - 1) $words 2>/dev/null
    test $status -eq 3; and __fish_complete_path (commandline -ct)
end

complete -c tarvo -f -a '(__tarvo_complete)'
