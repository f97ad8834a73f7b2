#!/bin/bash
# ping tells who answers; a new host's key is remembered once, and known from then on.
source "$(dirname "$0")/common.sh" "$1" proftpd sshd
pings() { ends "$1" ping "${@:2}" && [[ -s $work/output || $1 != 0 ]] || fail "${*:2} tells nothing"; }
told() { for line; do grep -qxEe "$line" "$work/output" || fail "$line: $(cat "$work"/{output,errors})"; done; }
known=$HOME/.ssh/known_hosts key=$(ssh-keygen -lf "$work/servers/host_key.pub" | cut -d ' ' -f 2)
options=(--cacert "$CA_FILE")
pings 0 "$ftp" && told 'greeting: 220 ready' 'encryption: TLSv1\.[23] .+' 'features: .*MLST.*' "login folder: $HOME_DIR" 'round trip: [0-9.]+ ms'
options=()
pings 9 "$sftp" --host-key strict && said "*$key*" && pings 0 "$sftp" --host-key off && [[ ! -e $known ]]
pings 0 "$sftp" && told "host key: ssh-ed25519 ${key//+/[+]}" "login folder: $HOME_DIR" && said "*$key*"
pings 0 "$sftp" && said "" && pings 0 "$sftp" --host-key strict && [[ $(wc -l <"$known") == 1 ]]
[[ $(ssh-keygen -F "[127.0.0.1]:$SFTP_PORT" -f "$known") == *"$(cut -d ' ' -f 2 "$work/servers/host_key.pub")"* ]] || fail "$(<"$known")"
# Another port is another host.
pings 0 "sftp://$SSHD_USER@127.0.0.1:$SSHD_PORT" --key "$KEY" --quiet && said "" && [[ $(wc -l <"$known") == 2 ]]
