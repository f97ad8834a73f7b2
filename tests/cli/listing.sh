#!/bin/bash
# What lists: names, long lines, trees, sizes and contents; whatever a name holds, a line is a line.
source "$(dirname "$0")/common.sh" "$1" proftpd sshd
shows() { # OUTPUT ARGUMENT…: without what links point to
    ends 0 "${@:2}" && said ""
    [[ $(sed 's: -> /.*::' "$work/output") == "$1" ]] || fail "${*:2}: $(<"$work/output")"
}
long() { for line; do grep -qxEe "$line" "$work/output" || fail "$line: $(<"$work/output")"; done; }
mkdir -p "$HOME_DIR"/t/{empty,"a b"} && cd "$HOME_DIR/t" && truncate -s 3000000 big && echo one >"a b/1"
ln -s big link && : >$'\e[31m\x9b1m' && : >"[x]" && : >.hidden && chmod -R u=rwX,go=rX . && chmod 4755 "a b/1" && cd "$work"
export LC_ALL=C.UTF-8
names=$'\\x1b[31m\\x9b1m\n[x]\na b\nbig\nempty\nlink'
url=$sftp/~/t
shows "$names" ls "$url/" && shows "" ls "$url/empty" && shows t/big ls "$url/big" && shows 't/[x]' ls "$url/[x]"
shows $'t/big\n\nt/empty:\n\nt/a b:\n1' ls "$url/[be]*" "$url/a b"
shows $'t:\n'"$names"$'\n\nt/a b:\n1\n\nt/empty:' ls -R "$url"
shows $'link\nempty\nbig\na b\n[x]\n.hidden\n\\x1b[31m\\x9b1m' ls -ar1 "$url" && touch -d 2001-01-01 "$HOME_DIR/t/empty"
ends 0 ls -S "$url" && [[ $(head -n 1 "$work/output") == big ]] && ends 0 ls -tr "$url" && [[ $(head -n 1 "$work/output") == empty ]] || fail "order"
ends 0 ls -l "$url" "$url/a b" && long '-rw-r--r-- +[^ ]+ +[^ ]+ +3000000 20[0-9-]+ [0-9:]+ UTC +big' 'd.* - 20.* empty' '-rwsr-xr-x .* 4 .* 1' 'l.* link( -> .*big)?'
ends 0 ls -lh "$url/big" && long '.* 2\.9 MiB .* t/big'
shows $'t\n├── \\x1b[31m\\x9b1m\n├── .hidden\n├── [x]\n├── a b\n│   └── 1\n├── big\n├── empty\n└── link\n\n2 folders, 6 files' tree "$url"
LC_ALL=C shows $'t/a b\n`-- 1\n\n0 folders, 1 file' tree "$url/a b"
shows $'4\tt/a b\n0\tt/empty' du -s "$url/a b" "$url/empty"
ends 0 stat "$url/a b/1" && long 'path: t/a b/1' 'size: 4' "modified: $(date -u -r "$HOME_DIR/t/a b/1" "+%F %T UTC")" 'mode: -rwsr-xr-x'
shows $'one\none' cat "$url/a b/1" "$url/*/1" && ends 0 cat "$url/big" && cmp "$work/output" "$HOME_DIR/t/big"
options=(--key "$KEY_PASS" --known-hosts "$KNOWN_HOSTS") url=sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT/$HOME_DIR/t owner=$(stat -c '%U +%G' "$HOME_DIR/t/big")
ends 0 ls -l "$url" && long "-rw-r--r-- $owner +3000000 .* big" && ends 0 stat "$url/big" && long "owner: ${owner% +*}"
