# Sourced by the tests of the command: common.sh QRFTP SERVER… starts servers, whose names are then variables, in a
# folder of its own, which is also the working folder; all ends with the shell. A missing server is a skip, but not in CI.
set -euo pipefail
qrftp=$(readlink -f "$1")
servers=$(readlink -f "$(dirname "${BASH_SOURCE[0]}")/../../packaging/servers.sh")
work=$(mktemp -d)
chmod 711 "$work"
trap '"$servers" stop "$work/servers" || true; rm -rf "$work"' EXIT
mkdir "$work/servers" "$work/here"
"$servers" start "$work/servers" "${@:2}" || { (($? == 77)) && [[ -z ${CI:-} ]] && exit 77; exit 1; }
source "$work/servers/env"
cd "$work/here"
unset SSH_AUTH_SOCK XDG_CONFIG_HOME
export HOME=$work QRFTP_PASSWORD=$PASSWORD QRFTP_PASSPHRASE=$PASS_PHRASE
ftp=ftp://$USER@127.0.0.1:$FTP_PORT
sftp=sftp://$USER@127.0.0.1:$SFTP_PORT
options=(--tls none --known-hosts "$KNOWN_HOSTS")

fail() { echo "failed: $*" >&2 && exit 1; }

ends() { # STATUS ARGUMENT…: with the options; leaves $work/output and $work/errors
    local status=0
    "$qrftp" "${@:2}" "${options[@]}" >"$work/output" 2>"$work/errors" </dev/null || status=$?
    [[ $status == "$1" ]] || fail "${*:2}: $status $(<"$work/errors")"
}

said() { # PATTERN: of the errors, if any
    [[ $(<"$work/errors") == ${1-} ]] || fail "not ${1-}: $(<"$work/errors")"
}
