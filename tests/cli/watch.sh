#!/bin/bash
# sync --watch sends what changes while it runs, also over a server that goes and comes back, until it is ended.
source "$(dirname "$0")/common.sh" "$1" proftpd sshd
deadline=60
told() { # LINE…: what is printed next, in any order
    local line lines=()
    while ((${#lines[@]} < $#)); do
        read -r -t "$deadline" -u "$output" line || fail "not $*: ${lines[*]}"
        lines+=("$line")
    done
    [[ $(printf '%s\n' "${lines[@]}" | sort) == "$(printf '%s\n' "$@" | sort)" ]] || fail "not $*: ${lines[*]}"
}
mkdir site && echo 1 >site/old
coproc watch {
    exec "$qrftp" sync --watch --delete --links --exclude '*.tmp' site "sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT/~/w" \
        --known-hosts "$KNOWN_HOSTS" --key "$KEY" 2>&1
}
process=$watch_PID
exec {output}<&"${watch[0]}"
told "make folder w (missing)" "copy old (missing)" "watch site"
echo 1 >site/new && told "copy new (missing)" && echo 2 >site/new && told "copy new (newer)" && [[ $(<"$HOME_DIR/w/new") == 2 ]]
mv site/new site/moved && told "rename new to moved" && [[ $(<"$HOME_DIR/w/moved") == 2 && ! -e $HOME_DIR/w/new ]]
mkdir -p site/a/b && echo 3 >site/a/b/c && told "make folder a (missing)" "make folder a/b (missing)" "copy a/b/c (missing)"
mkdir site/d && mv site/a site/d/ && told "rename a to d/a" && echo 4 >site/d/a/b/c && told "copy d/a/b/c (newer)"
ln -s old site/link && told "make link link (missing)" && [[ $(readlink "$HOME_DIR/w/link") == old ]]
# As editors save: under another name first.
echo 5 >site/x.tmp && mv site/x.tmp site/x && told "copy x (missing)"
rm -r site/d site/link && told "remove file d/a/b/c (extra)" "remove folder d/a/b (extra)" "remove folder d/a (extra)" \
    "remove folder d (extra)" "remove file link (extra)"
for ((i = 0; i < 1000; ++i)); do echo $i >"site/n$i" && copies[i]="copy n$i (missing)"; done
told "${copies[@]}" && diff -r site "$HOME_DIR/w"
# What failed is tried again.
chmod a-w "$HOME_DIR/w" && echo 8 >site/q && read -r -t "$deadline" -u "$output" line && [[ $line == *denied* ]] && chmod a+w "$HOME_DIR/w" && told "copy q (missing)"
# The server goes, with the connection, and comes back.
read -r -a sessions <"/proc/$SSHD_PID/task/$SSHD_PID/children" || true
kill "$SSHD_PID" "${sessions[@]}" && echo 6 >site/y
until [[ ${line:-} == *"Trying to connect again"* ]]; do read -r -t "$deadline" -u "$output" line || fail "it noticed nothing"; done
as_server=() && ((EUID)) || as_server=(setpriv --reuid=daemon --regid=daemon --clear-groups)
"${as_server[@]}" "$(PATH=$PATH:/usr/sbin type -P sshd)" -D -e -f "$work/servers/sshd.conf" 2>/dev/null &
again=$!
told "copy y (missing)" && echo 7 >site/z && told "copy z (missing)" && diff -r site "$HOME_DIR/w"
status=0
kill -INT "$process" && told "qrftp: Interrupted." && wait "$process" || status=$?
[[ $status == 130 ]] || fail "status $status"
# What is newer on the server is kept, also where a local file takes its name.
echo newer >"$HOME_DIR/w/old" && touch -d 2100-01-01 "$HOME_DIR/w/old"
timeout 20 "$qrftp" sync --watch --update site "sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT/~/w" --known-hosts "$KNOWN_HOSTS" --key "$KEY" >said 2>&1 &
until grep -q watch said; do sleep 0.1; done
mv site/z site/old && echo 9 >site/end && until [[ -e $HOME_DIR/w/end ]]; do sleep 0.1; done
[[ $(<"$HOME_DIR/w/old") == newer ]] || fail "$(<said)"
kill "$again" $!
