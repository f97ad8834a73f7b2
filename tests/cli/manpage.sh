#!/bin/bash
# The manual names every subcommand and every long option that the help shows, and no others; its version is the program's.
set -euo pipefail
qrftp=$1 manual=$3/docs/qrftp.1
grep -qF "$("$qrftp" --version | head -n 1)" <(head -n 1 "$manual")
options() { grep -oP '(?<![\w-])--[a-z][a-z-]+' | sort -u; }
mapfile -t subcommands < <("$qrftp" --help | sed -n '/^Subcommands:/,/^$/s/^  \([a-z]\+\) .*/\1/p')
((${#subcommands[@]} > 10))
diff <({ "$qrftp" --help && for name in "${subcommands[@]}"; do "$qrftp" "$name" --help; done; } | options) \
    <(sed 's/\\f[BIR]//g; s/\\-/-/g' "$manual" | options)
diff <(printf '%s\n' "${subcommands[@]}" | sort) <(grep -oP '^\.B qrftp \K[a-z]+' "$manual" | sort)
if command -v groff >/dev/null; then [[ ! $(groff -ww -z -man -Tutf8 "$manual" 2>&1) ]]; fi
