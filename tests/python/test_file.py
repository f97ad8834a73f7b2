"""Remote files as Python's own file objects."""

import io
import os
import random
import resource
from contextlib import contextmanager

import pytest

import qrftp

CONTENT = bytes(random.Random(1).randbytes(3 << 20))


@contextmanager
def full_disk():
    """As long as it lasts, no local file gets longer than this."""
    soft, hard = resource.getrlimit(resource.RLIMIT_FSIZE)
    resource.setrlimit(resource.RLIMIT_FSIZE, (1000, hard))
    try:
        yield
    finally:
        resource.setrlimit(resource.RLIMIT_FSIZE, (soft, hard))


def test_reads_at_any_place(place):
    session = place.session
    session.send_bytes(CONTENT, "file")
    with session.open("file") as file:
        assert isinstance(file, io.BufferedReader) and isinstance(file.raw, io.RawIOBase)
        assert file.name == "file" and file.readable() and not file.writable()
        for start, size in ((0, 10), (2 << 20, 70000), (5, 3), ((3 << 20) - 2, 100), (4 << 20, 1)):
            assert file.seek(start) == start and file.read(size) == CONTENT[start : start + size]
        assert file.seek(-4, os.SEEK_END) == len(CONTENT) - 4 and file.read() == CONTENT[-4:]
        buffer = bytearray(100)
        assert file.seek(0) == 0 and file.readinto(buffer) == 100 and buffer + file.read() == CONTENT
    with pytest.raises(ValueError):
        file.read()
    with pytest.raises(FileNotFoundError):
        session.open("nothing")


def test_writes_appear_whole_or_not_at_all(place):
    session, target = place.session, place.disk / "file"
    with session.open("file", "wb") as file:
        assert isinstance(file, io.BufferedWriter) and file.write(b"first") == 5
        file.flush()
        assert not target.exists()
    assert target.read_bytes() == b"first"
    with session.open("file", "ab") as file:
        assert file.tell() == 5
        file.write(b" second")
    with session.open("file", "rb+") as file:
        assert file.read(5) == b"first"
        file.seek(0)
        file.write(b"F")
        file.truncate(9)
    assert target.read_bytes() == b"First sec"

    for mode in ("wb", "ab", "r+b"):
        with pytest.raises(KeyError), session.open("file", mode) as file:
            file.write(b"lost")
            raise KeyError
    with pytest.raises(FileExistsError):
        session.open("file", "xb")
    with pytest.raises(FileNotFoundError):
        session.open("nothing", "r+b")
    with pytest.raises(qrftp.NotFound), session.open("nowhere/file", "wb") as file:
        file.write(b"lost")
    with pytest.warns(ResourceWarning):
        file = session.open("file", "wb")
        file.write(b"forgotten")
        del file
    for mode in ("a+b", "w+b", "x+b", "rbb", "r"):
        with pytest.raises(qrftp.InvalidOption):
            session.open("file", mode)
    assert target.read_bytes() == b"First sec" and [each.name for each in place.disk.iterdir()] == ["file"]


def test_sends_nothing_that_the_local_disk_did_not_take(place):
    place.session.send_bytes(b"old", "file")
    for mode in ("wb", "ab", "r+b"):
        file = place.session.open("file", mode)
        file.write(b"new" * 1000)
        with full_disk(), pytest.raises(OSError):
            file.close()
        assert file.closed
    with full_disk(), pytest.raises(KeyError), place.session.open("file", "wb") as file:
        file.write(b"new" * 1000)
        raise KeyError
    text = io.TextIOWrapper(place.session.open("file", "wb"))
    with full_disk(), pytest.raises(OSError):
        text.write("new" * 10000)
    with pytest.raises(OSError):
        text.close()
    assert (place.disk / "file").read_bytes() == b"old"
