"""Remote files as Python's own file objects."""

from __future__ import annotations

import io
import os
import tempfile
import warnings
from contextlib import AbstractContextManager, nullcontext
from types import TracebackType
from typing import TYPE_CHECKING, Any, Callable, cast

from .error import AlreadyExists, InvalidOption, NotFound

if TYPE_CHECKING:
    from . import _native
    from .session import Session
    from .types import RemotePath

BUFFER_SIZE = 1 << 20
"""How much a file fetches at once where less is asked for."""
_MODES = {frozenset(mode): mode for mode in ("rb", "wb", "xb", "ab", "r+b")}


def checked_mode(mode: str) -> str:
    """`mode` with its letters in the usual order. Raises InvalidOption for one that no remote file has."""
    found = _MODES.get(frozenset(mode))
    if found is None or len(found) != len(mode):
        raise InvalidOption(f"mode is rb, wb, xb, ab or r+b, not {mode!r}")
    return found


def used_alone(wait: bool) -> AbstractContextManager[object]:
    """The `using` of a file whose session nobody else uses."""
    return nullcontext(True)


class RawReader(io.RawIOBase):
    """A remote file that is read at any place. `Reader` buffers it.

    `using(wait)` is entered for each request: it makes sure that nobody else uses the session. It waits for that
    or, without `wait`, yields None where somebody does.
    """

    def __init__(self, file: _native.File, name: str, using: Callable[[bool], AbstractContextManager[object]]) -> None:
        self._file = file
        self._using = using
        self.size = file.size()
        self._at = 0
        self.name = name
        self.mode = "rb"

    def readable(self) -> bool:
        return True

    def seekable(self) -> bool:
        return True

    def tell(self) -> int:
        return self._at

    def seek(self, offset: int, whence: int = os.SEEK_SET) -> int:
        self._check()
        if whence == os.SEEK_END and self.size is None:
            raise io.UnsupportedOperation("the server does not tell how long the file is")
        base = {os.SEEK_SET: 0, os.SEEK_CUR: self._at, os.SEEK_END: self.size or 0}[whence]
        if base + offset < 0:
            raise ValueError("the place lies before the beginning of the file")
        self._at = base + offset
        return self._at

    def readinto(self, buffer: Any) -> int:
        self._check()
        with self._using(True):
            count = self._file.read_into(self._at, buffer)
        self._at += count
        return count

    def readall(self) -> bytes:
        """What is left, as one request where the size is known."""
        self._check()
        if self.size is None:
            return super().readall()
        whole = bytearray(max(0, self.size - self._at))
        view = memoryview(whole)
        return bytes(view[: self.readinto(view)])

    def close(self) -> None:
        if not self.closed:
            # The garbage collector may close it within a call of this thread: waiting would never end.
            with self._using(False) as free:
                self._file.close(free is not None)
        super().close()

    def _check(self) -> None:
        if self.closed:
            raise ValueError("I/O operation on closed file")


class Reader(io.BufferedReader):
    """A remote file that is open for reading. Reading uses the session: one thread at a time."""

    def __init__(
        self,
        file: _native.File,
        name: str,
        buffer_size: int | None = None,
        using: Callable[[bool], AbstractContextManager[object]] = used_alone,
    ) -> None:
        raw = RawReader(file, name, using)
        super().__init__(raw, buffer_size or BUFFER_SIZE)
        self.size = raw.size
        """Bytes, when the file was opened; None where the server does not tell."""


class Spool(io.RawIOBase):
    """A local copy of a file that is being written, with no name; sent by `commit`, after it was closed.

    The target stays as it is until then, and for good when the copy is discarded, or could not take all of it.
    """

    def __init__(self, send: Callable[[io.FileIO], None], name: str, mode: str) -> None:
        self._local: io.FileIO = cast(Any, tempfile.TemporaryFile(buffering=0))
        self._send = send
        self._discarded = False
        self._failure: BaseException | None = None
        self.name = name
        self.mode = mode

    def readable(self) -> bool:
        return "+" in self.mode

    def writable(self) -> bool:
        return True

    def seekable(self) -> bool:
        return True

    def readinto(self, buffer: Any) -> int:
        return self._local.readinto(buffer) or 0

    def write(self, data: Any) -> int:
        if self._discarded:
            return memoryview(data).nbytes
        try:
            return self._local.write(data)
        except BaseException as failure:
            self._failure = failure  # It may lack what was to be written, or get it twice.
            raise

    def seek(self, offset: int, whence: int = os.SEEK_SET) -> int:
        return self._local.seek(offset, whence)

    def tell(self) -> int:
        return self._local.tell()

    def truncate(self, size: int | None = None) -> int:
        return self._local.truncate(size)

    def discard(self) -> None:
        """From now on, nothing is sent."""
        self._discarded = True
        if self.closed:
            self._local.close()

    def commit(self) -> None:
        if self._local.closed:
            return
        with self._local:
            if self._failure is not None:
                raise self._failure
            self._local.seek(0)
            self._send(self._local)

    def close(self) -> None:
        super().close()
        if self._discarded:
            self._local.close()


class _Whole:
    """What `Writer` and `Updater` have in common: the target gets everything or nothing."""

    raw: Any
    closed: bool
    deferred = False

    def close(self) -> None:
        """Closes the file and sends it, unless that is deferred."""
        if self.closed:
            return
        try:
            super().close()  # type: ignore[misc]
        except BaseException:
            self.raw.discard()
            raise
        if not self.deferred:
            self.raw.commit()

    def commit(self) -> None:
        """Sends what was deferred (fsspec's transactions)."""
        self.close()
        self.raw.commit()

    def discard(self) -> None:
        """Closes the file and leaves the target as it is."""
        self.raw.discard()
        self.close()

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:  # fmt: skip
        if kind is not None:
            self.discard()
        else:
            self.close()

    def __del__(self) -> None:
        if not self.closed:
            warnings.warn(f"{self.raw.name!r} was never closed and is not sent", ResourceWarning, source=self)
            self.discard()


class Writer(_Whole, io.BufferedWriter):  # type: ignore[misc]
    """A remote file that is open for writing. What was written appears at `close`, as a whole."""


class Updater(_Whole, io.BufferedRandom):  # type: ignore[misc]
    """A remote file that is open for changing. The changed file appears at `close`, as a whole."""


def open_for_writing(
    session: Session, path: RemotePath, mode: str, send: Callable[[io.FileIO], None]
) -> Writer | Updater:
    """The file object of `Session.open` for every mode but "rb". `mode` is a checked one."""
    if mode == "xb" and session.exists(path):
        raise AlreadyExists(f"{os.fsdecode(path)}: there is already something of that name", os.fsdecode(path))
    spool = Spool(send, os.fsdecode(path), mode)
    try:
        if mode in ("ab", "r+b"):
            try:
                session.fetch(path, spool)
            except NotFound:
                if mode == "r+b":
                    raise
        if mode == "r+b":
            spool.seek(0)
            return Updater(spool)
        return Writer(spool)
    except BaseException:
        spool.discard()
        spool.close()
        raise
