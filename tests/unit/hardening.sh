#!/usr/bin/env bash
# hardening.sh fortified|"" FILE…: the files were built so that a fault in them is hard to use.
set -euo pipefail
fortified=$1
shift
status=0
check() { # WHAT COMMAND…
    if ! "${@:2}" >/dev/null; then
        echo "$file: no $1" >&2
        status=1
    fi
}
has() { grep -qE "$2" <<<"$1"; }

for file; do
    headers=$(readelf -W -h -l "$file") dynamic=$(readelf -W -d "$file") symbols=$(readelf -W --dyn-syms "$file")
    check "read-only relocations" has "$headers" GNU_RELRO
    check "immediate binding" has "$dynamic" '\(BIND_NOW\)|FLAGS.*NOW'
    check "position independence" has "$headers" 'Type: +DYN'
    check "position independent start" has "$headers$dynamic" 'PIE|shared object|\(SONAME\)'
    check "stack without code" has "$headers" 'GNU_STACK.* RW '
    check "code without relocations" eval '! has "$dynamic" TEXTREL'
    check "run path without the working folder" eval '! has "$dynamic" "path: \[(.*:)?(:|\]|[^\$/])"'
    check "stack protector" has "$symbols" __stack_chk_fail
    all=${all-}$symbols
done
file="all of them"
[[ ! $fortified ]] || check "checked calls of the C library" has "$all" '__(mem|str|v?s?n?printf|v?fprintf|read|recv|poll)[a-z]*_chk'
exit "$status"
