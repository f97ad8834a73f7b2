#!/usr/bin/env python3
"""python_compare.py BUILD_FOLDER [JOB…]: the Python package beside paramiko, asyncssh, ftplib and fsspec's own "sftp".

Starts servers on loopback with packaging/servers.sh, and for the jobs "many" and "ranges" a line with round trips of
50 ms. Each job is run three times (BENCH_ROUNDS) by each client, in turn; the medians count. Prints one line for each job
and client: seconds, and how many times as long as the package."""

import asyncio
import ftplib
import os
import ssl
import statistics
import subprocess
import sys
import tempfile
import time
from pathlib import Path

BUILD = Path(sys.argv[1]).resolve()
sys.path.insert(0, str(BUILD / "python"))

import qrftp  # noqa: E402
from servers import FAR, NEAR, Servers, memory_for  # noqa: E402

MIB = int(os.environ.get("BENCH_MIB", 512))
ROUNDS = int(os.environ.get("BENCH_ROUNDS", 3))
FILES, RANGES, PART = 2000, 1000, 64 << 10
LARGE, NAME, SMALL = f"{MIB} MiB", f"{MIB}_MiB", f"{FILES} files"


class Bench:
    def __init__(self, folder):
        self.folder = folder
        self.servers = Servers(BUILD, folder)
        self.env, self.home = self.servers.env, self.servers.home
        self.port = int(self.env["SSHD_PORT"])
        self.options = {"key": self.env["KEY"], "ssh_config": "", "host_keys": "off", "agent": False}
        self.servers.set_delay(50)
        for data in (LARGE, SMALL):
            self.servers.add(data)

    def session(self, host=NEAR):
        return qrftp.connect(f"sftp://{self.env['SSHD_USER']}@{host}:{self.port}", **self.options)

    def paramiko(self, host=NEAR):
        import paramiko

        client = paramiko.SSHClient()
        client.set_missing_host_key_policy(paramiko.AutoAddPolicy())
        client.connect(host, self.port, self.env["SSHD_USER"], key_filename=self.env["KEY"], allow_agent=False,
                       look_for_keys=False)  # fmt: skip
        return client, client.open_sftp()

    def asyncssh(self, work, host=NEAR):
        import asyncssh

        async def run():
            async with asyncssh.connect(host, self.port, username=self.env["SSHD_USER"], known_hosts=None,
                                        client_keys=[self.env["KEY"]], config=None) as connection:  # fmt: skip
                async with connection.start_sftp_client() as sftp:
                    await work(sftp)

        asyncio.run(run())

    def ftp(self):
        context = ssl.create_default_context(cafile=self.env["CA_FILE"])
        context.maximum_version = ssl.TLSVersion.TLSv1_2  # later ones have no session in time for the data connection

        class Tls(ftplib.FTP_TLS):
            def ntransfercmd(self, cmd, rest=None):
                data, size = ftplib.FTP.ntransfercmd(self, cmd, rest)
                return context.wrap_socket(data, server_hostname=self.host, session=self.sock.session), size

        client = Tls(context=context)
        client.connect("127.0.0.1", int(self.env["FTP_PORT"]))
        client.login(self.env["USER"], self.env["PASSWORD"])
        client.prot_p()
        return client

    def large(self, up):
        local, remote = str(self.folder / (NAME if up else "fetched")), str(self.home / ("sent" if up else NAME))
        def own():
            with self.session() as session:
                session.send(local, remote) if up else session.fetch(remote, local)
        def by_paramiko():
            client, sftp = self.paramiko()
            sftp.put(local, remote) if up else sftp.get(remote, local)
            client.close()
        def by_asyncssh():
            self.asyncssh(lambda sftp: sftp.put(local, remote) if up else sftp.get(remote, local))
        return {"qrftp": own, "paramiko": by_paramiko, "asyncssh": by_asyncssh}

    def many(self):
        target, remote = self.folder / "many", str(self.home / SMALL.replace(" ", "_"))
        files = [(f"{remote}/file{number:06}", str(target / str(number))) for number in range(FILES)]
        target.mkdir()
        def own():
            with self.session(FAR) as session:
                session.fetch_tree(remote, target)
        def by_paramiko():  # one tenth, since it takes minutes
            client, sftp = self.paramiko(FAR)
            for each in files[:FILES // 10]:
                sftp.get(*each)
            client.close()
        async def get_all(sftp):
            limit = asyncio.Semaphore(100)
            async def get(one):
                async with limit:
                    await sftp.get(*one)
            await asyncio.gather(*map(get, files))
        return {"qrftp": own, "paramiko (a tenth of the files, times 10)": by_paramiko,
                "asyncssh, 100 at once": lambda: self.asyncssh(get_all, FAR)}  # fmt: skip

    def ftp_large(self):
        options = {"password": self.env["PASSWORD"], "certificate_authorities": self.env["CA_FILE"]}
        def own():
            with qrftp.connect(f"ftp://{self.env['USER']}@127.0.0.1:{self.env['FTP_PORT']}", **options) as session:
                session.fetch(str(self.home / NAME), self.folder / "fetched")
        def by_ftplib():
            client = self.ftp()
            with open(self.folder / "fetched", "wb", buffering=0) as file:
                client.retrbinary(f"RETR {self.home}/{NAME}", file.write, 1 << 18)
            client.quit()
        return {"qrftp": own, "ftplib": by_ftplib}

    def ranges(self):
        import fsspec
        their_options = {"key_filename": self.env["KEY"], "allow_agent": False, "look_for_keys": False}
        def read(protocol, options, count):
            system = fsspec.filesystem(protocol, host=FAR, port=self.port, username=self.env["SSHD_USER"],
                                       skip_instance_cache=True, **options)  # fmt: skip
            starts = [number * ((MIB << 20) // RANGES) for number in range(count)]
            parts = system.cat_ranges([str(self.home / NAME)] * count, starts, [each + PART for each in starts])
            assert all(len(each) == PART for each in parts)
        return {"qrftp": lambda: read("qsftp", self.options, RANGES),
                "fsspec's sftp (a tenth of the ranges, times 10)": lambda: read("sftp", their_options, RANGES // 10)}  # fmt: skip

    def imports(self):
        environment = {**os.environ, "PYTHONPATH": str(BUILD / "python")}
        def load(name):
            return lambda: subprocess.run([sys.executable, "-c", f"import {name}"], check=True, env=environment)
        return {"qrftp": load("qrftp"), "paramiko": load("paramiko"), "no module": load("sys")}


def measure(job, clients):
    seconds = {name: [] for name in clients}
    for _ in range(ROUNDS):
        for name, work in clients.items():
            began = time.monotonic()
            work()
            seconds[name].append((time.monotonic() - began) * (10 if "times 10" in name else 1))
    for name, each in seconds.items():
        median, own = statistics.median(each), statistics.median(seconds["qrftp"])
        print(f"{job:8} {name:48} {median:9.3f} s {median / own:8.2f}", flush=True)


with tempfile.TemporaryDirectory(dir=memory_for(4 * MIB)) as made:
    os.chmod(made, 0o711)
    bench = Bench(Path(made))
    try:
        jobs = {"down": lambda: bench.large(False), "up": lambda: bench.large(True), "many": bench.many,
                "ftp": bench.ftp_large, "ranges": bench.ranges, "import": bench.imports}  # fmt: skip
        for job in sys.argv[2:] or jobs:
            measure(job, jobs[job]())
    finally:
        bench.servers.close()
