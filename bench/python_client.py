#!/usr/bin/env python3
"""python_client.py get|put LOCAL URL | many-get|many-put FOLDER URL NAME... | ls URL

The jobs of bare_curl by ftplib (FTP, FTPS) and paramiko (SFTP), with the same arguments and environment."""
import ftplib
import os
import ssl
import sys
from urllib.parse import urlsplit

BLOCK = 256 * 1024


class Tls(ftplib.FTP_TLS):
    def ntransfercmd(self, cmd, rest=None):  # with the session of the control connection, as servers want it
        data, size = ftplib.FTP.ntransfercmd(self, cmd, rest)
        if self._prot_p:
            data = self.context.wrap_socket(data, server_hostname=self.host, session=self.sock.session)
        return data, size


class Ftp:
    def __init__(self, url):
        self.ftp = ftplib.FTP()
        if authorities := os.environ.get("BENCH_CA"):
            context = ssl.create_default_context(cafile=authorities)
            context.maximum_version = ssl.TLSVersion.TLSv1_2  # ssl has no session of TLS 1.3 in time
            self.ftp = Tls(context=context)
        self.ftp.connect(url.hostname, url.port)
        self.ftp.login(os.environ["BENCH_USER"], os.environ["BENCH_PASSWORD"])
        if authorities:
            self.ftp.prot_p()

    def get(self, local, path):
        with open(local, "wb", buffering=0) as file:
            self.ftp.retrbinary("RETR " + path[1:], file.write, BLOCK)

    def put(self, local, path):
        with open(local, "rb", buffering=0) as file:
            self.ftp.storbinary("STOR " + path[1:], file, BLOCK)

    def mkdir(self, path):
        self.ftp.mkd(path[1:])

    def ls(self, path):
        self.ftp.retrlines("LIST " + path[1:])

    def close(self):
        self.ftp.quit()


class Sftp:
    def __init__(self, url):
        import paramiko

        self.ssh = paramiko.SSHClient()
        self.ssh.load_host_keys(os.environ["BENCH_KNOWN_HOSTS"])
        self.ssh.connect(url.hostname, url.port, os.environ["BENCH_USER"], key_filename=os.environ["BENCH_KEY"],
                         allow_agent=False, look_for_keys=False)
        self.sftp = self.ssh.open_sftp()
        self.get = lambda local, path: self.sftp.get(path, local)
        self.put = self.sftp.put
        self.mkdir = self.sftp.mkdir

    def ls(self, path):
        for entry in self.sftp.listdir_attr(path):
            print(entry)

    def close(self):
        self.ssh.close()


def main(job, *words):
    url = urlsplit(words[0 if job == "ls" else 1])
    client = (Sftp if url.scheme == "sftp" else Ftp)(url)
    if job == "ls":
        client.ls(url.path)
    elif job in ("get", "put"):
        getattr(client, job)(words[0], url.path)
    else:
        if job == "many-put":
            client.mkdir(url.path)
        for name in words[2:]:
            getattr(client, job[5:])(f"{words[0]}/{name}", f"{url.path}/{name}")
    client.close()


main(*sys.argv[1:])
