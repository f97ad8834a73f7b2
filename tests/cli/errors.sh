#!/bin/bash
# Whatever goes wrong is one sentence on standard error and an exit status; nothing is left behind on either side.
source "$(dirname "$0")/common.sh" "$1" proftpd
wrong() { # STATUS PATTERN ARGUMENT…
    ends "$1" "${@:3}" && said "qrftp: $2"
    [[ $(wc -l <"$work/errors") == "${lines:-1}" && ! -s $work/output ]] || fail "${*:3}: $(cat "$work"/{errors,output})"
    [[ $(ls -A . "$HOME_DIR") == "$before" ]] || fail "${*:3} left $(ls -A . "$HOME_DIR")"
}
mkdir folder "$HOME_DIR/folder" && echo whole >there && echo stays >"$HOME_DIR/there" && chmod 644 "$HOME_DIR/there" && before=$(ls -A . "$HOME_DIR")
key=$(cut -d ' ' -f 2 "$KEY_PUB") && sed "s:AAAA.*:$key:" "$KNOWN_HOSTS" >"$work/changed"
options=()
wrong 2 '*"frob"*' frob
wrong 2 '*--frob*' ls "$ftp/" --frob
for url in 'ftp://ho st/' ftp://127.0.0.1:70000/ http://127.0.0.1/ "$ftp/a%0d%0aDELE%20there"; do wrong 2 '*is not the URL*' get "$url"; done
wrong 2 '*less than 0*' get "$ftp/there" --limit-rate -5
wrong 2 '*not the URL*no profile "nosuch"*' ls nosuch:a
wrong 2 '*same server*' ls "$ftp/" "$sftp/"
wrong 2 '*not a URL*' mv "$ftp/there" "$ftp/new"
wrong 2 '*cannot be sent*' ls "$ftp/" --tls none --user $'u\r\nDELE there'
wrong 3 '*No connection*' ls ftp://127.0.0.1:1/
for trust in "--cacert $OTHER_CA_FILE" "--tls strict" "--tls opportunistic"; do wrong 9 '*certificate*' ls "$ftp/" $trust; done
for check in strict accept-new; do wrong 9 '*not the one*' ls "$sftp/" --host-key $check --known-hosts "$work/changed"; done
wrong 7 '*nowhere*' ls "$ftp/" --cacert nowhere
url=$ftp
options=(--tls none)
QRFTP_PASSWORD=wrong wrong 4 '*refused*' ls "$url/"
for words in ls\ no/pe {ls,get,rm,stat}\ nope get\ 'no*' "put there nope/"; do wrong 5 '*"*no*"*' ${words% *} "$url/${words##* }"; done
wrong 5 '*nope*' get "$url/nope" there
for words in {ls,"put there"}\ denied {get,rm,mkdir}\ denied/a; do wrong 6 '*allow*denied*' ${words% *} "$url/${words##* }"; done
for words in get rm "put folder"; do wrong 1 '*is a folder*; -r *' $words "$url/folder"; done
wrong 7 '*nowhere*' put nowhere "$url/"
wrong 7 '*/dev/full*' get "$url/there" /dev/full
wrong 7 'The local folder "nowhere" does not exist; make it first.' get "$url/there" nowhere/there
wrong 7 'There is no local folder "nowhere".' sync -q nowhere "$url/"
for words in "put there" get; do wrong 1 '*already*' $words "$url/there" --no-replace; done
[[ $(<there) == whole && $(<"$HOME_DIR/there") == stays ]]
lines=2 wrong 8 '*nope*nope2*' get "$url/nope" "$url/there" "$url/nope2" && [[ $(<there) == stays ]]
echo whole >there
status=0 && "$qrftp" ls "$ftp/" "${options[@]}" >/dev/full 2>"$work/errors" || status=$?
[[ $status == 1 ]] && said '*output*'
