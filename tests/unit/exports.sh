#!/usr/bin/env bash
# exports.sh LIBRARY [write]: compares the names that LIBRARY exports with exports.txt beside this file, or with
# "write" makes them the list.
set -euo pipefail

list=$(dirname "$0")/exports.txt
exported() { nm -D --defined-only -C "$1" | cut -d' ' -f3- | LC_ALL=C sort -u; }

if [[ ${2-} == write ]]; then
    exported "$1" > "$list"
else
    diff -u --label exports.txt "$list" --label "$1" <(exported "$1")
fi
