#!/bin/bash
# sync copies what is missing, newer or of another size, says so, and finds nothing to do the second time.
source "$(dirname "$0")/common.sh" "$1" proftpd
told() { said "" && [[ $(sort "$work/output") == "$(printf '%s\n' "$@" | sort)" ]] || fail "not $*: $(<"$work/output")"; }
both_ways() { # SOURCE DEST SOURCE-FOLDER DEST-FOLDER
    first=("make folder . (missing)" "make folder a b (missing)" "copy a b/1 (missing)" "copy 2 (missing)" "copy [3] (missing)")
    ends 0 sync "$1" "$2" --dry-run && told "${first[@]}" && [[ ! -e $4 ]]
    ends 0 sync "$1" "$2" && told "${first[@]}" && diff -r "$3" "$4" && [[ ! $4/2 -nt $3/2 && ! $4/2 -ot $3/2 ]] || fail "$1"
    ends 0 sync "$1" "$2" --delete && told ""
    echo new >"$3/2" && echo longer >"$3/[3]" && touch -d 2020-01-01 "$3/[3]" && touch "$4/new" && mkdir "$4/old" && touch "$4/old/1"
    chmod -R a+rwX "$HOME_DIR/s" && ends 0 sync "$1" "$2" && told "copy 2 (newer)" "copy [3] (other size)"
    ends 0 sync "$1" "$2" --delete --exclude new --dry-run && told "remove file old/1 (extra)" "remove folder old (extra)"
    ends 0 sync "$1" "$2" --delete --exclude new --quiet && told "" && [[ -e $4/new && ! -e $4/old ]]
    ends 0 sync "$1" "$2" --delete --json && told '{"action":"remove_file","reason":"extra","path":"new"}' && diff -r "$3" "$4"
}
url=$ftp
mkdir -p s/"a b" && echo 1 >s/a\ b/1 && echo two >s/2 && : >"s/[3]" && touch -d "2021-05-06 07:08:09" s/2 && cp -a s s2
both_ways s "$url/s" s "$HOME_DIR/s"
rm -r "$HOME_DIR/s" s && mv s2 "$HOME_DIR/s" && both_ways "$url/s" s "$HOME_DIR/s" s
rm -r "$HOME_DIR/s" s/*
# What would remove too much removes nothing; what broke off long ago is removed when asked for.
mkdir "$HOME_DIR/t" empty && touch "$HOME_DIR/t"/{1,2,3} s/1 && chmod a+rwx "$HOME_DIR/t"
ends 10 sync empty "$url/t" --delete && said '*--force*' && ends 10 sync s "$url/t" --delete --max-delete 1 && said '*--max-delete*'
[[ $(ls "$HOME_DIR/t") == $'1\n2\n3' ]] && ends 0 sync s "$url/t" --delete --max-delete 2 --quiet && [[ $(ls "$HOME_DIR/t") == 1 ]]
left=$HOME_DIR/t/.qrftp-0123456789abcdef.part && touch -d "2 days ago" "$left" && ends 0 sync s "$url/t" && told "" && [[ -e $left ]]
here=s/.qrftp-0123456789abcdef.part && touch -d "2 days ago" "$here"
ends 0 sync s "$url/t" --clean-up && told "remove file $left (extra)" "remove file $here (extra)" && [[ ! -e $left && ! -e $here ]]
ends 0 sync empty "$url/t" --delete --force && told "remove file 1 (extra)"
