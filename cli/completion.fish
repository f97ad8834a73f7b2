# fish completion for qrftp(1): the program itself knows what may follow; names of local files are fish's.

function __qrftp_complete
    set -l words (commandline -opc)
    set -l current (commandline -ct)
    for line in ($words[1] --complete $words[2..-1] $current 2>/dev/null)
        if test "$line" = :files
            __fish_complete_path $current
        else
            echo $line
        end
    end
end

complete -c qrftp -f -a '(__qrftp_complete)'
