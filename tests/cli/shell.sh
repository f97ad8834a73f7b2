#!/bin/bash
# The shell: what is typed at a terminal, completed, remembered and interrupted; and lines that nobody types.
source "$(dirname "$0")/common.sh" "$1" proftpd
type -P expect >/dev/null || { [[ -z ${CI:-} ]] && exit 77; fail "expect is missing"; }
export HOME=$work XDG_STATE_HOME=$work/state LC_ALL=C.UTF-8 TERM=xterm SHELL=/bin/sh
mkdir -m 755 "$HOME_DIR"/{"a folder",ab} && truncate -s 64G "$HOME_DIR/big"
echo one >"$HOME_DIR/a folder/ä 1" && echo two >"$HOME_DIR/other" && chmod 644 "$HOME_DIR"/{a*/*,big,other}
shell=("$qrftp" shell "$ftp" --tls none)
cat >"$work/dialogue" <<'END'
set timeout 20
proc fail {} { puts "\nThis did not come: $::awaited"; exit 1 }
proc type {keys pattern} { send $keys; set ::awaited $pattern; expect -re $pattern {} timeout fail eof fail }
spawn {*}$argv
type "" {^127.0.0.1:/.*/home> $}
type "cd a\t\t" {a folder/ +ab/\r\n.*> cd a}
type " \177 f\t\177\177\177 \177\177\177\177\177cd a\\ \t\r" {/home/a folder> $}
type "get \t\r" {ä\\ 1 \r\n[^>]*> $}
type "!cat ä*; false\r" {one\r\nqrftp: .*status 1\.\r\n.*> $}
type "cd -\r" {/home> $}
type "put ä\t\"c \\\"d\\\"\"\r" {home> $}
type "mget o* c*\r" {home> $}
type "cat nowhere\r" {\nqrftp: [^\r]*nowhere[^\r]*\r\n.*home> $}
type "get b\t\r" { left}
type "\003" {qrftp: Interrupted\.\r\n.*home> $}
type "help cd\rexit\r" {Change the remote folder.*home> exit\r\n$}
expect eof
spawn {*}$argv
type "" {home> $}
type "\033\[A\033\[A\r" {help cd\r\nChange .*home> $}
type "\004" {\r\n$}
expect eof; exit [lindex [wait] 3]
END
expect "$work/dialogue" "${shell[@]}" >"$work/seen" || fail "$(<"$work/seen")"
[[ $(ls) == $'c "d"\nother\nä 1' && $(cat -- *) == $'one\ntwo\none' ]] || fail "$(ls)"
[[ $(stat -c %a "$work"/state/qrftp{,/history}) == $'700\n600' ]] || fail "others may read the history"
run() { status=0 && "${shell[@]}" "$@" >"$work/output" 2>"$work/errors" || status=$?; }
# Each command once, over both protocols; where it says something, what it says.
cat >"$work/all" <<'END'
mkdir -p m/a/b; cd m/a; rmdir b; cd -; cd ~; cd m; pwd
lcd local; lpwd; lls -a; lls -1 f*
put f1; put -t f2 a/.h; mput -t f*; put -c f1
ls -r; dir --json f1; ls -a a; ls; ls -1S
cat 'f1' f2; stat --json f2; du -s; tree; ping --json
mv f1 a; mv -f a/f1 g; touch-nothing
-cat nowhere; -close now
get g h; get -c g h; mget -r a; lls h a/.h
rm g; rm -r --dry-run a; rm -r a
jobs 3; jobs; limit-rate 2M; limit-rate
sync . :copy -q; sync --delete :copy back -q; cat copy/h; lls -d back/h; sync . back
END
sed -i 's/; touch-nothing//; s/sync . back$//' "$work/all"
# What nobody types ends at the first failure: "rm *" must not run in another folder than the one that was meant.
run < <(printf '%s\n' "-cat nowhere" "cat other" "cd nowhere" "rm *")
[[ $status == 5 && $(<"$work/output") == two && $(<"$work/errors") == qrftp:*nowhere*$'\n'"qrftp: Line 3: "*nowhere* ]] || fail "lines: $(<"$work/errors")"
[[ -e $HOME_DIR/other ]] || fail "rm ran after a failure"
# What is quoted or escaped is no wildcard; a local command gets no secrets.
touch "$HOME_DIR/x1" "$HOME_DIR/x[1]" && run < <(printf '%s\n' "rm 'x[1]'" "-rm x\\[1]" "rm x[1]" '!echo $QRFTP_PASSWORD$QRFTP_PASSPHRASE.')
[[ $status == 0 && $(<"$work/output") == . && ! $(find "$HOME_DIR" -name 'x*') ]] || fail "patterns: $(cat "$work"/{output,errors})"
run --batch - < <(printf '%s\n' "cat other # two" "" "frob it" "cat other")
[[ $status == 2 && $(<"$work/output") == two && $(<"$work/errors") == "qrftp: Line 3: "*frob* ]] || fail "batch: $(<"$work/errors")"
