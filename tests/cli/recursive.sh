#!/bin/bash
# Folders go both ways with all that is in them, but for what is passed over, and never out of where they are meant to be.
source "$(dirname "$0")/common.sh" "$1" proftpd
same() { diff -r --no-dereference "$@" || fail "$* differ"; }
url=$sftp/~
mkdir -p tree/{"a b"/{empty,'c#?'},[x],.git} outside && echo outside >outside/x
for name in tree/{"a b"/{"c#?/'",%41},"[x]/*",.git/x.c,one.c,two.h}; do echo "$name" >"$name"; done
ends 0 put -r --jobs 4 tree "$url/" && same tree "$HOME_DIR/tree"
mkdir got && ends 0 get -r --jobs 1 "$url/tree" got && same tree got/tree && [[ ! -s $work/output ]]
ends 0 rm -r "$url/tree" && rm -r got
ends 0 put -r tree "$url/new" --include '*.c' --exclude .git && ends 0 get -r "$url/new" got --exclude 'one.*'
[[ $(cd "$HOME_DIR/new" && find . -type f) == ./one.c && ! $(find got -type f) ]] || fail "$(find "$HOME_DIR/new" got)"
ln -s "$PWD/outside" tree/link && ends 0 put -r --follow-links tree "$url/followed" && same outside "$HOME_DIR/followed/link"
ends 0 put -r tree "$url/links" && said '*1 link*' && ends 0 put -r tree "$url/links" -q --json && [[ $(grep -c '"pass_over"' "$work/output") == 1 ]]
ends 6 get -r "$url/" got2 && said '*--keep-going*denied*' && ends 8 get -r --keep-going "$url/" got3 && said '*denied*' && same outside got3/followed/link
# A name that the server chose leads nowhere; one that the user gave does.
mkdir got4 && ln -s "$PWD/outside" got4/links && ln -s "$PWD/outside" here && ends 8 get -r --keep-going "$url/l*" "$url/new/one.c" got4 && said '*symbolic link*'
[[ $(ls outside) == x && -e got4/one.c ]] && ends 0 get -r "$url/links" here && [[ -e outside/links ]]
