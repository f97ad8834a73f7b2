"""KeyboardInterrupt ends a call within half a second and leaves nothing half done."""

import dataclasses
import os
import signal
import time

import pytest

from relay import Relay

CONTENT = os.urandom(8 << 20)


@pytest.fixture
def interrupted():
    """Runs an action that a SIGINT interrupts; checks how many seconds that took from the signal on."""
    times = []

    def handle(number, frame):
        times.append(time.monotonic())
        raise KeyboardInterrupt

    def run(act, limit=0.5):
        with pytest.raises(KeyboardInterrupt):
            act()
        assert time.monotonic() - times[-1] < limit

    previous = signal.signal(signal.SIGINT, handle)
    yield run
    signal.signal(signal.SIGINT, previous)


def interrupt(_):
    os.kill(os.getpid(), signal.SIGINT)


@pytest.mark.parametrize("protocol", ["sftp", "ftps"])
def test_connecting_to_a_server_that_says_nothing(logins, interrupted, protocol):
    relay = Relay(logins[protocol].port)
    relay.limit = 0
    interrupted(dataclasses.replace(logins[protocol], port=relay.port).connect)
    relay.close()


def test_a_server_that_stalls(place, interrupted, tmp_path):
    if place.login.protocol != "qsftp":
        pytest.skip("the data connections of FTP do not pass through the relay")
    place.session.send_bytes(CONTENT, "file")
    relay = Relay(place.login.port)
    login = dataclasses.replace(place.login, port=relay.port)
    with login.connect(host_keys="off") as session:
        session.change_folder(place.remote)
        file = session.open("file")
        for act in (lambda: session.fetch("file", tmp_path / "file"), lambda: session.fetch_bytes("file"),
                    lambda: file.read()):  # fmt: skip
            relay.limit = 1 << 20
            interrupted(act)
        assert list(tmp_path.iterdir()) == []
        # The next call connects again, in the same folder; a file that was open still is.
        assert [each.name for each in session.list()] == ["file"]
        assert file.seek(0) == 0 and file.read() == CONTENT
    relay.close()


def test_leaves_the_target_as_it_was(place, interrupted, tmp_path):
    session = place.session
    session.send_bytes(b"old", "file")
    (tmp_path / "file").write_bytes(b"old")
    (tmp_path / "new").write_bytes(CONTENT)
    session.send(tmp_path / "new", "big")
    # Over FTP, an upload that is broken off takes its connection along: another login removes what was sent.
    limit = 0.5 if place.login.protocol == "qsftp" else 20
    interrupted(lambda: session.send(tmp_path / "new", "file", rate_limit=1 << 20, progress=interrupt), limit)
    interrupted(lambda: session.fetch("big", tmp_path / "file", rate_limit=1 << 20, progress=interrupt))
    assert sorted(each.name for each in place.disk.iterdir()) == ["big", "file"]
    assert session.fetch_bytes("file") == (tmp_path / "file").read_bytes() == b"old"
    assert sorted(each.name for each in tmp_path.iterdir()) == ["file", "new"]
