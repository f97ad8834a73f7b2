#!/bin/bash
# Rights, times, links and room; what is found by them; copies from one server to another and on one.
source "$(dirname "$0")/common.sh" "$1" proftpd sshd
mode() { [[ $(stat -c %a "$HOME_DIR/$1") == "$2" ]] || fail "$1: $(stat -c %a "$HOME_DIR/$1"), not $2"; }
tells() { # OUTPUT ARGUMENT…: lines in any order
    ends 0 "${@:2}" && said "" && [[ $(sort "$work/output") == "$1" ]] || fail "${*:2}: $(<"$work/output")"
}
openssh=sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT/~ home=$HOME_DIR
options+=(--key "$KEY" --cacert "$CA_FILE")
mkdir -p d/e && echo 1 >d/f && seq 500000 >d/e/g && ends 0 put -r d "$ftp/"
for url in "$ftp" "$openssh"; do
    chmod 644 "$home/d/f" && tells "" chmod 600 "$url/d/f" && mode d/f 600
    tells "" chmod u+x,g=u,o-rwx "$url/d/f" && mode d/f 770 && tells "set mode d/f to 0640" chmod --dry-run u-x,g=r "$url/d/f"
    tells "" chmod -R go-w,a+X "$url/d" && mode d/e 755 && tells "" chmod -R u=rwX,go=rX "$url/d" && mode d/e/g 644 && mode d/e 755
    tells '{"action":"set_mode","path":"d/f","mode":"0700","dry_run":true}' chmod --json --dry-run go= "$url/d/f"
    ends 2 chmod u~x "$url/d" && said '*no mode*' && ends 5 chmod 644 "$url/no"
    tells "" touch -d 2021-05-06T07:08:09Z "$url/d/f" "$url/d/new" && [[ $(date -u -r "$home/d/new" +%FT%T) == 2021-05-06T07:08:09 ]]
    ends 2 touch -d 2024-02-30 "$url/d/f" && ends 2 touch -d 24-1-1 "$url/d/f" && said '*is no time*'
    tells "" touch -c "$url/d/none" && [[ ! -e $home/d/none ]] && tells "" touch "$url/d/new" && [[ $home/d/new -nt $home/d/f ]]
    tells "" ln -s f "$url/d/link" && [[ $home/d/link -ef $home/d/f ]] && ends 1 ln -s f "$url/d/link" && said '*already*'
    tells $'d/e\nd/e/g\nd/f\nd/link\nd/new' find "$url/d" && tells d/link find --type l "$url/d" && tells d/e/g find --larger 2 --name '?' "$url/d"
    tells d/f find --older 2d --type f "$url/d" && tells $'d/f\nd/new' find --max-depth 1 --type f "$url/d" && tells d/new find --smaller 1 "$url/d"
    ends 0 find -0 --newer 1h --name n* "$url/d" && [[ $(tr '\0' '|' <"$work/output") == "d/new|" ]]
    rm "$home/d/link" "$home/d/new"
done
tells "" ln "$openssh/d/f" hard && [[ $home/d/hard -ef $home/d/f ]] && rm "$home/d/hard" && ends 1 ln "$ftp/d/f" hard && said '*does not support*'
ends 0 df -h "$openssh/d" && grep -qE '^ *[0-9.]+ [KMGT]iB +.*iB +d$' "$work/output" && ends 1 df "$ftp/d" && said '*does not support*'
# From one server to the other, back, and on one.
for pair in "$ftp $openssh" "$openssh $ftp" "$openssh $openssh" "$ftp $ftp"; do
    read -r from to <<<"$pair"
    ends 1 cp "$from/d" "$to/copy" && said '*-r copies folders*' && tells "" cp -r -p "$from/d" "$to/copy" && diff -r "$home/d" "$home/copy"
    [[ ! $home/copy/f -nt $home/d/f && ! $home/copy/f -ot $home/d/f ]] && tells "copy d/f" cp --dry-run "$from/d/f" "$to/copy/x"
    mode copy/f "$(stat -c %a "$home/d/f")" && ends 1 cp --no-replace "$from/d/f" "$to/copy/f" && said '*already*' && ends 5 cp "$from/d/f" "$to/no/f"
    tells "" cp "$from/d/f" "$from/d/e/*" "$to/copy/" && cmp "$home/d/e/g" "$home/copy/g" && ends 0 rm -r "$to/copy"
done
ends 2 cp "$ftp/d/f" "$ftp/d/f" && ends 2 cp "$ftp/d/f" "$ftp/d/e/f" "$ftp/" && said '*would both become*' && ends 2 cp -r "$ftp/d" "$ftp/d/e" && ends 5 cp "$ftp/no" "$openssh/x" && ends 6 cp "$ftp/d/f" "$openssh/denied/f"
