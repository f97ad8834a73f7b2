#!/bin/bash
# At a terminal, secrets and unknown hosts are asked about and progress is shown; without one, nothing of the kind.
source "$(dirname "$0")/common.sh" "$1" proftpd
type -P expect >/dev/null || { [[ -z ${CI:-} ]] && exit 77; fail "expect is missing"; }
export HOME=$work LC_ALL=C.UTF-8 TERM=xterm
cat >"$work/dialogue" <<'END'
set timeout 20
set stty_init "columns 60 rows 10"
proc fail {} { puts "\nThis did not come: $::awaited"; exit 99 }
spawn -noecho {*}[lrange $argv 2 end]
foreach {awaited typed} [lindex $argv 1] { expect -re $awaited {} timeout fail eof fail; send $typed }
set awaited "the end"
expect eof {} timeout fail
set ended [wait]
exit [expr {[lindex $ended 5] == "SIGINT" ? 130 : [lindex $ended 3]}]
END
at_terminal() { # STATUS {{AWAITED} {TYPED} …} ARGUMENT…
    local status=0
    expect "$work/dialogue" "$@" >"$work/seen" || status=$?
    [[ $status == "$1" ]] || fail "${*:3}: $status $(<"$work/seen")"
}
list=("$qrftp" ls "$ftp/" --tls none)
echo 1 >"$HOME_DIR/here" && chmod 644 "$HOME_DIR/here"
at_terminal 0 "{assword.*: \$} {wrong"$'\r'"} {refused.*: \$} {worse"$'\r'"} {refused.*: \$} {$PASSWORD"$'\r}' env -u QRFTP_PASSWORD "${list[@]}"
grep -q here "$work/seen" && ! grep -q "$PASSWORD" "$work/seen" || fail "$(<"$work/seen")"
at_terminal 130 $'{assword.*: $} \003' env -u QRFTP_PASSWORD "${list[@]}"
list=("$qrftp" ls "$sftp/~" --known-hosts "$work/known")
at_terminal 9 $'{SHA256:.*N\\] $} {\r}' "${list[@]}"
[[ ! -e $work/known ]] || fail "a refused key is remembered"
# The key is shown before a password is asked for, which may be wrong twice, but not three times.
at_terminal 0 "{SHA256:.*N\\] \$} {y"$'\r'"} {assword.*: \$} {wrong"$'\r'"} {refused.*: \$} {worse"$'\r'"} {refused.*: \$} {$PASSWORD"$'\r}' env -u QRFTP_PASSWORD "${list[@]}"
at_terminal 4 "{assword.*: \$} {a"$'\r'"} {refused.*: \$} {b"$'\r'"} {refused.*: \$} {c"$'\r}' env -u QRFTP_PASSWORD "${list[@]}"
at_terminal 0 "{phrase for .*: \$} {wrong"$'\r'"} {phrase for .*: \$} {$PASS_PHRASE"$'\r}' env -u QRFTP_PASSWORD -u QRFTP_PASSPHRASE "${list[@]}" --key "$KEY_PASS"
at_terminal 0 '' "${list[@]}"
[[ $(wc -l <"$work/known") == 1 ]] && ! grep -q SHA256 "$work/seen" || fail "$(<"$work/seen")"
list=("$qrftp" ls "$ftp/" --tls-trust accept-new --known-tls "$work/known_tls")
at_terminal 9 $'{sha256//.*N\\] $} {\r}' "${list[@]}"
at_terminal 0 $'{sha256//.*N\\] $} {y\r}' "${list[@]}"
at_terminal 0 '' "${list[@]}" && ! grep -q sha256 "$work/seen" || fail "$(<"$work/seen")"
mkdir slow && truncate -s 4M slow/{a,"日本語の長い名前 日本語の長い名前"}
put=("$qrftp" put -r slow "$ftp/" --tls none --jobs 2 --limit-rate 3M)
at_terminal 0 '{iB/s +[1-9][0-9]?% +0:0[0-9] left} {}' "${put[@]}"
grep -q '2 files .* left' "$work/seen" && [[ $(tr '\r\33' '\n' <"$work/seen" | sed 's/^\[[0-9]*[AJK]//' | wc -L) -lt 60 ]] || fail "$(<"$work/seen")"
at_terminal 0 '' "${put[@]}" --quiet
[[ ! -s $work/seen && $("${put[@]}" 2>&1) == "" && $(find "$HOME_DIR/slow" -size 8192 | wc -l) == 2 ]] || fail "$(<"$work/seen")"
