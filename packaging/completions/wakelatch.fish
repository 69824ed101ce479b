# Completion of wakelatch in fish.
complete -c wakelatch -f
complete -c wakelatch -s h -l help -d 'Say how to use it'

complete -c wakelatch -n __fish_use_subcommand -l tools -x -a '(__fish_complete_directories)' -d 'Run the programs of a folder in place of the system\'s'
complete -c wakelatch -n __fish_use_subcommand -a status -d 'What is seen and decided now'
complete -c wakelatch -n __fish_use_subcommand -a explain -d 'Why that is decided, rule by rule'
complete -c wakelatch -n __fish_use_subcommand -a watch -d 'Watch the agents and keep the machine awake'
complete -c wakelatch -n __fish_use_subcommand -a agents -d 'The watched agents'
complete -c wakelatch -n __fish_use_subcommand -a stats -d 'What was protected so far'
complete -c wakelatch -n __fish_use_subcommand -a restore -d 'Restore normal sleep after a crash'
complete -c wakelatch -n __fish_use_subcommand -a doctor -d 'Check everything'

complete -c wakelatch -n '__fish_seen_subcommand_from status explain watch agents stats doctor' -l json -d 'Print JSON'
complete -c wakelatch -n '__fish_seen_subcommand_from status explain watch' -l mode -x -a 'off manualKeepAwake watchAgentUI sleepAfterCurrentWork pluggedInUnlimited' -d 'What to do'
complete -c wakelatch -n '__fish_seen_subcommand_from watch' -l interval -x -d 'Seconds between ticks, at most 8'
complete -c wakelatch -n '__fish_seen_subcommand_from watch' -l ticks -x -d 'Leave after this many'
complete -c wakelatch -n '__fish_seen_subcommand_from watch' -l dry-run -d 'Decide and print, but start nothing'
complete -c wakelatch -n '__fish_seen_subcommand_from watch' -l release-delay -x -d 'Seconds that a lid-closed keep-awake outlasts the work'
complete -c wakelatch -n '__fish_seen_subcommand_from watch' -l caffeinate -r -F -d 'Keep-awake tool'
complete -c wakelatch -n '__fish_seen_subcommand_from stats' -l days -x -d 'Days shown one by one'
complete -c wakelatch -n '__fish_seen_subcommand_from stats' -l html -r -F -d 'Write a page'
complete -c wakelatch -n '__fish_seen_subcommand_from restore' -l adopt -d 'Also when something else disabled sleep'
