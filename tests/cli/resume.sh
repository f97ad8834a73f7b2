#!/bin/bash
# What was begun is completed, times are kept to the second, a rate is not exceeded.
source "$(dirname "$0")/common.sh" "$1" proftpd
begun() { head -c "$2" /dev/zero >"$1" && chmod a+rw "$1"; } # FILE BYTES
whole() { cmp "$1" <(head -c 2999999 /dev/zero && tail -c 1 file) || fail "$1 is not its beginning and the rest"; }
head -c 3000000 /dev/urandom >file && touch -d "2001-02-03 04:05:06" file
url=$ftp
there=$HOME_DIR/there
ends 0 put --keep-time file "$url/kept" && ends 0 get -t "$url/kept" && cmp file kept
[[ $(stat -c %Y file kept "$HOME_DIR/kept" | uniq | wc -l) == 1 ]] || fail "$url: $(stat -c '%y %n' kept "$HOME_DIR/kept")"
begun here 2999999 && ends 0 get --resume "$url/kept" here && whole here
begun "$there" 2999999 && ends 0 put -c file "$url/there" && whole "$there"
begun here 3000001 && ends 1 get -c "$url/kept" here && said '*3000001*3000000*'
# In place, the file stays the same one.
for target in here "$there"; do begun $target 4000000 && ln $target $target.link; done
ends 0 get --in-place "$url/kept" here && cmp file here.link
ends 0 put --in-place file "$url/there" && cmp file "$there.link" && ends 0 get "$url/kept" here && [[ ! here -ef here.link ]]
before=${EPOCHREALTIME/./} && ends 0 get "$url/kept" slow --limit-rate 2M && took=$((${EPOCHREALTIME/./} - before))
((took > 700000)) || fail "$url: 3 MB at 2 MB/s in $took µs"
rm -f here* slow kept "$there"*
