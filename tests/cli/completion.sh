#!/bin/bash
# The completion offers subcommands, their own options, the values of options, and local files.
set -euo pipefail
qrftp=$1
source "$3/cli/completion.bash"
expect() { # COMPLETIONS WORD…: of the last word
    local want=$1
    COMP_WORDS=("$qrftp" "${@:2}") COMP_CWORD=$(($# - 1))
    _qrftp || true
    [[ ${COMPREPLY[*]} == "$want" ]] || { echo "failed: ${*:2}: ${COMPREPLY[*]}" >&2 && exit 1; }
}
folder=$(mktemp -d)
trap 'rm -rf "$folder"' EXIT
touch "$folder/a b"
expect "pwd ping put" p
expect "--depth" tree --de
expect "strict" ls --tls s
expect "$folder/a b" put "$folder/a"
