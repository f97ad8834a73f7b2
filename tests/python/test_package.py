"""The package as a whole: its types, its page of the documentation, its start."""

import os
import re
import subprocess
import sys
from pathlib import Path

import pytest

import qrftp
from conftest import ROOT

USE = """
import qrftp
with qrftp.connect("sftp://host", key="key", progress=1) as session:  # E
    names: list[str] = [entry.name for entry in session.list()]
    session.open("file", "rb").write(b"")
    session.open("file", "w")  # E
    session.fetch("file", "file", progress=lambda now: now.bytes > 0)
    size: int = session.stat("file").size  # E
qrftp.connect("sftp://host", answer_prompts=lambda name, text, asked: [prompt for prompt, echo in asked if echo])
"""


def test_types(tmp_path):
    (tmp_path / "use.py").write_text(USE)
    mypy = [sys.executable, "-m", "mypy", "--strict", "--cache-dir", tmp_path / "cache"]
    config = ["--config-file", ROOT / "python/pyproject.toml"]
    subprocess.run([*mypy, *config], cwd=ROOT / "python", check=True)
    environment = {**os.environ, "MYPYPATH": str(ROOT / "python")}
    found = subprocess.run([*mypy, "use.py"], cwd=tmp_path, env=environment, stdout=subprocess.PIPE, text=True).stdout
    expected = {number for number, line in enumerate(USE.splitlines(), 1) if line.endswith("# E")}
    assert {int(number) for number in re.findall(r"^use.py:(\d+): error", found, re.M)} == expected, found
    stub = (ROOT / "python/qrftp/_native.pyi").read_text()
    for kind in (qrftp.session._native.Session, qrftp.session._native.File):
        for name in (name for name in vars(kind) if not name.startswith("_")):
            assert f"    def {name}(self" in stub, name


def test_the_page_of_the_documentation(servers, logins, tmp_path):
    """Its blocks run one after the other, with the servers of the tests in the place of its example."""
    login = logins["sftp"]
    (tmp_path / ".ssh").mkdir(mode=0o700)
    key = tmp_path / ".ssh/id_ed25519"
    key.write_text(Path(servers["KEY"]).read_text())
    key.chmod(0o600)
    blocks = re.findall(r"^```python\n(.*?)^```", (ROOT / "docs/python.md").read_text(), re.M | re.S)
    script = "\n".join(blocks).replace("user@example.org", f"{login.user}@127.0.0.1:{login.port}")
    assert len(blocks) > 4
    environment = {**os.environ, "HOME": str(tmp_path), "SSH_AUTH_SOCK": ""}
    subprocess.run([sys.executable, "-W", "error::ResourceWarning", "-c", script], cwd=tmp_path, env=environment,
                   check=True)  # fmt: skip


def test_importing_loads_little():
    heavy = "fsspec", "dask", "pandas", "asyncio", "subprocess", "tempfile"
    listing = "import sys, qrftp; print(*sys.modules)"
    loaded = subprocess.run([sys.executable, "-c", listing], check=True, stdout=subprocess.PIPE, text=True).stdout
    assert not set(heavy) & set(loaded.split())
