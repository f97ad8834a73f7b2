#!/bin/bash
# How a server is reached: TLS from the first byte on, certificates of both sides, proxies, and what is said where another
# kind of server answers.
source "$(dirname "$0")/common.sh" "$1" proftpd proxy
ftps=ftps://$USER@127.0.0.1:$FTPS_PORT known=$HOME/.config/qrftp/known_tls
mkdir -p tree/a && echo 1 >tree/1 && echo 2 >tree/a/2 && seq 100000 >there

options=(--cacert "$CA_FILE")
ends 0 put there "$ftps/there" && ends 0 get "$ftps/there" back && cmp there back
ends 0 put -r tree "$ftps/" --jobs 3 && ends 0 get -r "$ftps/tree" "$work/got" --jobs 3 && diff -r tree "$work/got"
ends 3 ls "ftps://127.0.0.1:$FTP_PORT/" && said '*write ftp://*'
ends 2 ls "$ftps/" --tls none && said '*always encrypted*'

options=()
pin=sha256//$(openssl x509 -in "${CA_FILE%/*}/server.pem" -noout -pubkey | openssl pkey -pubin -outform der |
    openssl dgst -sha256 -binary | base64)
other=sha256//$(openssl rand -base64 32)
for server in "$ftp" "$ftps"; do
    ends 9 ls "$server/" && said "*its key is $pin*--cacert FILE or --pin*"
    ends 0 ls "$server/" --pin "$other" --pin "$pin"
    ends 9 ls "$server/" --pin "$other" && said "*$pin*"
    ends 0 ls "$server/" --tls-trust accept-new && said "*Added the key of *$pin*"
    ends 0 ls "$server/" && said ""
done
[[ $(<"$known") == "127.0.0.1:$FTP_PORT $pin"$'\n'"127.0.0.1:$FTPS_PORT $pin" ]] || fail "$(<"$known")"
sed -i "s#sha256.*#$other#" "$known"
for trust in strict accept-new; do ends 9 ls "$ftp/" --tls-trust $trust && said "*has changed*$pin*$other*"; done
ends 7 ls "$ftp/" --cacert /etc/passwd && said '*"/etc/passwd"*holds no certificates*'

options=(--tls none --known-hosts "$KNOWN_HOSTS")
proxy=127.0.0.1:$PROXY_PORT
for server in "$ftp" "$sftp"; do
    ends 0 ls --proxy "http://me:s3cret@$proxy" "$server/" -vv && ! grep s3cret "$work/errors" && grep -q CONNECT "$work/servers/proxy.log"
    ends 0 ls "--proxy=$proxy" "$server/" && all_proxy=$proxy ends 0 ls --proxy "$server/"
    ends 2 ls --proxy "$server/" && said '*no proxy is named*'
done
ends 3 ls "sftp://127.0.0.1:$FTP_PORT/" && said "*this is an FTP server; write ftp://127.0.0.1:$FTP_PORT/*"
options=()
for scheme in ftp ftps; do ends 3 ls "$scheme://127.0.0.1:$SFTP_PORT/" && said "*this is an SSH server; write sftp://127.0.0.1:$SFTP_PORT/*"; done
ends 3 ls "ftps://127.0.0.1:$FTP_PORT/" && said "*begins TLS after its greeting; write ftp://127.0.0.1:$FTP_PORT/*"
touch "$HOME/.ssh" && ends 0 ls "$sftp/" -q && said '*Warning: could not add the key*'
