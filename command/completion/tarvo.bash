# Bash completion of `tarvo`: subcommands and options as its help lists them, configuration entries
# and execution jobs as the modules declare them.

# Options of the program and of a subcommand: the words that start with "-" in its help.
_tarvo_options() {
  local line
  "$@" --help 2>/dev/null | while read -r line; do
    [[ $line == -* ]] || continue
    line=${line%%  *}
    for line in ${line//,/ }; do
      [[ $line == -* ]] && printf '%s\n' "$line"
    done
  done
}

_tarvo_subcommands() {
  "$1" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z][a-z-]*\) .*/\1/p'
}

_tarvo() {
  local program=$1 current=$2 previous=$3
  local subcommand='' modules=() names='' i
  COMPREPLY=()
  for ((i = 1; i < COMP_CWORD; ++i)); do
    case ${COMP_WORDS[i]} in
      --module) modules+=(--module "${COMP_WORDS[++i]}") ;;
      --config | --bind | =) ((++i)) ;;
      -*) ;;
      *) [[ -z $subcommand ]] && subcommand=${COMP_WORDS[i]} ;;
    esac
  done

  case $previous in
    --module | --config)
      compopt -o filenames 2>/dev/null
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return ;;
    --bind) return ;;
  esac

  if [[ $current == --g_* ]]; then
    names=$("$program" "${modules[@]}" config --names 2>/dev/null | sed 's/.*/--&=/')
    compopt -o nospace 2>/dev/null
  elif [[ $current == -* ]]; then
    names="$(_tarvo_options "$program") $([[ -n $subcommand ]] && _tarvo_options "$program" "$subcommand") --g_"
    [[ --g_ == "$current"* ]] && compopt -o nospace 2>/dev/null
  elif [[ -z $subcommand ]]; then
    names=$(_tarvo_subcommands "$program")
  elif [[ $subcommand == run ]]; then
    names=$("$program" "${modules[@]}" run --list 2>/dev/null)
  else
    compopt -o filenames 2>/dev/null
    mapfile -t COMPREPLY < <(compgen -f -- "$current")
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current" | sort -u)
}

complete -F _tarvo tarvo
