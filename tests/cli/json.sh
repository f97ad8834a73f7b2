#!/bin/bash
# --json: every line is an object with the documented keys; a text that is not UTF-8 comes with its bytes.
source "$(dirname "$0")/common.sh" "$1" proftpd
type -P jq >/dev/null || { [[ -z ${CI:-} ]] && exit 77; fail "jq is missing"; }
tells() { # LINES ARGUMENT…: of JSON, without what changes from run to run
    local line got=
    ends 0 "${@:2}" --json && said ""
    while IFS= read -r line; do
        got+=$(jq -c 'del(.owner, .group, .modified, .precision, .round_trips, .features)' <<<"$line")$'\n' || fail "${*:2}: $line"
    done <"$work/output"
    [[ $got == "$1"$'\n' ]] || fail "${*:2}: $got"
}
mkdir -p "$HOME_DIR/j/d" && echo one >"$HOME_DIR/j/d/"$'"\xe4\t' && echo three >"$HOME_DIR/j/f" && chmod -R u=rwX,go=rX "$HOME_DIR/j"
folder='{"path":"j/d","name":"d","type":"folder","mode":"0755"}' file='{"path":"j/f","name":"f","type":"file","size":6,"mode":"0644"}'
odd='{"path":"j/d/\"�\t","path_hex":"6a2f642f22e409","name":"\"�\t","name_hex":"22e409","type":"file","size":4,"mode":"0644"}'
mkdir s
url=$sftp/~
tells "$folder"$'\n'"$file"$'\n'"$odd" ls -R "$url/j" && tells "$folder"$'\n'"$odd"$'\n'"$file" tree "$url/j" && tells "$odd" stat "$url/j/d/*"
tells "$file" stat "$url/j/f" && [[ $(jq -r .modified,.precision "$work/output") == "$(date -u -r "$HOME_DIR/j/f" +%FT%TZ)"$'\nsecond' ]] || fail "$(<"$work/output")"
tells $'{"path":"j/d","name":"d","type":"folder","size":4}\n{"path":"j","name":"j","type":"folder","size":10}' du "$url/j"
tells '{"action":"copy","reason":"wanted","path":"j/f","size":6,"source":"j/f","target":"f"}' get "$url/j/f"
tells '{"action":"copy","reason":"wanted","path":"f","size":6,"source":"f","target":"x"}' put f "$url/x"
tells $'{"action":"make_folder","reason":"missing","path":"."}\n{"action":"copy","reason":"wanted","path":"f","size":6,"source":"j/f","target":"t/f"}' get -r "$url/j" t --exclude d
tells '{"action":"make_folder","reason":"missing","path":"."}' sync s "$url/s"
tells '{"action":"make_folder","path":"m"}' mkdir "$url/m" && tells '{"action":"rename","path":"m","target":"n"}' mv "$url/m" n
tells '{"action":"remove_folder","path":"n","dry_run":true}' rmdir "$url/n" --dry-run
tells $'{"action":"remove_file","path":"x"}\n{"action":"remove_folder","path":"s"}\n{"action":"remove_folder","path":"n"}' rm -r "$url"/{x,s,n}
ends 0 ping -c 2 "$url" --json && [[ $(jq -c '[.login_folder, (.round_trips | length), (.round_trips[1] > 0)]' "$work/output") == "[\"$HOME_DIR\",2,true]" ]]
[[ $(jq -r '.host_key | .type, .fingerprint' "$work/output") == ssh-ed25519$'\n'SHA256:* ]]
tells "{\"greeting\":\"220 ready\",\"login_folder\":\"$HOME_DIR\"}" ping "$ftp" && tells "{\"path\":\"$HOME_DIR/j\"}" pwd "$ftp/j"
fails() { # STATUS OBJECT ARGUMENT…: on standard error
    ends "$1" "${@:3}" --json
    [[ $(jq -c 'del(.server, .message)' "$work/errors") == "$2" && $(jq -r .message "$work/errors") == *.* ]] || fail "${*:3}: $(<"$work/errors")"
}
fails 5 "{\"error\":\"NotFound\",\"path\":\"$HOME_DIR/nope\",\"status\":5}" stat "$url/nope" && fails 2 '{"error":"UsageError","status":2}' ls --frob
fails 5 "{\"error\":\"NotFound\",\"path\":\"$HOME_DIR/nope\",\"reply\":550,\"status\":5,\"line\":2}" shell "$ftp" --batch <(printf 'pwd\nls nope\n') && [[ $(jq -r .path "$work/output") == "$HOME_DIR" ]]
"$qrftp" put - "$url/x" --json "${options[@]}" < <(cat f) | jq -e '.size == 6' >/dev/null || fail "the size of standard input"
ends 0 put f "$url/x" --progress json && [[ $(tail -n 1 "$work/errors" | jq -c '[.file, .bytes, .total, (.rate >= 0)]') == '["x",6,6,true]' ]] || fail "$(<"$work/errors")"
