#!/bin/bash
# Whatever is done, with all that can be shown and remembered: no secret is left anywhere, nor seen by others while it runs.
source "$(dirname "$0")/common.sh" "$1" proftpd
export TMPDIR=$work/tmp XDG_STATE_HOME=$work/state LC_ALL=C.UTF-8 TERM=xterm
wrong='wr0ng/h@rse p%ss' encoded=wr0ng%2Fh%40rse%20p%25ss given=$work/given shown=$work/shown secrets=(-e wr0ng%2F) count=0
mkdir "$TMPDIR" "$given" "$shown"
for secret in "$PASSWORD" "$wrong" "$PASS_PHRASE"; do
    base64=$(printf %s "$secret" | base64) bytes=$(printf %s "$secret" | od -An -tx1 | tr -d '\n' | tr ' ' %)
    for form in "$secret" "${base64%%=*}" "$bytes"; do secrets+=(-e "$form") && echo "$form" >>"$given/forms"; done
done
printf '%s\n' "$PASSWORD" >"$given/right" && printf '%s\n' "$wrong" >"$given/wrong" && printf '%s\n' "$PASS_PHRASE" >"$given/phrase"
printf 'machine 127.0.0.1 login %s password %s\n' "$USER" "$PASSWORD" >"$given/netrc" && chmod 600 "$given/netrc"
search() { grep -raiF "${secrets[@]}" --exclude-dir=servers "$@"; } # there the test itself has put them, as in "given"
[[ $(search "$given" | wc -l) == 13 ]] || fail "the search finds $(search "$given")"
no_leak() { ! search --exclude-dir=given "$work" >"$given/found" || fail "$1: $(<"$given/found")"; }
runs() { # STATUS ARGUMENT…: keeps what it says
    local status=0 to=$shown/$((count += 1))
    setsid -w "$qrftp" "${@:2}" -v >"$to" 2>"$to.errors" </dev/null || status=$?
    [[ $status == "$1" ]] || fail "${*:2}: $status $(tail -n 1 "$to.errors")"
}
session() { # URL OPTION…: everything once
    local url=$1 job process
    for job in "ping $url" "ls -l --json $url/" "put there $url/t" "get $url/t --json" "sync s $url/s --json" "rm -r $url/s"; do runs 0 $job "${@:2}"; done
    runs 5 get "$url/nowhere" "${@:2}" && runs 5 rm "$url/nowhere" --json "${@:2}" && runs 2 ls "$url/a%0d" "${@:2}"
    printf '%s\n' "cat t" "cd nowhere" >"$work/batch" && runs 5 shell --batch "$work/batch" "$url" "${@:2}"
    "$qrftp" get "$url/big" --limit-rate 64k -v "${@:2}" >"$shown/slow" 2>"$shown/slow.errors" </dev/null &
    process=$! SECONDS=0
    until [[ $(find . -name '.qrftp-*' -size +0) ]]; do ((SECONDS < 20)) && kill -0 "$process" || fail "nothing began"; done
    cat "/proc/$process/cmdline" >"$shown/command" # what others see of a process
    no_leak "$*" && kill "$process" && { wait "$process" || true; }
}
unset QRFTP_PASSWORD QRFTP_PASSPHRASE
echo whole >there && mkdir s && echo 1 >s/1 && truncate -s 64M "$HOME_DIR/big" && chmod 644 "$HOME_DIR/big" && known=(--known-hosts "$KNOWN_HOSTS")
session "${ftp/@/:$PASSWORD@}" --tls none && QRFTP_PASSWORD=$PASSWORD session "$ftp" --cacert "$CA_FILE"
session "$sftp/~" "${known[@]}" --netrc-file "$given/netrc"
QRFTP_PASSPHRASE=$PASS_PHRASE session "$sftp/~" "${known[@]}" --key "$KEY_PASS"
for server in "$ftp --tls none" "$ftp --cacert $CA_FILE" "$sftp ${known[*]}"; do
    runs 4 ping $server --password-file "$given/wrong" && QRFTP_PASSWORD=$wrong runs 4 ls $server --json
    runs 0 ls ${server/@/:$PASSWORD@} && runs 4 ls ${server/@/:$encoded@}
done
runs 4 ls "$sftp" "${known[@]}" --key "$KEY_PASS" --pass-phrase-file "$given/wrong" && no_leak "the logins"
type -P expect >/dev/null || { [[ -z ${CI:-} ]] && exit 77; fail "expect is missing"; }
expect -c "set timeout 20; spawn -noecho $qrftp shell ${ftp/@/:$PASSWORD@} --tls none -v; expect home>; send \"pwd\rexit\r\"; expect eof" >"$shown/shell"
[[ $(<"$XDG_STATE_HOME/qrftp/history") == *pwd* ]] && no_leak "the shell"
