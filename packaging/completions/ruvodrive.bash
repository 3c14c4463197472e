# Completion of ruvodrive for bash. Commands, options and parameters are asked from the programs, so
# that they are those of the installed version.

# The options and commands that a help text lists, one a line.
_ruvodrive_listed() {
  sed -nE -e '/^Positionals:/,/^$/d' -e 's/^ {1,4}(-[A-Za-z],)?(--[a-z-]+).*/\2/p' \
    -e '/^ {1,4}[a-z]/{s/^ +([a-z-]+(, [a-z-]+)*)  .*/\1/;T;s/, /\n/g;p}' <<<"$1"
}

_ruvodrive() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]}
  local program=${COMP_WORDS[0]} word commands words='' command=()
  COMPREPLY=()
  case $previous in
    --agent) mapfile -t COMPREPLY < <(compgen -f -- "$current"); return ;;
    --mode) words='service user virtual' ;;
    --display) words=$(printf '%s\n' /tmp/.X11-unix/X* | sed -n 's/.*X\([0-9]\)/:\1/p') ;;
    --param)
      words=$(ruvoagent user -paramsxml 2>/dev/null | sed -n 's/.* name="\([^"]*\)".*/\1=/p')
      compopt -o nospace 2>/dev/null || :
      ;;
  esac
  if [[ -z $words ]]; then
    commands=$(_ruvodrive_listed "$("$program" --help 2>/dev/null)")
    words=$commands
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
      if [[ $word == -- ]]; then
        command=()
        words=$commands
      elif [[ $word != -* ]] && grep -qxF -e "$word" <<<"$words"; then
        # A command of the command before, or one that follows "record-session" or "monitors select".
        grep -qxF -e "$word" <<<"$commands" && command=()
        command+=("$word")
        words=$(_ruvodrive_listed "$("$program" "${command[@]}" --help 2>/dev/null)")
        case ${command[*]} in
          record-session | 'monitors select') words+=$'\n'$(grep -v '^-' <<<"$commands") ;;
        esac
      fi
    done
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
  [[ ${#command[@]} -eq 0 ]] || mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$current")
}

complete -F _ruvodrive ruvodrive
