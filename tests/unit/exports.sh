#!/usr/bin/env bash
# exports.sh LIBRARY…: each library exports the names that the package for Debian lists for it, and no others but those
# that the list calls optional.
set -euo pipefail
list=$(dirname "$0")/../../packaging/debian/libqrftpcore0.2.exports
optional=$(sed -n 's/^optional: //p' "$list" | head -n 1)
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

status=0
for library; do
    soname=$(basename "${library%%.so*}")
    sed -n "/^$soname\.so/,/^lib/p" "$list" | grep -Ev '^(lib.*#|\*|optional:)' | LC_ALL=C sort -u >"$work/listed"
    nm -D --defined-only -C "$library" | cut -d' ' -f3- | LC_ALL=C sort -u >"$work/exported"
    LC_ALL=C comm -23 "$work/exported" "$work/listed" | grep -Ev "^($optional)" | sed "s/^/$soname: not listed: /" && status=1
    LC_ALL=C comm -13 "$work/exported" "$work/listed" | sed "s/^/$soname: gone: /" | grep . && status=1
done
exit "$status"
