#!/bin/bash
# The shell: what is typed at a terminal, completed, remembered and interrupted; and lines that nobody types.
source "$(dirname "$0")/common.sh" "$1" proftpd
type -P expect >/dev/null || { [[ -z ${CI:-} ]] && exit 77; fail "expect is missing"; }
export HOME=$work XDG_STATE_HOME=$work/state LC_ALL=C.UTF-8 TERM=xterm SHELL=/bin/sh
mkdir -m 755 "$HOME_DIR"/{"a folder",ab} && truncate -s 64G "$HOME_DIR/big"
echo one >"$HOME_DIR/a folder/ä 1" && echo two >"$HOME_DIR/other" && chmod 644 "$HOME_DIR"/{a*/*,big,other}
touch p0{001..1200}
mkdir -p "$HOME/.config/qrftp" && printf '[work]\nurl = "%s"\n' "$ftp" >"$HOME/.config/qrftp/config.toml"
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
type "mput p0\t" {Display all 1,200 possibilities\? \(y or n\) $}
type "n" {mput p0$}
type "\003open wo\t" {rk:$}
type "\003cat nowhere\r" {\nqrftp: [^\r]*nowhere[^\r]*\r\n.*home> $}
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
rm p0*
[[ $(ls) == $'c "d"\nother\nä 1' && $(cat -- *) == $'one\ntwo\none' ]] || fail "$(ls)"
[[ $(stat -c %a "$work"/state/qrftp{,/history}) == $'700\n600' ]] || fail "others may read the history"
run() { status=0 && "${shell[@]}" "$@" >"$work/output" 2>"$work/errors" || status=$?; }
# Each command once, over both protocols.
cat >"$work/all" <<END
mkdir -p m/a/b; cd m/a; rmdir b; cd -; cd ~/m; pwd
lcd "$work/local"; lpwd; lls -a -1; put f1; put -t f2 a/.h; mput -t f*; put -c f1
ls -r; dir f1 --json; ls -a a; ls -S; cat 'f1' f2; stat f2 --json; du -s; tree -q; ping --json
mv f1 a; mv -f a/f1 g; get g h; get -c g h; mget -r a; lls h a/.h
-cat nowhere; -close now; edit g; cat g
mkdir s; touch n; chmod 640 n; cp n s/o; find s --name o; rm -r n s; rm g; rm -r --dry-run a; rm -r a
jobs 3; jobs; jobs 0; jobs; limit-rate 2M; limit-rate; help lcd
sync . :copy -q; sync --delete :copy back -q; cat copy/h; close; -pwd; lls back/h
END
cat >"$work/want" <<END
$HOME_DIR/m $work/local . .. f1 f2 f2 f1 a {"path":"f1"} .h f2 f1 a one second {"path":"f2"} 18 .
. ├── a │   └── .h ├── f1 └── f2  1 folder, 3 files {"greeting"} a/.h h
qrftp: Line 5: There is no "$HOME_DIR/m/nowhere" on the server.
qrftp: Line 5: close takes no operands.
once s/o remove file a/.h remove folder a 3 as many as help 2.0 MiB/s Change the local folder; ~, or nothing: home; -: back Usage: lcd [OPTIONS] [LOCAL-FOLDER]  Options:   -h,--help                   Show this help  one
qrftp: Line 8: No server is open; "open URL" opens one.
back/h
END
for server in "$ftp --tls none" "$sftp/~ --known-hosts $KNOWN_HOSTS"; do
    mkdir "$work/local" && echo one >"$work/local/f1" && echo second >"$work/local/f2"
    EDITOR="sed -i s/one/once/" "$qrftp" shell --batch "$work/all" $server &>"$work/output" || fail "$server: $(<"$work/output")"
    sed -E 's/(^\{"[a-z]*"(:"f.")?).*/\1}/; s/(server) \(.*\)\.$/\1./' "$work/output" | tr '\n\t' ' ' >"$work/said"
    [[ $(<"$work/said") == "$(tr '\n' ' ' <"$work/want")" ]] || fail "$server: $(diff <(tr ' ' '\n' <"$work/said") <(tr ' ' '\n' <"$work/want"))"
    rm -r "$work/local" "$HOME_DIR/m"
done
# What somebody else has changed while it was edited stays; what was written is kept, and named. Rights stay.
export TMPDIR=$work/tmp EDITOR="sh -c 'echo mine >\$0; echo your >$HOME_DIR/e.txt'" && mkdir "$TMPDIR" && echo them >e.txt && ends 0 put e.txt "$ftp/" && chmod 640 "$HOME_DIR/e.txt"
ends 1 edit "$ftp/e.txt" && kept=$(echo "$TMPDIR"/*/*.txt) && said "*\"$kept\"*changed on the server*" && [[ $(cat "$HOME_DIR/e.txt" "$kept") == $'your\nmine' ]] || fail "edit: $(<"$work/errors")"
rm -r "$TMPDIR"/* && EDITOR="sed -i s/your/ours/" ends 0 edit "$ftp/e.txt" && [[ $(stat -c %a "$HOME_DIR/e.txt") == 640 && $(<"$HOME_DIR/e.txt") == ours && ! $(ls "$TMPDIR") ]] || fail "edit"
# What nobody types ends at the first failure: "rm *" must not run in another folder than the one that was meant.
run < <(printf '%s\n' "-cat nowhere" "cat other" "cd nowhere; rm *" "rm *")
[[ $status == 5 && $(<"$work/output") == two && $(<"$work/errors") == qrftp:*nowhere*$'\n'"qrftp: Line 3: "*nowhere* ]] || fail "lines: $(<"$work/errors")"
[[ -e $HOME_DIR/other ]] || fail "rm ran after a failure"
# What is quoted or escaped is no wildcard; a local command gets no secrets.
touch "$HOME_DIR"/{x1,x[1],-x,1} && run < <(printf '%s\n' "rm 'x[1]'" "-rm x\\[1]" "rm x[1]; rm '-x'; -rm [x]; rm [1] # ; rm *" '!echo $QRFTP_PASSWORD$QRFTP_PASSPHRASE.')
[[ $status == 0 && $(<"$work/output") == . && ! $(find "$HOME_DIR" -name '[x1-]*') ]] || fail "patterns: $(cat "$work"/{output,errors})"
run --batch - < <(printf '%s\n' "cat other # two" "" "frob it" "cat other")
[[ $status == 2 && $(<"$work/output") == two && $(<"$work/errors") == "qrftp: Line 3: "*frob* ]] || fail "batch: $(<"$work/errors")"
