#!/bin/bash
# What changes the server: folders made, things removed and renamed, and what is not done without being asked for.
source "$(dirname "$0")/common.sh" "$1" proftpd
leaves() { # NAMES STATUS ARGUMENT…: what is then below c
    ends "${@:2}"
    [[ $(cd "$home" && find . -mindepth 1 | sort | cut -c 3- | tr '\n' ' ') == "${1:+$1 }" ]] || fail "${*:3}: $(find "$home")"
    [[ ! -s $work/output || $* == *--dry-run* ]] || fail "${*:3}: $(<"$work/output")"
}
url=$sftp/~ home=$HOME_DIR/c
c=$url/c
echo one >one && echo two >two
leaves "" 0 mkdir "$c" && leaves "" 5 mkdir "$c/x/y" && leaves "x x/y" 0 mkdir -p "$c/x/y" "$c/x"
leaves "x x/y" 0 rmdir "$c/x/y" --dry-run && leaves x 0 rmdir "$c/x/y" && leaves x 0 mkdir "$c/z" --dry-run
leaves "one two x" 0 put one two "$c/" && leaves "one two x" 0 mv "$c/one" 1 --dry-run && [[ $(<"$work/output") == "rename c/one to c/1" ]]
leaves "one two x" 5 mv "$c/none" 1 --dry-run && leaves "1 two x" 0 mv "$c/one" 1 && leaves "two x x/1" 0 mv "$c/1" x
leaves "1 two x" 0 mv "$c/x/1" "$home/" && leaves "1 two x" 1 mv "$c/1" two && said '*already*'
leaves "two x" 0 mv --replace "$c/1" two && [[ $(<"$home/two") == one ]]
leaves "two two* x" 0 put one "$c/two*"
leaves "two two* x" 1 rm "$c/x*" --dry-run && said '*is a folder*' && leaves "two two* x" 0 rm -r "$c/t*" "$c/x" --dry-run
leaves "two x" 8 rm "$c/nope" "$c/two*" && said '*nope*' && [[ $(wc -l <"$work/errors") == 1 ]]
for top in "$url" "$url/." "$c/.." "$sftp/" "$sftp${HOME_DIR%/*}"; do leaves "two x" 2 rm -r "$top"; done
# What is percent-encoded is no wildcard.
touch "$home/foo1" "$home/foo[1]" && leaves "foo1 two x" 0 rm "$c/foo%5B1%5D" && leaves "two x" 0 rm "$c/foo[1]"
ln -s .. "$home/x/up" && leaves two 0 rm -r "$c/x" && leaves "" 0 rm "$c/?*" && ends 0 rm -r "$c" && [[ $(ls "$HOME_DIR") == denied ]]
