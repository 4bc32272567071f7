# Bash completion of `tarvo`: subcommands and options as its help lists them, configuration entries
# and execution jobs as the modules declare them. The files for zsh and fish beside this one run it:
#
#   bash tarvo.bash INDEX WORD…   prints what the word of this index may become, a line each; ends with
#                                 status 3 where it is a file

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

_tarvo_files() {
  compopt -o filenames 2>/dev/null
  mapfile -t COMPREPLY < <(compgen -f -- "$1")
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
      _tarvo_files "$current"
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
    _tarvo_files "$current"
    return
  fi
  mapfile -t COMPREPLY < <(compgen -W "$names" -- "$current" | sort -u)
}

complete -F _tarvo tarvo

if [[ ${BASH_SOURCE[0]} == "$0" ]]; then
  _tarvo_files() { exit 3; }
  COMP_CWORD=$1 COMP_WORDS=("${@:2}")
  _tarvo "$2" "${COMP_WORDS[COMP_CWORD]}" "${COMP_WORDS[COMP_CWORD - 1]}"
  printf '%s\n' "${COMPREPLY[@]}"
fi
