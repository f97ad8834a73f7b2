#!/bin/bash
# A profile stands for a server and options; the command line wins over it, and it wins over the defaults.
source "$(dirname "$0")/common.sh" "$1" proftpd
export XDG_CONFIG_HOME=$work/config
file=$XDG_CONFIG_HOME/qrftp/config.toml password=$QRFTP_PASSWORD
options=() && unset QRFTP_PASSWORD QRFTP_PASSPHRASE
ends 0 profile list && said "" && [[ ! -s $work/output ]]
mkdir -p "$HOME_DIR/top/reports" && echo 1 >"$HOME_DIR/top/reports/a b" && : >"$HOME_DIR/top/c.tmp" && chmod -R a+rwX "$HOME_DIR/top"

ends 0 profile set work url="$ftp/top" tls=none password-command="echo '$password'; echo more"
ends 0 profile set home url="$sftp/" folder="$HOME_DIR/top" known-hosts="$KNOWN_HOSTS" host-key=strict password-file="$work/word" exclude=a exclude='*.tmp'
echo "$password" >"$work/word" && chmod 600 "$work/word" && [[ $(stat -c %a "$file") == 600 ]]
for place in work: work:reports/.. work:~/top "work:/$HOME_DIR/top" home: home:/"$HOME_DIR"/top home:~/top; do
    ends 0 ls "$place" && said "" && [[ $(<"$work/output") == $'c.tmp\nreports' ]] || fail "$place: $(<"$work/output")"
done
ends 0 get -r home: copy && [[ $(cd copy && find . -type f) == './reports/a b' ]] || fail "$(find copy)"
ends 0 get -r home: all --exclude none && [[ -e all/c.tmp ]] # the command line wins
touch work:x && ends 0 put work:x "work:reports/" && ends 7 put work:y work: && ends 0 get work:reports/work:x ./home: && [[ -e home: && -e $HOME_DIR/top/reports/work:x ]]
ends 0 mv work:reports/work:x home:there && [[ -e $HOME_DIR/top/reports/home:there ]] # a name, no URL

cp "$file" "$work/before" && sed -i '1i # mine' "$file" && sed -i 's/^tls = "none"/& # why/; s/^user.*//' "$file"
ends 0 profile set work tls=strict jobs=2 verbose= && ends 0 profile set defaults json=true jobs=4
grep -qx '# mine' "$file" && grep -qx 'tls = "strict" # why' "$file" && grep -qx 'jobs = 2' "$file" || fail "$(<"$file")"
ends 0 ls work: --tls none && [[ $(<"$work/output") == '{"path":'* ]] || fail "the defaults: $(<"$work/output")"
ends 0 profile list && [[ $(<"$work/output") == "{\"name\":\"work\",\"url\":\"$ftp/top\"}"* ]]
ends 0 profile remove defaults home && ends 0 profile set work tls= && ends 0 profile show work
[[ $(<"$work/output") == *"url = \"$ftp/top\""*'jobs = 2' && $(<"$file") == '# mine'* ]] || fail "$(<"$work/output")"
ends 0 ln -s c.tmp work:link --tls none && [[ -L $HOME_DIR/top/link ]]
ends 0 shell work: --tls none --batch <(echo "jobs; jobs 3; jobs; open work: --tls none; jobs") && [[ $(<"$work/output") == $'2\n3\n2' ]] || fail "the last: $(<"$work/output")"

refused() { # STATUS PATTERN ARGUMENT…
    ends "$1" "${@:3}" && said "qrftp: $2"
}
refused 2 '*"ftp"*' profile set ftp url=ftp://h/ && refused 2 '*password-command*' profile set work password=secret
refused 2 '*secret*' profile set work url=ftp://u:p@h/ && refused 2 '*no setting "usr"*' profile set work usr=x
refused 2 '*"nobody"*' profile show nobody && refused 2 '*--tls*' profile set work tls=some && refused 2 '*true or false*' profile set work active=maybe
refused 4 '*"exit 3" failed with status 3.' ls work: --tls none --password-command "exit 3" && refused 4 '*"true"*no password*' ls work: --tls none --password-command true
wrong() { # LINE PATTERN CONTENT
    printf '[work]\n%s\n' "$3" >"$file" && refused 2 "$file, line $1: $2" ls work:
}
wrong 2 '*\[work\]*usr*' 'usr = "x"' && wrong 2 '*active*true or false*' 'active = "yes"' && wrong 2 '*tls*list*' 'tls = ["none"]' && wrong 3 '*' $'tls = "none"\nurl = '
wrong 2 '*secret*' 'password = "x"' && wrong 2 '*tls*' 'tls = "some"'$'\nurl = "ftp://h/"' && wrong 1 '*no URL*' 'tls = "none"' && wrong 2 '*URLs begin*' '[sftp]'
cp "$work/before" "$file" && chmod g+w "$file" && refused 2 "*Others can write*$file" ls "$ftp/"
