# bash completion for qrftp(1): the program itself knows what may follow; names of local files are bash's.

_qrftp() {
    local current=${COMP_WORDS[COMP_CWORD]} typed= tail= word rest
    COMPREPLY=()
    while IFS=$'\t' read -r word rest; do
        case $word in
        :word)
            typed=$rest tail=$rest
            # bash has broken the word at these characters, and replaces what is behind the last one.
            [[ $current == [\'\"]* ]] || tail=${typed##*[:=@]}
            ;;
        :files)
            while IFS= read -r word; do
                [[ ! -d ${word/#\~/$HOME} ]] || word+=/
                _qrftp_add "$word"
            done < <(compgen -f -- "$tail")
            ;;
        *) _qrftp_add "${word:${#typed}-${#tail}}" ;;
        esac
    done < <("${COMP_WORDS[0]}" --complete-line "${COMP_LINE:0:COMP_POINT}" 2>/dev/null)
}

_qrftp_add() { # WORD: the shell must not take a name, which may come from elsewhere, for a command
    local word=$1 special
    case $current in
    \'*) word=${word//\'/"'\\''"} ;;
    \"*) for special in \\ \" \$ \`; do word=${word//"$special"/"\\$special"}; done ;;
    *)
        printf -v word %q "$word"
        # In the middle of a quoted word, $'…' would not be what it is outside.
        [[ $word != *\$\'* || ${COMP_LINE:0:COMP_POINT} != *[\'\"]* ]] || return 0
        word=${word/#\\~/\~}
        ;;
    esac
    COMPREPLY+=("$word")
    [[ $word != *[/:=] ]] || compopt -o nospace 2>/dev/null
}

complete -F _qrftp qrftp
