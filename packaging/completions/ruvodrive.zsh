#compdef ruvodrive
# Completion of ruvodrive for zsh. Commands, options and parameters are asked from the programs, so
# that they are those of the installed version.

# The options and commands that a help text lists, as "word:description".
_ruvodrive_listed() {
  sed -nE -e '/^Positionals:/,/^$/d' \
    -e ':a' -e '/^ {1,4}[a-z-]+, /{h;s/^ +([a-z-]+), [a-z, -]*  ([^ ].*)$/\1:\2/p;g;s/[a-z-]+, //;ta' -e '}' \
    -e 's/^ {1,4}(-[A-Za-z],)?(--[a-z-]+)([ ,][^ ]+)*( {2,}(.*))?$/\2:\5/p' \
    -e 's/^ {1,4}([a-z][a-z-]*) {2,}(.*)$/\1:\2/p' <<<"$1"
}

_ruvodrive() {
  local word
  local -a commands command listed
  case $words[CURRENT-1] in
    --agent) _files; return ;;
    --mode) compadd service user virtual; return ;;
    --display) compadd -- ${${(@)$(print -l /tmp/.X11-unix/X*(N:t))}/#X/:}; return ;;
    --param)
      compadd -S '' -- $(ruvoagent user -paramsxml 2>/dev/null |
        sed -n 's/.* name="\([^"]*\)".*/\1=/p')
      return ;;
  esac
  commands=(${(f)"$(_ruvodrive_listed "$($words[1] --help 2>/dev/null)")"})
  listed=($commands)
  for word in ${words[2,CURRENT-1]}; do
    if [[ $word == -- ]]; then
      command=()
      listed=($commands)
    elif [[ $word != -* && -n ${(M)listed:#$word:*} ]]; then
      # A command of the command before, or one that follows "record-session" or "monitors select".
      [[ -z ${(M)commands:#$word:*} ]] || command=()
      command+=($word)
      listed=(${(f)"$(_ruvodrive_listed "$($words[1] $command --help 2>/dev/null)")"})
      case "$command" in
        (record-session|'monitors select') listed+=(${commands:#-*}) ;;
      esac
    fi
  done
  _describe ruvodrive listed
  (( ! $#command )) || _files
}

_ruvodrive "$@"
