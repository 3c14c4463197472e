# Completion of ruvodrive for fish. Commands, options and parameters are asked from the programs, so
# that they are those of the installed version.

# What a help text lists in its first column: word, tab, description.
function __ruvodrive_listed
    sed -nE -e 's/^ {1,4}(-[A-Za-z],)?(--[a-z-]+)([ ,][^ ]+)* {2,}(.*)$/\2\t\4/p' \
        -e 's/^ {1,4}([a-z][a-z-]*) {2,}(.*)$/\1\t\2/p'
end

function __ruvodrive_command
    set -l commands (ruvodrive --help 2>/dev/null | __ruvodrive_listed | string match -rv '^-' | string replace -r '\t.*' '')
    set -l command
    set -l words (commandline -opc)
    for word in $words[2..-1]
        if test "$word" = --
            set command
        else if test -z "$command"; and contains -- $word $commands
            set command $word
        end
    end
    test -z "$command"; or echo $command
end

function __ruvodrive_words
    ruvodrive (__ruvodrive_command) --help 2>/dev/null | __ruvodrive_listed
end

function __ruvodrive_parameters
    ruvoagent user -paramsxml 2>/dev/null | string replace -rf '.* name="([^"]*)".*' '$1='
end

complete -c ruvodrive -n 'test -z "$(__ruvodrive_command)"' -f
complete -c ruvodrive -a '(__ruvodrive_words)'
complete -c ruvodrive -l param -x -a '(__ruvodrive_parameters)'
complete -c ruvodrive -l mode -x -a 'service user virtual'
complete -c ruvodrive -l agent -r
