#!/bin/bash
# Where passwords come from, and in which order.
source "$(dirname "$0")/common.sh" "$1" proftpd
unset QRFTP_PASSWORD QRFTP_PASSPHRASE
logs_in() { # STATUS PATTERN ARGUMENT…: without a terminal
    local status=0
    setsid -w "$qrftp" ls "${@:3}" "${options[@]}" >"$work/output" 2>"$work/errors" </dev/null || status=$?
    [[ $status == "$1" ]] && said "$2" || fail "${*:3}: $status $(<"$work/errors")"
}
with() { QRFTP_PASSWORD=$1 logs_in "${@:2}"; }
netrc() { printf '%s\n' "$@" >"$HOME/.netrc" && chmod 600 "$HOME/.netrc"; }
echo "$PASSWORD" >"$work/right" && echo wr0ng >"$work/wrong" && printf '%s\r\nmore\n' "$PASS_PHRASE" >"$work/phrase"
for server in "$ftp" "$sftp/~"; do
    right=${server/@/:$PASSWORD@} wrong=${server/@/:wr0ng@} nobody=${server/$USER@/}
    logs_in 4 '*no password*' "$server" && logs_in 0 '*Warning*URL*' "$right" && logs_in 4 '*refused*' "$wrong"
    # Each source beats those behind it.
    logs_in 0 '*' "$right" --password-file "$work/wrong" && logs_in 4 '*refused*' "$wrong" --password-file "$work/right"
    logs_in 0 '*' "$server" --password-file "$work/right" && with wr0ng 0 '*' "$server" --password-file "$work/right"
    netrc "default login $USER password wr0ng" && with "$PASSWORD" 0 '*' "$server" && with wr0ng 4 '*refused*' "$server"
    netrc "machine other login $USER password wr0ng" "machine 127.0.0.1 login other password wr0ng" \
        "machine 127.0.0.1 login $USER password \"$PASSWORD\"" "default login $USER password wr0ng"
    logs_in 0 '*' "$server" && logs_in 0 '*' "$nobody" --user "$USER" && logs_in 4 '*refused*' "$nobody"
    chmod 644 "$HOME/.netrc" && logs_in 0 '*Warning*.netrc*' "$server" && rm "$HOME/.netrc"
done
logs_in 7 '*nowhere*' "$ftp" --password-file nowhere && logs_in 7 '*nowhere*' "$ftp" --netrc-file nowhere
logs_in 0 '*' "$sftp" --key "$KEY_PASS" --pass-phrase-file "$work/phrase" && logs_in 4 '*no pass phrase*' "$sftp" --key "$KEY_PASS"
mkdir -p "$HOME/.ssh" && install -m 600 "$KEY" "$HOME/.ssh/id_ed25519" && logs_in 0 '*' "$sftp"
