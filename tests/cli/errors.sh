#!/bin/bash
# Whatever goes wrong is one sentence on standard error and an exit status; no file is left half written.
source "$(dirname "$0")/common.sh" "$1" proftpd
expect() { # STATUS PATTERN ARGUMENT…
    local status=0
    "$qrftp" "${@:3}" >output 2>errors </dev/null || status=$?
    [[ $status == "$1" && $(grep -c . errors) == 1 && $(<errors) == $2 ]] || fail "${*:3}: $status $(<errors)"
    rm output errors
    [[ $(ls) == there ]] || fail "${*:3} left $(ls)"
}
echo whole >there
plain=(--tls none)
expect 2 '*not a URL*' ls 'ftp://ho st/'
expect 2 '*not a URL*' ls "ftp://127.0.0.1:70000/"
expect 2 '*neither ftp:// nor sftp://*' ls http://127.0.0.1/
expect 2 '*names no file*' get "$ftp/folder/" "${plain[@]}"
expect 2 '*control character*' get "$ftp/a%0d%0aDELE%20there" "${plain[@]}"
expect 2 '*control character*' ls "$ftp/" "${plain[@]}" --user $'u\r\nDELE there'
expect 1 '*could not be entered*' ls "$ftp/nope" "${plain[@]}"
expect 1 '*"missing"*' get "$ftp/missing" "${plain[@]}"
expect 1 '*"missing"*' get "$ftp/missing" there "${plain[@]}"
expect 1 '*nowhere*' put nowhere "$ftp/" "${plain[@]}"
expect 1 '*could not be sent*' put there "$ftp/denied/there" "${plain[@]}"
expect 1 '*No connection*' ls "$ftp/" --cacert "$OTHER_CA_FILE"
expect 1 '*No connection*' ls "$ftp/"
expect 1 '*No connection*' ls "ftp://127.0.0.1:1/"
QRFTP_PASSWORD=wrong expect 1 '*refused*' ls "$ftp/" "${plain[@]}"
"$qrftp" put there "$ftp/" "${plain[@]}"
expect 1 '*disk*' get "$ftp/there" /dev/full "${plain[@]}"
"$qrftp" ls "$ftp/" --tls none >/dev/full 2>/dev/null && fail "a listing that cannot be written"
[[ $(<there) == whole ]]
