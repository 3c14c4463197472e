#compdef ruvoview
# Completion of ruvoview for zsh.

_ruvoview() {
  local -a listed
  case $words[CURRENT-1] in
    --agent|--token-file|--cert|--key) _files; return ;;
    --display) compadd -- ${${(@)$(print -l /tmp/.X11-unix/X*(N:t))}/#X/:}; return ;;
    --new) compadd 1280x720 1920x1080; return ;;
    --listen) compadd -S '' -- 127.0.0.1: unix:; return ;;
    --param)
      compadd -S '' -- $(ruvoagent user -paramsxml 2>/dev/null |
        sed -n 's/.* name="\([^"]*\)".*/\1=/p')
      return ;;
  esac
  listed=(${(f)"$($words[1] --help 2>/dev/null |
    sed -nE 's/^ {1,4}(-[A-Za-z],)?(--[a-z-]+)([ ,][^ ]+)* {2,}(.*)$/\2:\4/p')"})
  _describe ruvoview listed
}

_ruvoview "$@"
