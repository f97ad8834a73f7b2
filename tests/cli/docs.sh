#!/bin/bash
# Every page does what it says, with an installed copy, from its first block to its last; docs/testing.md tells how.
source "$(dirname "$0")/common.sh" "$1" proftpd
shopt -s nullglob
build=$2 source=$3 prefix=$work/prefix
cmake --install "$build" --prefix "$prefix" >/dev/null
mkdir "$work/bin" && install -D -m 600 "$KEY" "$HOME/.ssh/id_ed25519"
stand_in() { printf '#!/bin/bash\n%s\n' "$2" >"$work/bin/$1" && chmod +x "$work/bin/$1"; }
stand_in qrftp "[[ \"\$*\" != *' ftp://'* ]] || set -- \"\$@\" --cacert '$CA_FILE'; exec '$qrftp' \"\$@\""
stand_in c++ "exec $(type -P c++) $(grep -oP '^CMAKE_CXX_FLAGS:STRING=\K.*' "$build/CMakeCache.txt" || true) \"\$@\""
PKG_CONFIG_PATH=$(dirname "$(find "$prefix" -name qrftpcore.pc)")
export PATH=$work/bin:$PATH PKG_CONFIG_PATH LD_LIBRARY_PATH=${PKG_CONFIG_PATH%/*} CMAKE_PREFIX_PATH=$prefix CMAKE_GENERATOR=Ninja LC_ALL=C.UTF-8

take_apart() { # PAGE: into script, N.expected, listed, pieces and the files that blocks name
    awk '
    function stop(why) { print FILENAME ":" FNR ": " why; failed = 1; exit 1 }
    /^```/ && kind { if (file == "pieces") print "}" >file; kind = file = ""; next }
    /^```/ {
        kind = $0 == "```" ? "text" : substr($0, 4)
        if (kind !~ /^(sh|output|cpp|cmake|python|text)$/) stop("an unknown kind of block")
        if (kind == "sh") { file = "script"; printf "exec >%d.output 2>&1\n", ++block >file }
        if (kind == "output") { if (told == block) stop("output of nothing"); told = block; printf "" >(file = block ".expected") }
        next
    }
    kind ~ /^c/ && !file { file = $2 ~ /\.(cpp|txt):?$/ ? $2 : "pieces"; sub(/:$/, "", file); if (file == "pieces") print "{" >file }
    file { print >file }
    !kind && /^    [^ ]/ { print >"listed" }
    END { if (kind && !failed) stop("a block without an end") }' "$1"
}

for page in README.md CONTRIBUTING.md examples/README.md $(cd "$source" && ls docs/*.md); do
    find "$HOME_DIR" -mindepth 1 -maxdepth 1 ! -name denied -exec rm -rf {} + && rm -f "$HOME/.ssh/known_hosts" "$HOME/.netrc"
    mkdir -p "$work/pages/$page/site/images" "$HOME_DIR"/{folder,photos/2024} && cd "$work/pages/$page"
    echo report | tee "$HOME_DIR"/{report.txt,photos/2024/lake.jpg} site/{index.html,images/logo.png} >/dev/null
    find "$HOME_DIR" -name denied -prune -o -exec chmod a+rwX {} + && cp "$CA_FILE" ca.pem && ln -s "$source/examples" . && touch script listed
    take_apart "$source/$page" >errors || fail "$(<errors)"
    [[ ! -e pieces ]] || sed -i '/^ *\/\/ …$/r pieces' $(grep -l '^ *// …$' ./*.cpp) || fail "$page: no place for its pieces"
    sed -i -e "s#sftp://user@example\.org#$sftp#g; s#ftp://user@ftp\.example\.org#ftp://$USER@localhost:$FTP_PORT#g" \
        -e "s#ftp\.example\.org 21 user#localhost $FTP_PORT $USER#; s#machine ftp\.example\.org login user#machine localhost login $USER#" script
    bash -euo pipefail -c 'trap "[[ ! \${SSH_AGENT_PID-} ]] || ssh-agent -k >/dev/null" EXIT && . ./script' </dev/null || fail "$page: $(tail -n 15 ./*.output)"
    for expected in *.expected; do
        [[ $(<"${expected%.*}.output") == $(sed 's/[^*[:alnum:][:space:]]/\\&/g' "$expected") ]] ||
            fail "$page: $(diff "$expected" "${expected%.*}.output")"
    done
    for file in *.cpp; do grep -qs "$file" script CMakeLists.txt || fail "$page: nothing builds $file"; done
    sed -E 's/ #.*//; s/ *(&&|\|) */\n/g' listed | sed -E 's/^ *([A-Z_]+=[^ ]+ +)*//' | while read -r program words; do
        [[ $program != */* || $program == build/* || -x $source/$program ]] || fail "$page: $program is not there"
        [[ $words != *--preset* ]] || grep -q "\"name\": \"$(grep -oP -- '--preset \K\w+' <<<"$words")\"" "$source/CMakePresets.json" || fail "$page: $words"
    done
    for link in $(grep -oP '[\w`]\]\(\K[\w./-]+' "$source/$page" || true); do
        [[ -e $source/$(dirname "$page")/$link ]] || fail "$page: no $link"
    done
done
