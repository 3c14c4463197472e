#!/usr/bin/env bash
# What the installed completions offer.
#
#   completions_test.sh PREFIX
set -euo pipefail

prefix=$1
export PATH=$prefix/bin:$PATH
share=$prefix/share

# expect SHELL WANTED...: the lines of standard input contain each of the words as a line.
expect() {
  local shell=$1 offered word
  offered=$(cat)
  shift
  for word in "$@"; do
    grep -qxF -e "$word" <<<"$offered" ||
      { echo "completions: $shell does not offer $word, but: $offered" >&2; exit 1; }
  done
}

# shellcheck source=/dev/null
source "$share/bash-completion/completions/ruvodrive"
bash_offers() {
  COMP_WORDS=("$@")
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _ruvodrive
  printf '%s\n' "${COMPREPLY[@]}"
}
bash_offers ruvodrive '' | expect bash shot watch --display --param
bash_offers ruvodrive --display :1 sh | expect bash shot
bash_offers ruvodrive --param Upd | expect bash UpdatePeriod= UpdateBatchDelay=

# shellcheck source=/dev/null
source "$share/bash-completion/completions/ruvoview"
COMP_WORDS=(ruvoview --v) COMP_CWORD=1
_ruvoview
printf '%s\n' "${COMPREPLY[@]}" | expect bash --view-only

fish_file=$share/fish/vendor_completions.d/ruvodrive.fish
fish_offers() { fish --no-config -c "source '$fish_file'; complete -C '$1'" | cut -f1; }
fish_offers 'ruvodrive ' | expect fish shot watch
fish_offers 'ruvodrive --param Upd' | expect fish UpdatePeriod=

# zsh completes only at a terminal of its own: here the function that lists what it offers.
zsh_file=$(echo "$share"/zsh/*/_ruvodrive)
zsh -n "$zsh_file"
zsh_offers() {
  zsh -fc "compdef() { :; }; _describe() { print -rl -- \${(P)2}; }; _files() { :; }
           compadd() { shift; print -rl -- \$@; }; words=($1 ''); CURRENT=\$#words; source '$zsh_file'" |
    cut -d: -f1
}
zsh_offers ruvodrive | expect zsh shot watch --display
# Every command, and each of its options.
commands=$(ruvodrive --help | sed -nE 's/^  ([a-z][a-z, -]*[a-z])  .*/\1/p' | sed 's/, /\n/g')
[ "$(wc -l <<<"$commands")" -ge 19 ] || { echo "completions: too few commands in the help" >&2; exit 1; }
for command in $commands; do
  bash_offers ruvodrive '' | expect bash "$command"
  mapfile -t options < <(ruvodrive "$command" --help |
    sed -nE 's/^  (-[a-z],)?(--[a-z][a-z-]*).*/\2/p')
  bash_offers ruvodrive "$command" -- | expect bash "${options[@]}"
  fish_offers "ruvodrive $command --" | expect fish "${options[@]}"
  zsh_offers "ruvodrive $command" | expect zsh "${options[@]}"
done
echo "completions of bash, fish and zsh: good"
