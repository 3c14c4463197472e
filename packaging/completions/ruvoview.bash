# Completion of ruvoview for bash.

_ruvoview() {
  local current=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words
  COMPREPLY=()
  case $previous in
    --agent | --token-file | --cert | --key)
      mapfile -t COMPREPLY < <(compgen -f -- "$current")
      return
      ;;
    --display) words=$(printf '%s\n' /tmp/.X11-unix/X* | sed -n 's/.*X\([0-9]\)/:\1/p') ;;
    --new) words='1280x720 1920x1080' ;;
    --listen) words='127.0.0.1: unix:' ;;
    --param)
      words=$(ruvoagent user -paramsxml 2>/dev/null | sed -n 's/.* name="\([^"]*\)".*/\1=/p')
      compopt -o nospace 2>/dev/null || :
      ;;
    *)
      words=$("${COMP_WORDS[0]}" --help 2>/dev/null |
        sed -nE 's/^ {1,4}(-[A-Za-z],)?(--[a-z-]+).*/\2/p')
      ;;
  esac
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _ruvoview ruvoview
