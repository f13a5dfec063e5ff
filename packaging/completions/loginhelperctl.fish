# fish completion for loginhelperctl
set -l commands test identify enable disable query quit doctor forget
set -l no_command "not __fish_seen_subcommand_from $commands"

complete -c loginhelperctl -f
complete -c loginhelperctl -n $no_command -a test -d 'ask whether the helper answers'
complete -c loginhelperctl -n $no_command -a identify -d 'introduce the main application'
complete -c loginhelperctl -n $no_command -a enable -d 'launch an application at login'
complete -c loginhelperctl -n $no_command -a disable -d 'launch nothing at login'
complete -c loginhelperctl -n $no_command -a query -d 'ask for the setting'
complete -c loginhelperctl -n $no_command -a quit -d 'end the helper'
complete -c loginhelperctl -n $no_command -a doctor -d 'tell what the next login would do'
complete -c loginhelperctl -n $no_command -a forget -d 'remove the settings'
complete -c loginhelperctl -n '__fish_seen_subcommand_from enable' -a '(__fish_complete_directories)'
complete -c loginhelperctl -l bundle -x -a '(__fish_complete_directories)' -d 'bundle that identify names'
complete -c loginhelperctl -l service -x -d 'service to talk to'
complete -c loginhelperctl -l timeout -x -d 'milliseconds to wait for a reply'
complete -c loginhelperctl -l json -d 'print one JSON object'
complete -c loginhelperctl -s h -l help -d 'display help'
complete -c loginhelperctl -s V -l version -d 'output version information'
