#!/usr/bin/env bash
# exports.sh LIBRARY: the core exports the names that the package for Debian lists for it, and no others.
set -euo pipefail
list=$(dirname "$0")/../../packaging/debian/libqrftpcore0.1.exports
diff -u <(sed '1,/^libqrftpcore\.so/d; /^\*/d' "$list") <(nm -D --defined-only -C "$1" | cut -d' ' -f3- | LC_ALL=C sort -u)
