#!/bin/bash
# Folders go both ways with all that is in them, but for what is passed over, and never out of where they are meant to be.
source "$(dirname "$0")/common.sh" "$1" proftpd
same() { diff -r --no-dereference "$@" || fail "$* differ"; }
mkdir -p tree/{"a b"/{empty,'c#?'},[x],.git} outside
for name in tree/{"a b"/{"c#?/'",%41},"[x]/*",.git/x.c,one.c,two.h}; do echo "$name" >"$name"; done
cp -r tree whole && echo outside >outside/x
ln -s "$PWD/outside" tree/link && ln -s nowhere tree/dangling
url=$sftp/~
for jobs in 1 4; do
    ends 0 put -r --jobs $jobs tree "$url/" && same whole "$HOME_DIR/tree"
    mkdir got && ends 0 get -r --jobs $jobs "$url/tree" got && same whole got/tree && [[ ! -s $work/output ]]
    ends 0 rm -r "$url/tree" && rm -r got
done
ends 0 put -r tree "$url/new" --include '*.c' --exclude .git && ends 0 get -r "$url/new" got --exclude 'one.*'
[[ $(cd "$HOME_DIR/new" && find . -type f) == ./one.c && ! $(find got -type f) ]] || fail "$(find "$HOME_DIR/new" got)"
mv tree/dangling . && ends 0 put -r --follow-links tree "$url/followed" && same outside "$HOME_DIR/followed/link"
mv dangling tree && ln -s /etc "$HOME_DIR/followed/etc"
ends 6 get -r "$url/" got2 && said '*--keep-going*denied*' && ends 8 get -r --keep-going "$url/" got3 && said '*denied*' && said '*Not copied: 1 link*'
same whole/one.c got3/new/one.c && same outside got3/followed/link && [[ ! -e got3/followed/etc ]]
ends 0 put -r tree "$url/links" && said '*2 links*' && ends 0 put -r tree "$url/links" -q --json && [[ $(grep -c '"pass_over"' "$work/output") == 2 ]]
# A name that the server chose leads nowhere; one that the user gave does.
mkdir got4 && ln -s "$PWD/outside" got4/links && ln -s "$PWD/outside" here && ends 8 get -r --keep-going "$url/l*" "$url/new/one.c" got4 && said '*symbolic link*'
[[ $(ls outside) == x && -e got4/one.c ]] && ends 0 get -r "$url/links" here && [[ -e outside/links ]] && rm -r outside/links here
rm -r got* && ends 0 rm -r "$url/links" "$url/new" "$url/followed" && [[ -e /etc/passwd ]]
