#!/bin/bash
# What is put comes back by get, under every name, and nothing is said about it.
source "$(dirname "$0")/common.sh" "$1" proftpd sshd
silent() { ends 0 "$@" && said "" && [[ ! -s $work/output ]] || fail "$*: $(<"$work/output")"; }
echo spaced >"a b" && : >empty && mkdir got
names=("a b" empty 'c#d?e' "'\"" 'x*[a-z]' '100%') urls=(a%20b empty c%23d%3fe "'%22" 'x%2a%5ba-z]' 100%25)
for name in "${names[@]:2}"; do echo "$name" >"$name"; done
options=(--key "$KEY_PASS" --host-key strict --known-hosts "$KNOWN_HOSTS")
url=sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT/~
silent mkdir "$url/in" && silent put "a b" "$url/in" && silent put "${names[@]:1}" "$url/in/" && silent put empty "$url/in/xz"
silent get "${urls[@]/#/$url/in/}" got && for name in "${names[@]}"; do cmp "$name" "got/$name"; done
rm got/* && silent get "$url/in/x*[a-z]" "$url/in/*b" got/ && [[ $(ls got) == $'a b\nx*[a-z]' ]] || fail "$(ls got)"
silent get "$url/i?/[a-z]*[!z]" got && [[ $(ls got) == $'a b\nc#d?e\nempty\nx*[a-z]' ]] || fail "$(ls got)"
for option in "--tls opportunistic --cacert $CA_FILE" "--tls none --active"; do
    options=($option) && silent put "a b" "$ftp/renamed" && rm -r got && silent get "$ftp/renamed" got && silent rm "$ftp/renamed"
    cmp "a b" got
done
# Two sources with one name would become one file.
mkdir one two && touch {one,two}/r && ends 0 mkdir "$ftp"/{one,two} && silent put one/r "$ftp/one" && silent put two/r "$ftp/two"
mkdir "$HOME_DIR/only" && ends 1 get "$ftp/onl*" . --quiet --tls strict --tls none && said '*Only folders*' && rmdir "$HOME_DIR/only"
ends 2 get "$ftp/*/r" . && said '*both become*' && ends 2 put one/r two/r "$ftp/" && [[ ! -e r && ! -e $HOME_DIR/r ]]
# What is open is written to as it is.
silent put "a b" "$ftp/s" && "$qrftp" get "$ftp/s" /dev/stdout "${options[@]}" | cmp - "a b"
echo before >log && "$qrftp" get "$ftp/s" /dev/stdout "${options[@]}" >>log && cmp log <(echo before && cat "a b")
