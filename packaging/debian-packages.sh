#!/bin/bash
# The Debian packages that the project's commands need, and how they get there. Sourced by run, test and .ci/run:
#   need_packages LIST…     installs what is missing of the lists below; silent and quick when nothing is
#   project_files           the names of the project's files, each with a NUL behind it
# On a system other than Debian or its kin it names the packages and fails; QRFTP_PACKAGES=present skips the check.

# What differs: Debian 12 has clang 16, Debian 13 clang 19; formatting and analysis are those of the versions of Debian 12.
clang=19 lint=
if [[ -r /etc/os-release ]] && (. /etc/os-release && [[ ${VERSION_ID:-} == 12 ]]); then
    clang=16 lint="clang-format-14 clang-tidy-16 clang-16"
fi

declare -A package_list=(
    [build]="g++ cmake ninja-build pkg-config libcurl4-openssl-dev libssl-dev libssh-dev libboost-log-dev libboost-locale-dev
        libcli11-dev nlohmann-json3-dev libedit-dev libfmt-dev libutf8proc-dev libtomlplusplus-dev"
    [servers]="proftpd-core proftpd-mod-crypto openssl openssh-client"
    [test]="libgtest-dev libgmock-dev openssh-server tinyproxy-bin curl expect jq python3 zsh fish"
    [python]="pybind11-dev python3-dev python3-pytest python3-paramiko python3-fsspec python3-dask python3-distributed python3-pandas
        python3-tqdm mypy"
    [lint]="git $lint"
    [fuzz]="clang-$clang libclang-rt-$clang-dev"
    [docs]="doxygen"
    [package]="git build-essential debhelper dh-python dpkg-dev lintian pybind11-dev python3-dev"
    [system]="git debootstrap"
    [bench]="time openssh-server openssh-client curl lftp rclone python3"
)

need_packages() {
    [[ ${QRFTP_PACKAGES:-} == present ]] && return
    local list name missing=()
    local -A installed=()
    while read -r name; do
        installed[$name]=1
    done < <(dpkg-query -W -f '${db:Status-Abbrev}${Package}\n' 2>/dev/null | sed -n 's/^ii *//p')
    for list in "$@"; do
        for name in ${package_list[$list]}; do
            [[ ${installed[$name]:-} ]] || missing+=("$name")
        done
    done
    ((${#missing[@]})) || return 0

    if ! command -v apt-get >/dev/null || ! command -v dpkg-query >/dev/null; then
        echo "These packages, by their names in Debian, are needed: ${missing[*]}" >&2
        echo "Install what this system calls them, then set QRFTP_PACKAGES=present." >&2
        return 1
    fi
    local as_root=()
    if ((EUID)); then
        as_root=(sudo)
        if ! command -v sudo >/dev/null; then
            echo "These packages are missing, and without sudo only root can install them: ${missing[*]}" >&2
            return 1
        fi
    fi
    echo "Installing: ${missing[*]}" >&2
    "${as_root[@]}" bash "${BASH_SOURCE[0]}" install "${missing[@]}" </dev/null
}

# What git ignores is left out; where the project came without git, what was built.
project_files() {
    local name
    if [[ -e .git ]]; then
        git -c safe.directory="$(pwd -P)" ls-files -z --cached --others --exclude-standard |
            while IFS= read -rd '' name; do [[ ! -e $name ]] || printf '%s\0' "$name"; done
    else
        find . -path ./build -prune -o -type f -printf '%P\0'
    fi
}

services() {
    local folder folders=()
    for folder in /lib/systemd/system /usr/lib/systemd/system /etc/init.d; do
        [[ ! -d $folder ]] || folders+=("$folder") # a minimal system has none of them
    done
    [[ ! ${folders[*]} ]] || find "${folders[@]}" -type f ! -name '*@*' \
        \( -path '/etc/init.d/*' -o -name '*.service' -o -name '*.socket' -o -name '*.timer' \) -printf '%f\n' | sort -u
}

disable_service() {
    case $1 in
    *.*)
        if command -v systemctl; then systemctl disable "$1"; else deb-systemd-helper disable "$1"; fi
        ;;
    *) update-rc.d "$1" disable ;;
    esac >/dev/null 2>&1 || true # a unit that nothing enables cannot be disabled
}

# As root: installs the packages named, starting no service and leaving none enabled that was not there before.
install_packages() {
    set -Eeuo pipefail
    trap 'echo "debian-packages.sh: line $LINENO failed: $BASH_COMMAND" >&2' ERR
    local policy=/usr/sbin/policy-rc.d log before service
    exec 9</usr/sbin
    flock 9 # two installations at once would restore each other's policy
    log=$(mktemp)
    before=$(services)
    # shellcheck disable=SC2064
    trap "rm -f '$log' $policy; [[ ! -e $policy.kept ]] || mv $policy.kept $policy" EXIT
    trap 'exit 130' INT TERM HUP
    [[ ! -e $policy || -e $policy.kept ]] || mv "$policy" "$policy.kept"
    printf '#!/bin/sh\nexit 101\n' >"$policy"
    chmod 755 "$policy"

    export DEBIAN_FRONTEND=noninteractive
    if ! { apt-get -q update && apt-get -qy -o DPkg::Lock::Timeout=300 install --no-install-recommends "$@"; } \
        >"$log" 2>&1; then
        tail -n 30 "$log" >&2
        echo "apt-get could not install the packages: its last lines are above" >&2
        exit 1
    fi
    while read -r service; do
        disable_service "$service"
        echo "Left switched off: $service" >&2
    done < <(comm -13 <(echo "$before") <(services))
}

if [[ ${1:-} == install && ${BASH_SOURCE[0]} == "$0" ]]; then
    install_packages "${@:2}"
fi
