# Completion of ruvodrive for fish. Commands, options and parameters are asked from the programs, so
# that they are those of the installed version.

# The options and commands that a help text lists: word, tab, description.
function __ruvodrive_listed
    sed -nE -e '/^Positionals:/,/^$/d' \
        -e ':a' -e '/^ {1,4}[a-z-]+, /{h;s/^ +([a-z-]+), [a-z, -]*  ([^ ].*)$/\1\t\2/p;g;s/[a-z-]+, //;ta' -e '}' \
        -e 's/^ {1,4}(-[A-Za-z],)?(--[a-z-]+)([ ,][^ ]+)*( {2,}(.*))?$/\2\t\5/p' \
        -e 's/^ {1,4}([a-z][a-z-]*) {2,}(.*)$/\1\t\2/p'
end

function __ruvodrive_commands
    ruvodrive --help 2>/dev/null | __ruvodrive_listed | string match -rv '^-' | string replace -r '\t.*' ''
end

# The command that the words before stand for, one word a line: "clip", "get".
function __ruvodrive_command
    set -l commands (__ruvodrive_commands)
    set -l known $commands
    set -l command
    set -l words (commandline -opc)
    for word in $words[2..-1]
        if test "$word" = --
            set command
            set known $commands
        else if contains -- $word $known
            contains -- $word $commands; and set command
            set -a command $word
            set known (ruvodrive $command --help 2>/dev/null | __ruvodrive_listed | string match -rv '^-' | string replace -r '\t.*' '')
            string match -qr '^(record-session|monitors select)$' "$command"; and set -a known $commands
        end
    end
    printf '%s\n' $command
end

function __ruvodrive_words
    set -l command (__ruvodrive_command | string match -rv '^$')
    ruvodrive $command --help 2>/dev/null | __ruvodrive_listed
    if string match -qr '^(record-session|monitors select)$' "$command"
        __ruvodrive_commands
    end
end

function __ruvodrive_parameters
    ruvoagent user -paramsxml 2>/dev/null | string replace -rf '.* name="([^"]*)".*' '$1='
end

complete -c ruvodrive -n 'test -z "$(__ruvodrive_command)"' -f
complete -c ruvodrive -a '(__ruvodrive_words)'
complete -c ruvodrive -l param -x -a '(__ruvodrive_parameters)'
complete -c ruvodrive -l mode -x -a 'service user virtual'
complete -c ruvodrive -l agent -r
