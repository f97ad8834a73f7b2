#!/bin/bash
# What was begun is completed, times are kept to the second, a rate is not exceeded.
source "$(dirname "$0")/common.sh" "$1" proftpd
url=$ftp there=$HOME_DIR/there
head -c 3000000 /dev/urandom >file && touch -d "2001-02-03 04:05:06" file
begun() { head -c "$2" /dev/zero >"$1" && chmod a+rw "$1"; } # FILE BYTES
whole() { cmp "$1" <(head -c 2999999 /dev/zero && tail -c 1 file) || fail "$1 is not its beginning and the rest"; }
ends 0 put --keep-time file "$url/kept" && ends 0 get -t "$url/kept" && cmp file kept
[[ $(stat -c %Y file kept "$HOME_DIR/kept" | uniq | wc -l) == 1 ]] || fail "$(stat -c '%y %n' kept "$HOME_DIR/kept")"
begun here 2999999 && ends 0 get --resume "$url/kept" here && whole here
begun "$there" 2999999 && ends 0 put -c file "$url/there" && whole "$there"
begun here 3000001 && ends 1 get -c "$url/kept" here && said '*3000001*3000000*'
# What is older than its source is no beginning of it.
older() { begun "$1" 1000 && touch -d 2000-01-01 "$1"; }
for way in "get -c $url/kept here" "get -c $sftp/~/kept here" "put -c file $url/there" "put -c file $sftp/~/there"; do
    for how in "" --in-place; do
        older here && older "$there" && ends 1 $way $how --no-replace && [[ $(stat -c %s here "$there" | uniq) == 1000 ]] || fail "$way $how"
        ends 0 $way $how && cmp file "$([[ $way == get* ]] && echo here || echo "$there")"
    done
done
ln here link && ends 0 get --in-place "$url/kept" here && cmp file link
ends 0 get "$url/kept" here && [[ ! here -ef link ]]
before=${EPOCHREALTIME/./} && ends 0 get "$url/kept" slow --limit-rate 2M && took=$((${EPOCHREALTIME/./} - before))
((took > 700000)) || fail "3 MB at 2 MB/s in $took µs"
for copy in "get $url/kept slow" "put file $sftp/~/slow"; do
    ends 3 $copy --limit-rate 1k --timeout 2 && said '*" was not finished within 2 s (--timeout): * of 2.861 MiB.'
done
