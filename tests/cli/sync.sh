#!/bin/bash
# sync copies what is missing, newer or of another size, says so, and finds nothing to do the second time.
source "$(dirname "$0")/common.sh" "$1" proftpd
told() { said "" && [[ $(sort "$work/output") == "$(printf '%s\n' "$@" | sort)" ]] || fail "not $*: $(<"$work/output")"; }
url=$ftp there=$HOME_DIR/s
mkdir -p s/"a b" && echo 1 >s/a\ b/1 && echo two >s/2 && : >"s/[3]" && touch -d "2021-05-06 07:08:09" s/2
first=("make folder s (missing)" "make folder a b (missing)" "copy a b/1 (missing)" "copy 2 (missing)" "copy [3] (missing)")
ends 0 sync s "$url/s" --dry-run && told "${first[@]}" && [[ ! -e $there ]]
ends 0 sync s "$url/s" && told "${first[@]}" && diff -r s "$there" && [[ ! $there/2 -nt s/2 && ! $there/2 -ot s/2 ]] || fail "$there"
ends 0 sync s "$url/s" --delete && told ""
echo new >s/2 && echo longer >"s/[3]" && touch -d 2020-01-01 "s/[3]" && mkdir "$there/old" && touch "$there"/{old/1,new} && chmod -R a+rwX "$there"
ends 0 sync s "$url/s" && told "copy 2 (newer)" "copy [3] (other size)"
ends 0 sync s "$url/s" --delete --exclude new --dry-run && told "remove file old/1 (extra)" "remove folder old (extra)"
ends 0 sync s "$url/s" --delete --exclude new --quiet && told "" && [[ -e $there/new && ! -e $there/old ]]
ends 0 sync s "$url/s" --delete --json && told '{"action":"remove_file","reason":"extra","path":"new"}'
rm -r s && ends 0 sync "$url/s" s && told "${first[@]}" && diff -r s "$there"
# What would remove too much removes nothing; what broke off long ago is removed when asked for.
mkdir "$HOME_DIR/t" empty && rm -r s/* && touch "$HOME_DIR/t"/{1,2,3} s/1 && chmod a+rwx "$HOME_DIR/t"
ends 10 sync empty "$url/t" --delete && said '*--force*' && ends 10 sync s "$url/t" --delete --max-delete 1 && said '*--max-delete*'
[[ $(ls "$HOME_DIR/t") == $'1\n2\n3' ]] && ends 0 sync s "$url/t" --delete --max-delete 2 --quiet && [[ $(ls "$HOME_DIR/t") == 1 ]]
left=$HOME_DIR/t/.qrftp-0123456789abcdef.part && touch -d "2 days ago" "$left" && ends 0 sync s "$url/t" && told "" && [[ -e $left ]]
here=s/.qrftp-0123456789abcdef.part && touch -d "2 days ago" "$here" "${left/part/old}" # which may be the last copy of its target
ends 0 sync s "$url/t" --clean-up --dry-run && told "remove file $left (extra)" "remove file $here (extra)" && [[ -e $left && -e $here ]]
ends 0 sync s "$url/t" --clean-up && told "remove file $left (extra)" "remove file $here (extra)" && [[ ! -e $left && ! -e $here && -e ${left/part/old} ]]
ends 0 sync empty "$url/t" --delete --force && told "remove file 1 (extra)"
