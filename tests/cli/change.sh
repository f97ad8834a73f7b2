#!/bin/bash
# What changes the server: folders made, things removed and renamed, and what is not done without being asked for.
source "$(dirname "$0")/common.sh" "$1" proftpd
leaves() { # NAMES STATUS ARGUMENT…: what is then below c
    ends "${@:2}"
    [[ $(cd "$HOME_DIR/c" && find . -mindepth 1 | sort | cut -c 3- | tr '\n' ' ') == "${1:+$1 }" ]] || fail "${*:3}: $(find "$HOME_DIR/c")"
    [[ ! -s $work/output || $* == *--dry-run* ]] || fail "${*:3}: $(<"$work/output")"
}
for name in one two; do echo $name >$name; done
url=$sftp/~
c=$url/c home=$HOME_DIR/c
leaves "" 0 mkdir "$c" && leaves "" 5 mkdir "$c/x/y" && leaves "x x/y" 0 mkdir -p "$c/x/y" && leaves "x x/y" 0 mkdir -p "$c/x/y" "$c/x"
leaves "x x/y" 1 mkdir "$c/x" && said '*already*' && leaves "x x/y" 1 rmdir "$c/x" && said '*not empty*'
leaves "x x/y" 0 rmdir "$c/x/y" --dry-run && leaves x 0 rmdir "$c/x/y" && leaves x 0 mkdir "$c/z" --dry-run
leaves "one two x" 0 put one two "$c/" && leaves "one two x" 0 mv "$c/one" 1 --dry-run && [[ $(<"$work/output") == "rename c/one to c/1" ]]
leaves "one two x" 5 mv "$c/none" 1 --dry-run && leaves "one two x" 5 mv "$c/none" 1 && leaves "one two x" 5 mv "$c/two" nope/two
leaves "1 two x" 0 mv "$c/one" 1 && leaves "two x x/1" 0 mv "$c/1" x && leaves "1 two x" 0 mv "$c/x/1" "$home/"
leaves "1 two x" 1 mv "$c/1" two && said '*already*' && leaves "two x" 0 mv --replace "$c/1" two && [[ $(<"$home/two") == one ]]
leaves "two y" 0 mv "$c/x/" y && leaves "two x" 0 mv "$c/y" "$home/x" && leaves "two two* x" 0 put one "$c/two*"
leaves "two two* x" 1 rm "$c/x" && leaves "two two* x" 1 rm "$c/x*" --dry-run && said '*is a folder*' && leaves "two two* x" 0 rm -r "$c/t*" "$c/x" --dry-run
leaves "two x" 8 rm "$c/nope" "$c/two*" && said '*nope*' && [[ $(wc -l <"$work/errors") == 1 ]]
mkdir "$work/outside" && echo stays >"$work/outside/x" && ln -s "$work/outside" "$home/x/link"
leaves "two x x/link" 1 rmdir "$c/x" && leaves two 0 rm -r "$c/x" && [[ $(<"$work/outside/x") == stays ]]
rm -r "$work/outside"
for top in "$url" "$url/" "$url/." "$url/.." "$c/.." "$sftp/" "$sftp/$HOME_DIR/" "$sftp${HOME_DIR%/*}"; do leaves two 2 rm -r "$top"; done
# What is percent-encoded is no wildcard.
touch "$home/foo1" "$home/foo[1]" && leaves "foo1 two" 0 rm "$c/foo%5B1%5D" && leaves "foo1 two" 5 rm "$c/foo%5B1%5D" && leaves two 0 rm "$c/foo[1]"
leaves "" 0 rm "$c/?*" && ends 0 rm -r "$c" && [[ $(ls "$HOME_DIR") == denied ]]
