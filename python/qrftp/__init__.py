"""FTP, FTPS and SFTP: whole transfers, whole trees, and files that are read and written in place.

    >>> import qrftp
    >>> with qrftp.connect("sftp://me@host") as session:
    ...     for entry in session.list("reports"):
    ...         print(entry.name, entry.size, entry.modified)
    ...     session.fetch_tree("reports", "reports", keep_time=True)
    ...     with session.open("reports/log.csv", "rb") as file:
    ...         header = file.readline()

`connect` returns a `Session`, whose methods are all that can be done. Transfers appear whole or not at all; host
keys and certificates are checked. Names are str, bytes or os.PathLike, sizes are bytes, times are aware datetimes
in UTC, modes are ints. Errors are below `qrftp.Error`; most derive from Python's own (FileNotFoundError,
PermissionError, TimeoutError, …). `qrftp.fsspec` makes the servers file systems for pandas, Dask and others.
"""

from . import error as error
from .entry import (
    Action, Checksum, DiskSpace, Entry, Failure, Kind, Listing, Progress, ServerInfo, TreeProgress, TreeResult,
)  # fmt: skip
from .error import *  # noqa: F403
from .error import __all__ as _errors
from .session import Session, set_trace, versions
from .types import LocalPath, RemotePath

connect = Session
"""`connect(url, **options)` logs in and returns the `Session`."""

__all__ = [
    "Action", "Checksum", "DiskSpace", "Entry", "Failure", "Kind", "Listing", "LocalPath", "Progress", "RemotePath",
    "ServerInfo", "Session", "TreeProgress", "TreeResult", "connect", "error", "set_trace", "versions", *_errors,
]  # fmt: skip
