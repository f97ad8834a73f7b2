"""What can go wrong: one class for each cause, all below `Error`.

Most also derive from the built-in that Python programmers catch for their cause, so that
``except FileNotFoundError`` works as for a local file.
"""

from __future__ import annotations

import errno as _errno
from typing import NamedTuple

__all__ = [
    "AlreadyExists", "Cancelled", "CannotResume", "CertificateRefused", "ChecksumMismatch", "Closed", "ConnectionLost", "DiskFull",
    "EmptySource", "Error", "HostKeyChanged", "HostKeyRevoked", "HostKeyUnknown", "IncompleteListing",
    "InvalidName", "InvalidOption", "InvalidUrl", "IsFolder", "LocalFileError", "LoginRefused", "NoConnection",
    "NoEncryption", "NotEmpty", "NotFolder", "NotFound", "NotSupported", "PermissionDenied", "ProtocolError",
    "ProxyRefused", "Refused", "Reply", "SizeMismatch", "Timeout", "TooManyRemovals", "UnsafeName",
]  # fmt: skip


class Reply(NamedTuple):
    """What the server said: FTP's reply code or SFTP's status code, and the text that came with it."""

    code: int
    message: str


class Error(Exception):
    """The root of everything that this package raises for the client.

    ``str(error)`` is a sentence without secrets. ``path`` is what the error is about: a remote name, a local
    path, a URL or a host. ``reply`` is the server's answer, or None where it gave none.
    """

    path: str
    reply: Reply | None
    _errno: int | None = None

    def __init__(self, message: str, path: str = "", reply: Reply | None = None, number: int | None = None) -> None:
        super().__init__(message)
        self.path = path
        self.reply = reply
        self._number = number
        if isinstance(self, OSError):
            _fill(self, self._errno if number is None else number, message, path)

    def __str__(self) -> str:
        return str(self.args[0])

    def __reduce__(self) -> tuple[type[Error], tuple[object, ...]]:
        return type(self), (self.args[0], self.path, self.reply, self._number)


def _fill(error: OSError, number: int | None, message: str, path: str) -> None:
    if number is not None:
        error.errno = number
    error.strerror = message
    error.filename = path


class InvalidUrl(Error, ValueError):
    """The text is not the URL of an FTP or SFTP server. Nothing was sent."""


class InvalidName(Error, ValueError):
    """A name, user name or password holds a byte that the protocol cannot carry. Nothing was sent."""


class InvalidOption(Error, ValueError):
    """An option has a value that means nothing. Nothing was sent."""


class NoConnection(Error, ConnectionError):
    """No connection came about: unknown host, nobody listens, the network refused."""


class ProxyRefused(Error, ConnectionError):
    """The proxy was reached and did not make the connection."""


class NoEncryption(Error, ConnectionError):
    """TLS was asked for, and the server does not offer it or no common version was found."""


class CertificateRefused(Error, ConnectionError):
    """The server's certificate was not accepted. Nothing secret was sent."""


class HostKeyUnknown(Error, ConnectionError):
    """The host has no line in the known-hosts files, and unknown ones are not accepted."""


class HostKeyChanged(Error, ConnectionError):
    """The host showed another key than the known-hosts files have for it."""


class HostKeyRevoked(Error, ConnectionError):
    """The host showed a key that a known-hosts file marks as revoked."""


class LoginRefused(Error, PermissionError):
    """The server refused the user name, the password or the keys."""

    _errno = _errno.EACCES


class Timeout(Error, TimeoutError):
    """Nothing arrived, or too little, for the time allowed."""

    _errno = _errno.ETIMEDOUT


class ConnectionLost(Error, ConnectionError):
    """The connection broke. A request that changes something may have been carried out; it was not repeated."""

    _errno = _errno.ECONNRESET


class ProtocolError(Error, ConnectionError):
    """The other side does not keep to the protocol. The connection is closed."""

    _errno = _errno.EPROTO


class NotFound(Error, FileNotFoundError):
    """There is nothing of that name on the server."""

    _errno = _errno.ENOENT


class PermissionDenied(Error, PermissionError):
    """The server does not allow it."""

    _errno = _errno.EACCES


class AlreadyExists(Error, FileExistsError):
    """There is already something of that name."""

    _errno = _errno.EEXIST


class NotEmpty(Error, OSError):
    """The folder still holds entries."""

    _errno = _errno.ENOTEMPTY


class IsFolder(Error, IsADirectoryError):
    """A file was wanted, and it is a folder."""

    _errno = _errno.EISDIR


class NotFolder(Error, NotADirectoryError):
    """A folder was wanted, and it is something else."""

    _errno = _errno.ENOTDIR


class DiskFull(Error, OSError):
    """The server's disk, or the user's share of it, is full."""

    _errno = _errno.ENOSPC


class NotSupported(Error, NotImplementedError):
    """The server does not have what was asked for: a command, an extension."""


class Refused(Error, OSError):
    """The server refused, for a reason that only its own words tell."""


class IncompleteListing(Error, OSError):
    """The server began a listing and did not end it, or said that it left something out."""


class CannotResume(Error, ValueError):
    """A partial file cannot be completed; the message says why. Nothing was changed."""


class SizeMismatch(Error, OSError):
    """What arrived is not as long as what was sent."""


class ChecksumMismatch(Error, OSError):
    """The checksums of source and copy differ. The target is what it was."""


class UnsafeName(Error, ValueError):
    """The server sent a name that no local file may get, or a local link leads out of the destination."""


class EmptySource(Error):
    """The source of a synchronisation is empty, and the destination is not. Nothing was removed."""


class TooManyRemovals(Error):
    """More would be removed than the options allow. Nothing was changed."""


class LocalFileError(Error, OSError):
    """A local file or folder could not be opened, read or written; ``errno`` says why."""


class Cancelled(Error):
    """A callback asked for the end by returning False."""


class Closed(Error, ValueError):
    """The session was closed."""


def make(name: str, message: str, path: str, code: int, said: str, number: int | None) -> Error:
    """The error of the class `name`. Called by the native module."""
    reply = Reply(code, said) if code or said else None
    cls: type[Error] = globals()[name]
    return cls(message, path, reply, number)
