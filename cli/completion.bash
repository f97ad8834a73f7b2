# bash completion for qrftp(1): subcommands, options as the program's own help has them, local files.

_qrftp() {
    local word=${COMP_WORDS[COMP_CWORD]} previous=${COMP_WORDS[COMP_CWORD - 1]} words=
    COMPREPLY=()
    case $previous in
    --tls) words='none opportunistic strict' ;;
    --host-key) words='strict accept-new off' ;;
    --type) words='f d l' ;;
    --colour | --color) words='auto always never' ;;
    --password-file | --netrc-file | --cacert | -i | --key | --ssh-config | --pass-phrase-file | --known-hosts | --batch) ;;
    -u | --user | -j | --jobs | --include | --exclude | --limit-rate | --depth | --max-depth | --max-delete | --count | --name | --newer | --older | --larger | --smaller | -d | --date | --*-timeout | --timeout)
        return
        ;;
    *)
        if [[ $word == -* ]]; then
            local subcommand=${COMP_WORDS[1]}
            [[ $subcommand == -* ]] && subcommand=
            words=$("${COMP_WORDS[0]}" $subcommand --help 2>/dev/null | grep -oE '^  (-.,)?--[a-z,-]+' |
                grep -oE -- '--[a-z-]+')
        elif ((COMP_CWORD == 1)); then
            words=$("${COMP_WORDS[0]}" --help 2>/dev/null | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]*\) .*/\1/p')
        fi
        ;;
    esac
    local IFS=$'\n'
    if [[ $words ]]; then
        COMPREPLY=($(compgen -W "${words//[ $'\n']/$'\n'}" -- "$word"))
    elif ((COMP_CWORD > 1)); then
        COMPREPLY=($(compgen -f -- "$word"))
        compopt -o filenames 2>/dev/null
    fi
}
complete -F _qrftp qrftp
