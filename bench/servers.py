"""Servers, files and the slow line, with which the command and the Python package are measured."""
import os
import pathlib
import shutil
import subprocess

ROOT = pathlib.Path(__file__).resolve().parent.parent
NEAR, FAR = "127.0.0.1", "127.0.0.2"  # the servers, and the slow line to them


def memory_for(mib):
    """A folder in memory with room for so many MiB, or None: a disk would be what is measured."""
    shm = "/dev/shm"
    return shm if os.path.isdir(shm) and shutil.disk_usage(shm).free > mib << 20 else None


def make(path, data, sparse):
    """Makes the file or folder that `data` names: "N MiB", "N files", "N files in folders" or "N entries". Of a file of
    more than `sparse` MiB only its length matters."""
    count, kind = int(data.split()[0]), data.split(" ", 1)[1]
    if kind == "MiB":
        with open(path, "wb") as file:
            for _ in range(count if count <= sparse else 0):
                file.write(os.urandom(1 << 20))
            file.truncate(count << 20)
        return
    path.mkdir()
    if kind == "files":
        for i in range(count):
            (path / f"file{i:06}").write_bytes(os.urandom(4096))
        return
    folders = max(count // (50 if kind == "entries" else 1000), 1)
    each = count // folders - (1 if kind == "entries" else 0)
    for i in range(folders):
        (path / f"folder{i:04}").mkdir()
        for j in range(each):
            (path / f"folder{i:04}" / f"file{j:04}").write_bytes(b"%64d" % j)


class Servers:
    """The servers of packaging/servers.sh, with the same files in their home and here, and the slow line to them."""

    def __init__(self, build, work, sparse=1024):
        self.work, self.sparse, self.relay = work, sparse, None
        (work / "servers").mkdir()
        try:
            self.start(build)
        except BaseException:
            self.close()
            raise

    def start(self, build):
        work = self.work
        self.script("start", "proftpd", "sshd")
        self.env = dict(line.split("=", 1) for line in (work / "servers/env").read_text().splitlines())
        self.home = pathlib.Path(self.env["HOME_DIR"])
        key = (work / "servers/host_key.pub").read_text()
        port = self.env["SSHD_PORT"]
        (work / "known_hosts").write_text("".join(f"[{host}]:{port} {key}" for host in (NEAR, FAR)))
        self.relay = subprocess.Popen([build / "bench/delay_relay", FAR, NEAR, port], text=True, stdin=subprocess.PIPE,
                                      stdout=subprocess.PIPE)
        if self.relay.stdout.readline() != "ready\n":
            raise SystemExit("no slow line")

    def script(self, *arguments):
        subprocess.run([ROOT / "packaging/servers.sh", arguments[0], self.work / "servers", *arguments[1:]], check=True)

    def set_delay(self, milliseconds):
        """Sets that of a round trip. Returns the round trips in a row since the last call."""
        self.relay.stdin.write(f"{milliseconds / 2}\n")
        self.relay.stdin.flush()
        return int(self.relay.stdout.readline())

    def add(self, data):
        local, remote = self.work / data.replace(" ", "_"), self.home / data.replace(" ", "_")
        if local.exists():
            return
        make(local, data, self.sparse)
        subprocess.run(["cp", "-a", "--sparse=always", local, remote], check=True)
        subprocess.run(["chmod", "-R", "go+rX", local, remote], check=True)

    def clean(self):
        for place in (self.work / "got", self.home / "got"):
            shutil.rmtree(place) if place.is_dir() else place.unlink(missing_ok=True)

    def close(self):
        if self.relay:
            self.relay.stdin.close()
            self.relay.wait()
        self.script("stop")
