#!/bin/bash
# What is put comes back by get, is listed by ls; nothing else is written when the output is no terminal.
source "$(dirname "$0")/common.sh" "$1" proftpd sshd
known=(--known-hosts "$KNOWN_HOSTS")
head -c 3000000 /dev/urandom >"a b"
round_trip() { # URL OPTION…
    rm -f c
    "$qrftp" put "a b" "$1/" "${@:2}" && "$qrftp" get "$1/a%20b" c "${@:2}" && cmp "a b" c
    "$qrftp" ls "$1/" "${@:2}" | grep -q ' 3000000 .* a b$'
    [[ $(ls) == $'a b\nc' ]]
}
{
    round_trip "$ftp" --tls none
    round_trip "$ftp" --cacert "$CA_FILE"
    round_trip "$ftp" --tls opportunistic --cacert "$CA_FILE"
    "$qrftp" put "a b" "$ftp//" --tls none 2>/dev/null && fail "// is the root, where nobody may write"
    round_trip "$ftp/$HOME_DIR" --tls none --active
    round_trip "$sftp$HOME_DIR" "${known[@]}"
    round_trip "$sftp/~" --key "$KEY" "${known[@]}"
    round_trip "$sftp/~" --key "$KEY_PASS" --pass-phrase "${known[@]}"
    round_trip "sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT/~" --key "$KEY" "${known[@]}"
} 2>"$work/errors"
[[ $("$qrftp" pwd "$ftp/" --tls none) == "$HOME_DIR" ]]
[[ ! -s $work/errors ]] || fail "$(<"$work/errors")"
# An interrupt ends the transfer and leaves neither a file nor a part of one.
truncate -s 1G "$HOME_DIR/big" && chmod 644 "$HOME_DIR/big"
mkfifo "$work/log"
"$qrftp" get "$sftp/~/big" "${known[@]}" -v 2>"$work/log" &
interrupted=$!
exec 9<"$work/log"
grep -m1 -q 'Response from' <&9 # logged in
kill -INT "$interrupted"
status=0
wait "$interrupted" || status=$?
[[ $status == 130 && $(ls) == $'a b\nc' ]]
