#compdef qrftp
# zsh completion for qrftp(1): the program itself knows what may follow; names of local files are zsh's.

local line word text
local -a words_done texts_done words_open texts_open
local -i wants_files=0
for line in "${(@f)$("${(Q)words[1]}" --complete "${(@Q)words[2,CURRENT-1]}" "${(Q)PREFIX}" 2>/dev/null)}"; do
    word=${line%%$'\t'*}
    text=$word
    [[ $line != *$'\t'* ]] || text+="  -- ${line#*$'\t'}"
    case $word in
    '') ;;
    :files) wants_files=1 ;;
    *[/:=])
        words_open+=("$word")
        texts_open+=("$text")
        ;;
    *)
        words_done+=("$word")
        texts_done+=("$text")
        ;;
    esac
done
(( ! $#words_done )) || compadd -l -d texts_done -a words_done
(( ! $#words_open )) || compadd -l -S '' -d texts_open -a words_open
(( ! wants_files )) || _files
