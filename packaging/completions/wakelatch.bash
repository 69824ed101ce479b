# Completion of wakelatch in bash, from version 3.2 on.
_wakelatch() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local command='' options='' i IFS=$' \t\n'
  COMPREPLY=()
  # In "--mode=off" the sign is a word of its own.
  if [[ $current == = ]]; then
    current=''
  elif [[ $previous == = ]]; then
    previous=${COMP_WORDS[COMP_CWORD - 2]}
  fi

  case $previous in
    --mode)
      COMPREPLY=($(compgen -W 'off manualKeepAwake watchAgentUI sleepAfterCurrentWork
        pluggedInUnlimited' -- "$current"))
      return ;;
    --agent)
      COMPREPLY=($(compgen -W "$("${COMP_WORDS[0]}" agents 2>/dev/null |
        sed -n 's/^[^ ].*(\([^ ,]*\), [a-zA-Z]*)$/\1/p')" -- "$current"))
      return ;;
    --tools | --caffeinate | --html | --record | --truth | --settings)
      local kind=-f
      [[ $previous == --tools ]] && kind=-d
      compopt -o filenames 2>/dev/null
      IFS=$'\n'
      COMPREPLY=($(compgen $kind -- "$current"))
      return ;;
    --interval | --ticks | --release-delay | --days | --cpu-factor | --explain)
      return ;;
  esac

  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --tools) # its directory is no command, whatever its name
        ((++i))
        [[ ${COMP_WORDS[i]} == = ]] && ((++i)) ;;
      [a-z]*)
        command=${COMP_WORDS[i]}
        break ;;
    esac
  done
  case $command in
    '') options='status explain watch record replay agents stats restore doctor --tools --version' ;;
    status | explain) options='--json --mode --agent' ;;
    watch)
      options='--mode --interval --ticks --json --dry-run --release-delay --caffeinate --agent
        --record --all-processes' ;;
    record) options='--all-processes --mode --interval --ticks --agent' ;;
    replay) options='--truth --settings --cpu-factor --explain --agent --html --json' ;;
    agents | doctor) options='--json' ;;
    stats) options='--days --json --html' ;;
    restore) options='--adopt' ;;
  esac
  if [[ $command == record || $command == replay ]] && [[ $current != -* ]]; then
    compopt -o filenames 2>/dev/null
    IFS=$'\n'
    COMPREPLY=($(compgen -f -- "$current"))
    return
  fi
  COMPREPLY=($(compgen -W "$options --help" -- "$current"))
}
complete -F _wakelatch wakelatch
