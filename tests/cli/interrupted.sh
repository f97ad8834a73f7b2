#!/bin/bash
# An interrupted transfer leaves the old file whole and no part of the new one; a killed one at most a part beside it.
source "$(dirname "$0")/common.sh" "$1" proftpd
parts() { find "$HOME_DIR" . -maxdepth 1 -name '.*' -type f "$@"; }
cut_short() { # SIGNAL STATUS ARGUMENT…: as soon as a part has content
    local status=0 process
    touch "$work/mark"
    "$qrftp" "${@:3}" --limit-rate 2M "${options[@]}" 2>"$work/errors" &
    process=$! SECONDS=0
    until [[ $(parts -size +0 -newer "$work/mark") ]]; do
        ((SECONDS < 20)) && kill -0 "$process" || fail "${*:3} began nothing: $(<"$work/errors")"
    done
    { kill "-$1" "$process" && sleep 0.002 && { kill "-$1" "$process" || true; }; } 2>/dev/null # as timeout(1) does
    { wait "$process" || status=$?; } 2>/dev/null
    [[ $status == "$2" && $(<old) == whole && $(<"$HOME_DIR/old") == whole ]] || fail "$*: $status $(<"$work/errors")"
}
echo whole >old && truncate -s 1G big "$HOME_DIR/big" && chmod 644 "$HOME_DIR/big"
url=$ftp
ends 0 put old "$url/"
for transfer in "INT 130 put big $url/old" "TERM 143 get $url/big old" "HUP 129 get $url/big old"; do
    cut_short $transfer && said "qrftp: Interrupted." && [[ ! $(parts) ]] || fail "$transfer: $(parts)"
done
cut_short KILL 137 put big "$url/old" && cut_short KILL 137 get "$url/big" old
[[ ! $(parts ! -name '.qrftp-*.part') ]] || fail "$(parts)"
# With -c the part stays, and the next -c goes on from it.
head -c 6000000 /dev/urandom >big && cp big "$HOME_DIR/big" && chmod 644 "$HOME_DIR/big"
for transfer in "put -c big $url/new" "get -c $url/big new"; do
    parts -delete && cut_short INT 130 $transfer && [[ $(parts | wc -l) == 1 ]] || fail "$transfer: $(parts)"
    ends 0 $transfer -v && [[ $(<"$work/errors") == *"> APPE "* || $(<"$work/errors") == *"> REST "* ]] && [[ ! $(parts) ]] ||
        fail "$transfer: $(<"$work/errors")"
done
cmp big new && cmp big "$HOME_DIR/new" && rm new big
ends 0 get "$url/old" old2 && ends 0 put old2 "$url/old" && cmp old old2
parts -delete
