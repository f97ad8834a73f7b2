#!/bin/bash
# In three shells: subcommands, their own options, the values of options, local names, profiles and names on servers.
source "$(dirname "$0")/common.sh" "$1" proftpd
cli=$(readlink -f "$3/cli") shells=(bash)
for shell in zsh fish; do
    if type -P "$shell" >/dev/null; then shells+=("$shell"); else [[ -z ${CI:-} ]] || fail "$shell is missing"; fi
done
mkdir "$work/bin" && ln -s "$qrftp" "$work/bin/qrftp" && PATH=$work/bin:$PATH
source "$cli/completion.bash"
in_bash() { # LINE: bash breaks words at colons too
    local line=$1
    read -ra COMP_WORDS <<<"${line//:/ : }"
    [[ $line != *[\ :] ]] || COMP_WORDS+=("")
    COMP_LINE=$line COMP_POINT=${#line} COMP_CWORD=$((${#COMP_WORDS[@]} - 1)) COMPREPLY=()
    _qrftp || true
    local start=${line##* } && [[ $start == *:* ]] && start=${start%"${start##*:}"} || start=
    printf %s "${COMPREPLY[@]/%/$'\n'}" | sed "s|^|$start|"
}
in_zsh() { # LINE
    zsh -fc 'compadd() { print -rl -- "${(@P)@[-1]}"; }
        _files() { print -rl -- "$PREFIX"*(N); }
        complete_it() { source "$1"; }
        words=("${(@s: :)1}") CURRENT=$#words PREFIX=$words[-1]
        complete_it "$2"' zsh "$1" "$cli/completion.zsh"
}
in_fish() { # LINE
    fish --no-config -c "source $cli/completion.fish; complete -C \"\$argv[1]\"" "$1" | cut -f 1
}
becomes() { # LINE COMPLETION…
    local shell got
    for shell in "${shells[@]}"; do
        got=$("in_$shell" "qrftp $1" | sed 's/\\ / /g' | LC_ALL=C sort | paste -sd ,)
        [[ $got == "$2" ]] || fail "$shell, $1: $got"
    done
}
mkdir -p "$HOME_DIR/top/a b" "$HOME_DIR/top/logs" "$HOME/.config/qrftp" && : >"$HOME_DIR/top/a*" && : >"$HOME_DIR/top/i'\"\$\`" && : >local.txt && chmod -R a+rX "$HOME_DIR/top"
printf '[work]\nurl = "%s/~/top"\nknown-hosts = "%s"\n' "$sftp" "$KNOWN_HOSTS" >"$HOME/.config/qrftp/config.toml"
becomes p "ping,profile,put,pwd" && becomes "profile s" "set,show" && becomes "profile show w" work
becomes "tree --de" --depth && becomes "ls --tls s" strict && becomes "profile set work known-h" known-hosts=
becomes "put lo" local.txt && becomes "ls --user lo" "" && becomes "shell --batch lo" local.txt
becomes "ls wo" work: && becomes "ln -s a wo" work: && becomes "ls work:l" work:logs/ && becomes "put local.txt work:" "work:a b/,work:a%2A,work:i%27%22%24%60,work:logs/"
becomes "ls --known-hosts $KNOWN_HOSTS $sftp/~/top/l" "$sftp/~/top/logs/" && becomes "ls $sftp" ""
# Between quotes, a name of a local file stays one word of the shell.
odd="it's;\$(touch x)\`\\\"" && : >"$odd"
for quote in \' \"; do
    COMP_WORDS=(qrftp put "${quote}it") COMP_CWORD=2 COMP_LINE="qrftp put ${quote}it" COMP_POINT=13
    _qrftp && eval "set -- $quote${COMPREPLY[0]}$quote" && [[ $# == 1 && $1 == "$odd" ]] || fail "${COMPREPLY[0]}"
done
