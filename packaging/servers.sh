#!/bin/bash
# Real servers on loopback, in a private folder, for the main job, the tests and the benchmarks.
#   servers.sh start DIR [proftpd] [sshd] [proxy]   makes config, keys and certificates below DIR, starts the servers
#                                                   and writes DIR/env (NAME=value lines) once all of them serve
#                                                   (PASSIVE_PORTS="FIRST LAST" bounds those of FTP's data connections)
#   servers.sh stop DIR                             ends them and returns when the last process is gone
# Exit status 77: a server's program is not installed. Root needs no privilege here: the servers then run as daemon.
set -euo pipefail
export PATH=$PATH:/usr/sbin:/sbin LC_ALL=C
umask 077

readonly action=${1:?start or stop} dir=${2:?folder}
readonly deadline=20 # seconds for one server to serve, or to end
server_user=$(id -un) as_server=()
if ((EUID == 0)); then
    server_user=daemon # sshd takes nobody for a locked account
    as_server=(setpriv --reuid=daemon --regid=daemon --clear-groups)
fi
server_group=$(id -gn "$server_user")

say() { printf '%s\n' "$@" >>"$dir/env"; }

certificate() { # NAME SUBJECT [openssl option…]
    openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 2 -subj "/CN=$2" \
        -keyout "$dir/$1.key" -out "$dir/$1.pem" "${@:3}" 2>>"$dir/make.log"
}

key() { ssh-keygen -q -t ed25519 -C qrftp -f "$dir/$1" -N "$2"; } # NAME PASS-PHRASE

make_secrets() {
    local password=correct-horse pass_phrase=battery-staple name
    certificate ca "Test CA"
    certificate other_ca "Unrelated CA"
    certificate server localhost -CA "$dir/ca.pem" -CAkey "$dir/ca.key" \
        -addext subjectAltName=DNS:localhost,IP:127.0.0.1,IP:127.0.0.2 -addext basicConstraints=critical,CA:FALSE
    key host_key ""
    key key ""
    key key_pass "$pass_phrase"
    for name in key key_pass; do
        cat "$dir/$name.pub" >>"$dir/authorized_keys"
        ssh-keygen -e -f "$dir/$name.pub" >>"$dir/authorized_keys.rfc4716"
    done
    mkdir -p "$dir/home/denied"
    chmod 000 "$dir/home/denied"
    printf '%s:' tester "$(openssl passwd -6 "$password")" "$(id -u "$server_user")" "$(id -g "$server_user")" \
        "" "$dir/home" >"$dir/users"
    echo /bin/sh >>"$dir/users"
    : >"$dir/known_hosts"
    say "USER=tester" "PASSWORD=$password" "HOME_DIR=$dir/home" "SERVER_HOME=$dir/home" \
        "CA_FILE=$dir/ca.pem" "OTHER_CA_FILE=$dir/other_ca.pem" "KEY=$dir/key" "KEY_PUB=$dir/key.pub" \
        "KEY_PASS=$dir/key_pass" "KEY_PASS_PUB=$dir/key_pass.pub" "PASS_PHRASE=$pass_phrase" \
        "KNOWN_HOSTS=$dir/known_hosts" "SSHD_USER=$server_user"
}

# Below the range of ports that the kernel hands out by itself, so that only another server can be in the way.
free_port() { # VARIABLE
    local port
    while port=$((20000 + SRANDOM % 12000)); do
        (: <"/dev/tcp/127.0.0.1/$port") 2>/dev/null || break
    done
    printf -v "$1" %s "$port"
}

proftpd_config() {
    free_port FTP_PORT && free_port FTPS_PORT && free_port SFTP_PORT
    cat >"$dir/proftpd.conf" <<END
LoadModule mod_tls.c
LoadModule mod_sftp.c
LoadModule mod_digest.c
LoadModule mod_site_misc.c
# Built in on Debian 12, modules on Debian 13; without mod_delay nothing is delayed.
<IfModule !mod_ls.c>
  LoadModule mod_ls.c
</IfModule>
<IfModule !mod_xfer.c>
  LoadModule mod_xfer.c
</IfModule>
<IfModule mod_delay.c>
  DelayEngine off
</IfModule>
ServerName loopback
ServerIdent on "ready"
DefaultAddress 127.0.0.1
SocketBindTight on
UseReverseDNS off
User $server_user
Group $server_group
PidFile $dir/proftpd.pidfile
ScoreboardFile none
ControlsEngine off
Port $FTP_PORT
TLSEngine on
TLSRequired off
<Global>
  AuthOrder mod_auth_file.c
  AuthUserFile $dir/users
  RequireValidShell off
  AllowOverwrite on
  AllowStoreRestart on
  TLSECCertificateFile $dir/server.pem
  TLSECCertificateKeyFile $dir/server.key
  TLSLog $dir/tls.log
</Global>
<VirtualHost 127.0.0.1>
  Port $FTPS_PORT
  TLSEngine on
  TLSOptions UseImplicitSSL
</VirtualHost>
<VirtualHost 127.0.0.1>
  Port $SFTP_PORT
  SFTPEngine on
  SFTPHostKey $dir/host_key
  SFTPAuthMethods publickey password
  SFTPAuthorizedUserKeys file:$dir/authorized_keys.rfc4716
  SFTPLog $dir/sftp.log
</VirtualHost>
END
    if [[ ${PASSIVE_PORTS:-} ]]; then echo "PassivePorts $PASSIVE_PORTS" >>"$dir/proftpd.conf"; fi
    command=(proftpd --nodaemon --config "$dir/proftpd.conf") ready_line="STARTUP"
    greetings=("FTP_PORT=220 ready" "FTPS_PORT=" "SFTP_PORT=SSH-2.0-")
}

sshd_config() {
    free_port SSHD_PORT
    printf '%s\n' "ListenAddress 127.0.0.1" "Port $SSHD_PORT" "HostKey $dir/host_key" "PidFile none" \
        "AuthorizedKeysFile $dir/authorized_keys" "StrictModes no" "PasswordAuthentication no" \
        "KbdInteractiveAuthentication no" "Subsystem sftp internal-sftp" \
        "ForceCommand internal-sftp -d $dir/home" >"$dir/sshd.conf"
    # OpenSSH 9.8 and later take no connection for a while from where logins failed.
    [[ $(sshd -G -f /dev/null 2>&1) != *persourcepenalties* ]] || echo "PerSourcePenalties no" >>"$dir/sshd.conf"
    command=("$(command -v sshd)" -D -e -f "$dir/sshd.conf") ready_line="Server listening on"
    greetings=("SSHD_PORT=SSH-2.0-OpenSSH")
}

proxy_config() {
    free_port PROXY_PORT
    printf '%s\n' "Port $PROXY_PORT" "Listen 127.0.0.1" "Timeout 600" "LogLevel Info" >"$dir/proxy.conf"
    command=(tinyproxy -d -c "$dir/proxy.conf") ready_line="Accepting connections"
    greetings=("PROXY_PORT=HTTP/1.")
}

greets() { # NAME=GREETING: the port answers so
    local name=${1%%=*} want=${1#*=} answer= peer
    exec {peer}<>"/dev/tcp/127.0.0.1/${!name}" || return
    if [[ $name == PROXY_PORT ]]; then printf 'GET / HTTP/1.0\r\n\r\n' >&"$peer"; fi
    if [[ $want ]]; then read -r -t "$deadline" -u "$peer" answer || true; fi
    exec {peer}>&-
    [[ $answer == "$want"* ]]
}

# The log of a server is locked for as long as the server, a session of it, or the reader of its output lives.
launch() { # NAME: false if the server ended or kept silent instead of serving
    local name=$1 command ready_line greetings line output reader lock greeting port serves=
    "${name}_config"
    ((EUID)) || chown -R "$server_user:$server_group" "$dir"
    rm -f "$dir/$name.output" && mkfifo "$dir/$name.output"
    exec {lock}>>"$dir/$name.log" {output}<>"$dir/$name.output" {reader}<"$dir/$name.output"
    flock "$lock"
    "${as_server[@]}" "${command[@]}" </dev/null >&"$output" 2>&1 {lock}>&- {reader}<&- &
    echo $! >"$dir/$name.pid"
    exec {output}>&-
    SECONDS=0
    while ((SECONDS < deadline)) && read -r -t $((deadline - SECONDS)) -u "$reader" line; do
        printf '%s\n' "$line" >&"$lock"
        if [[ $line == *"$ready_line"* ]]; then serves=1 && break; fi
    done
    cat <&"$reader" >&"$lock" 2>/dev/null &
    exec {lock}>&- {reader}<&-
    for greeting in "${greetings[@]}"; do
        # A server may say that it is up a few system calls before its ports accept.
        until [[ ! $serves ]] || greets "$greeting" 2>/dev/null; do
            ((SECONDS < deadline)) || serves=
        done
    done
    [[ $serves ]] || return
    for port in "${greetings[@]%%=*}"; do
        say "$port=${!port}"
        if [[ $port == S* ]]; then echo "[127.0.0.1]:${!port} $(<"$dir/host_key.pub")" >>"$dir/known_hosts"; fi
    done
    say "${name^^}_PID=$(<"$dir/$name.pid")"
}

end() { # NAME
    local pid children=()
    [[ -e $dir/$1.pid ]] || return 0
    pid=$(<"$dir/$1.pid")
    if ! flock -n "$dir/$1.log" true; then
        read -r -a children <"/proc/$pid/task/$pid/children" || true
        kill "$pid" "${children[@]}" || true
        flock -w "$deadline" "$dir/$1.log" true || kill -KILL "$pid" "${children[@]}" || true
    fi 2>/dev/null
    rm -f "$dir/$1.pid" "$dir/$1.output"
}

stop() {
    local name
    for name in proftpd sshd proxy; do
        end "$name"
    done
    if [[ -e $dir/home/denied ]]; then chmod 700 "$dir/home/denied"; fi
}

start() {
    local name program
    local -A programs=([proftpd]=proftpd [sshd]=sshd [proxy]=tinyproxy)
    for program in openssl ssh-keygen $(for name in "$@"; do echo "${programs[$name]:?unknown: $name}"; done); do
        command -v "$program" >/dev/null || { echo "servers.sh: $program is not installed" >&2 && exit 77; }
    done
    trap 'stop && tail -n 20 "$dir"/*.log >&2' EXIT
    trap 'exit 130' INT TERM HUP
    rm -f "$dir/env"
    make_secrets
    for name in "$@"; do
        # Somebody else may take the port before the server does, which ends it: three drawings are plenty.
        launch "$name" || { end "$name" && launch "$name"; } || { end "$name" && launch "$name"; } || return
    done
    trap - EXIT
}

case $action in
start | stop) "$action" "${@:3}" ;;
*) echo "servers.sh: start or stop?" >&2 && exit 2 ;;
esac
