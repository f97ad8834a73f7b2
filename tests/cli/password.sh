#!/bin/bash
# The command uses what it finds: files, the environment, netrc, keys. In which order, tests/unit/credentials_test.cpp says.
source "$(dirname "$0")/common.sh" "$1" proftpd
unset QRFTP_PASSWORD QRFTP_PASSPHRASE
logs_in() { # STATUS PATTERN ARGUMENT…: without a terminal
    local status=0
    setsid -w "$qrftp" ls "${@:3}" "${options[@]}" >"$work/output" 2>"$work/errors" </dev/null || status=$?
    [[ $status == "$1" ]] && said "$2" || fail "${*:3}: $status $(<"$work/errors")"
}
netrc() { printf '%s\n' "$@" >"$HOME/.netrc" && chmod 600 "$HOME/.netrc"; }
echo "$PASSWORD" >"$work/right" && chmod 600 "$work/right" && printf '%s\r\nmore\n' "$PASS_PHRASE" >"$work/phrase"
logs_in 4 '*no terminal*' "$ftp" && logs_in 4 '*no terminal*' "$sftp" && logs_in 0 "" "${ftp/@/:$PASSWORD@}"
QRFTP_PASSWORD=$PASSWORD logs_in 0 "" "$sftp"
# A command for the password sees no secrets; a signal ends it.
QRFTP_PASSWORD=no QRFTP_PASSPHRASE=no logs_in 0 "" "$ftp" --password-command "echo \$QRFTP_PASSWORD\$QRFTP_PASSPHRASE'$PASSWORD'"
"$qrftp" ls "$ftp" "${options[@]}" --password-command 'echo $$ >process; exec sleep 300' 2>"$work/errors" &
process=$! SECONDS=0
until [[ -s process ]]; do kill -0 $process || fail "$(<"$work/errors")"; done
kill $process && { wait $process || [[ $? == 143 ]]; } && ((SECONDS < 20)) && ! kill -0 "$(<process)" 2>/dev/null || fail "a command goes on"
netrc "machine 127.0.0.1 login $USER password \"$PASSWORD\"" && logs_in 0 "" "${ftp/$USER@/}" && logs_in 0 "" "$sftp"
chmod 644 "$HOME/.netrc" && logs_in 0 '*Warning*.netrc*' "$ftp"
# A netrc file that cannot be read stops nothing that does not need it.
rm "$HOME/.netrc" && mkdir "$HOME/.netrc" && logs_in 0 "" "$ftp" --password-file "$work/right" && logs_in 4 '*Warning*' "$ftp" && chmod 644 "$work/right" &&
    logs_in 0 '*Warning: others can read*right*' "$ftp" --password-file "$work/right" && rmdir "$HOME/.netrc"
logs_in 7 '*nowhere*' "$ftp" --password-file nowhere && logs_in 7 '*nowhere*' "$ftp" --netrc-file nowhere && logs_in 7 '*nowhere*' "$sftp" -i nowhere
logs_in 0 "" "$sftp" -i "$KEY_PASS" --pass-phrase-file "$work/phrase" && logs_in 4 '*no terminal*' "$sftp" --key "$KEY_PASS"
ssh-keygen -q -t ed25519 -N "" -f "$work/other_key" && logs_in 0 '*LOGIN key *other_key: refused*LOGIN key *: accepted*' "$sftp" -v -i "$work/other_key" -i "$KEY" # one of several that the server takes
# What was refused is said, not that nothing could be asked for.
logs_in 4 '*530 *key.' "$ftp" --password-command 'echo bad' && logs_in 4 '*other_key: refused; password: refused; *key.' "$sftp" -i "$work/other_key" --password-command 'echo bad'
QRFTP_PASSPHRASE=bad logs_in 4 '*key_pass: the pass phrase is wrong;*' "$sftp" -i "$KEY_PASS"
mkdir -p "$HOME/.ssh" && install -m 600 "$KEY" "$HOME/.ssh/id_ed25519" && logs_in 0 "" "$sftp"
printf 'Host alias\n HostName 127.0.0.1\n Port %s\n User %s\n' "$SFTP_PORT" "$USER" >"$work/config"
logs_in 0 "" sftp://alias --ssh-config "$work/config" && logs_in 3 '*' sftp://alias --ssh-config none
