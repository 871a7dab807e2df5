# Completion of vexactl for fish. The tool itself knows what may stand next.

function __vexactl_candidates
    set -l words (commandline -opc)
    set -l word (commandline -ct | string replace --all --regex '[\\\\"\']' '')
    $words[1] complete -- $words[2..-1] "$word" 2>/dev/null
end

complete -c vexactl -f -a '(__vexactl_candidates)'
complete -c vexactl -l devices -r -F
complete -c vexactl -n '__fish_seen_subcommand_from save diff apply' -F
complete -c vexactl -s d -l device -x -a '(__fish_print_hostnames)'
