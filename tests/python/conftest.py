"""Real servers on loopback, and a session in an empty folder of each."""

import os
import shutil
import subprocess
import tempfile
from dataclasses import dataclass
from pathlib import Path

import pytest

import qrftp

ROOT = Path(__file__).parents[2]


@dataclass
class Login:
    """How to reach a server, for `qrftp.connect` and for fsspec."""

    protocol: str
    host: str
    port: int
    user: str
    options: dict

    @property
    def url(self):
        return f"{'sftp' if self.protocol == 'qsftp' else 'ftp'}://{self.user}@{self.host}:{self.port}"

    @property
    def storage_options(self):
        return {"host": self.host, "port": self.port, "username": self.user, **self.options}

    def connect(self, **others):
        return qrftp.connect(self.url, **{**self.options, **others})


@dataclass
class Place:
    """An empty folder on a server: the session is in it, `disk` is where it lies."""

    session: qrftp.Session
    login: Login
    disk: Path
    remote: str


@pytest.fixture(scope="session")
def servers():
    """What servers.sh tells of the servers that it started."""
    folder = Path(tempfile.mkdtemp(prefix="qrftp-"))
    folder.chmod(0o711)  # for root, the servers are another user
    (folder / "servers").mkdir()
    script = [ROOT / "packaging/servers.sh"]
    started = subprocess.run([*script, "start", folder / "servers", "proftpd", "sshd"])
    if started.returncode == 77 and "CI" not in os.environ:
        pytest.skip("a server is not installed")
    assert started.returncode == 0
    yield dict(line.split("=", 1) for line in (folder / "servers/env").read_text().splitlines())
    subprocess.run([*script, "stop", folder / "servers"], check=True)
    shutil.rmtree(folder)


@pytest.fixture
def logins(servers):
    known = {"known_hosts": servers["KNOWN_HOSTS"], "ssh_config": "", "agent": False, "host_keys": "strict"}
    with_key = {**known, "key": servers["KEY"]}
    with_password = {"password": servers["PASSWORD"], "certificate_authorities": servers["CA_FILE"]}
    return {
        "sftp": Login("qsftp", "127.0.0.1", int(servers["SSHD_PORT"]), servers["SSHD_USER"], with_key),
        "ftps": Login("qftps", "127.0.0.1", int(servers["FTP_PORT"]), servers["USER"], with_password),
    }


@pytest.fixture(params=["sftp", "ftps"])
def place(request, servers, logins):
    login = logins[request.param]
    with login.connect() as session:
        name = f"test-{os.urandom(8).hex()}"
        session.make_folder(name)
        session.change_folder(name)
        yield Place(session, login, Path(servers["HOME_DIR"]) / name, session.working_folder)
