#!/bin/bash
# Standard input and output, and pipes: whole or not at all.
source "$(dirname "$0")/common.sh" "$1" proftpd sshd
head -c 3000000 /dev/urandom >file && echo old >old
options=(--tls none --known-hosts "$KNOWN_HOSTS" --key "$KEY")
for url in "$ftp" "sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT/~"; do
    "$qrftp" put - "$url/in" "${options[@]}" < <(cat file) && cmp file "$HOME_DIR/in" || fail "$url: from standard input"
    "$qrftp" put <(cat file) "$url/pipe" "${options[@]}" && cmp file "$HOME_DIR/pipe" || fail "$url: from a pipe"
    "$qrftp" get "$url/in" - "${options[@]}" | cmp - file || fail "$url: to standard output"
    ! timeout 20 "$qrftp" put - "$url/none" "${options[@]}" <&- 2>"$work/errors" && said '*standard input*' || fail "$url: closed"
    ! "$qrftp" get "$url/in" - "${options[@]}" <&- >&- 2>"$work/errors" && said '*not be written*' || fail "$url: lost"
    # Who reads nothing, and who is interrupted, replaces nothing.
    ends 0 put old "$url/in" && ! "$qrftp" put - "$url/in" "${options[@]}" </ 2>"$work/errors" && said '*standard input*'
    mkfifo pipe && exec 3<>pipe
    "$qrftp" put pipe "$url/in" "${options[@]}" 2>"$work/errors" &
    process=$! && cat file >&3
    until [[ $(find "$HOME_DIR" -name '.qrftp-*' -size +0) ]]; do kill -0 $process || fail "$(<"$work/errors")"; done
    kill -INT $process && ! wait $process && said "qrftp: Interrupted." && exec 3>&- && rm pipe
    [[ $(<"$HOME_DIR/in") == old && ! $(find "$HOME_DIR" -name '.qrftp-*') ]] || fail "$url: $(ls -A "$HOME_DIR")"
    ends 2 put - "$url/" && said '*name it*' && rm -f "$HOME_DIR"/{in,pipe}
done
