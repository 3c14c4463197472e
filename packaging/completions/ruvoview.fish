# Completion of ruvoview for fish.

function __ruvoview_listed
    ruvoview --help 2>/dev/null | sed -nE 's/^ {1,4}(-[A-Za-z],)?(--[a-z-]+)([ ,][^ ]+)* {2,}(.*)$/\2\t\4/p'
end

function __ruvoview_parameters
    ruvoagent user -paramsxml 2>/dev/null | string replace -rf '.* name="([^"]*)".*' '$1='
end

complete -c ruvoview -f
complete -c ruvoview -a '(__ruvoview_listed)'
complete -c ruvoview -l param -x -a '(__ruvoview_parameters)'
complete -c ruvoview -l new -x -a '1280x720 1920x1080'
complete -c ruvoview -l listen -x -a '127.0.0.1: unix:'
complete -c ruvoview -l agent -r -F
complete -c ruvoview -l token-file -r -F
complete -c ruvoview -l cert -r -F
complete -c ruvoview -l key -r -F
