#!/bin/bash
# What is put comes back by get, over every protocol and under every name, and nothing is said about it.
source "$(dirname "$0")/common.sh" "$1" proftpd sshd
silent() { ends 0 "$@" && said "" && [[ ! -s $work/output ]] || fail "$*: $(<"$work/output")"; }
head -c 3000000 /dev/urandom >"a b" && : >empty
names=("a b" empty 'c#d?e' "'\"" 'x*[a-z]' '100%') urls=(a%20b empty c%23d%3fe "'%22" 'x%2a%5ba-z]' 100%25)
for name in "${names[@]:2}"; do echo "$name" >"$name"; done
round_trips() { # URL OPTION…: of the login folder
    options=("${@:2}" --host-key strict --known-hosts "$KNOWN_HOSTS")
    mkdir got && silent mkdir "$1/in" && echo other >other
    silent put "a b" "$1/renamed" && silent get "$1/renamed" got && cmp "a b" got/renamed
    silent put "a b" "$1/in" && silent put "${names[@]:1}" "$1/in/" && silent put other "$1/in/xz"
    rm got/renamed && silent get "${urls[@]/#/$1/in/}" got
    for name in "${names[@]}"; do cmp "$name" "got/$name"; done
    rm got/* && silent get "$1/in/x*[a-z]" "$1/in/*b" got/ && [[ $(ls got) == $'a b\nx*[a-z]' ]] || fail "$1: $(ls got)"
    silent get "$1/i?/[a-z]*[!z]" got && [[ $(ls got) == $'a b\nc#d?e\nempty\nx*[a-z]' ]] || fail "$1: $(ls got)"
    silent rm -r "$1/in" "$1/renamed" && rm -r got other && [[ $(ls "$HOME_DIR") == denied ]]
}
# Two sources with one name would become one file.
mkdir one two && touch {one,two}/r && options=(--tls none)
ends 0 mkdir "$ftp"/{one,two} && silent put one/r "$ftp/one" && silent put two/r "$ftp/two" && ends 2 get "$ftp/*/r" . && said '*both become*'
ends 2 put one/r two/r "$ftp/" && [[ ! -e r && ! -e $HOME_DIR/r ]] && silent rm -r "$ftp"/{one,two}
# What is open is written to as it is.
silent put "a b" "$ftp/s" && "$qrftp" get "$ftp/s" /dev/stdout "${options[@]}" | cmp - "a b"
echo before >log && "$qrftp" get "$ftp/s" /dev/stdout "${options[@]}" >>log && cmp log <(echo before && cat "a b") && silent rm "$ftp/s"
round_trips "$ftp" --tls opportunistic --cacert "$CA_FILE"
round_trips "$ftp/$HOME_DIR" --tls none --active
round_trips "sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT/~" --key "$KEY_PASS"
