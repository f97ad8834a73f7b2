"""Servers as file systems for fsspec, and with it for pandas, Dask, pyarrow, Ray and DuckDB.

The protocols are ``qsftp``, ``qftp`` (encrypted where the server can) and ``qftps``:

    >>> import pandas
    >>> pandas.read_csv("qsftp://me@host/data/part-1.csv")

Paths are absolute. Options of a file system are those of `qrftp.connect`, with fsspec's names `host`, `port`,
`username` and `password`, and `max_connections`: how many connections this process has to the server at a time.
"""

from __future__ import annotations

import os
from collections import defaultdict
from datetime import datetime
from io import FileIO
from typing import Any, Callable, ContextManager, Iterable, Iterator
from urllib.parse import quote, unquote, urlsplit

import fsspec
from fsspec.utils import stringify_path, tokenize

from .entry import Entry
from .error import AlreadyExists, NotFound, NotSupported
from .file import Reader, Updater, Writer, checked_mode, open_for_writing
from .local_copies import LocalCopies, with_parents
from .pool import Pool, pool_of
from .session import Session

_SCHEMES = ("qsftp", "qftp", "qftps", "sftp", "ssh", "ftp", "ftps")
_OF_FSSPEC = ("asynchronous", "batch_size", "listings_expiry_time", "loop", "max_paths", "skip_instance_cache",
              "use_listings_cache")  # fmt: skip


class QrftpFileSystem(LocalCopies):
    """The files of an SFTP server. Any thread may use it: each call takes a session that is free.

    Files appear as a whole when they are closed. Names on the server are never taken from a cache.
    """

    protocol: str | tuple[str, ...] = "qsftp"
    root_marker = "/"
    cachable = True
    _scheme = "sftp"
    _defaults: dict[str, Any] = {}

    def __init__(
        self,
        host: str,
        port: int | None = None,
        username: str | None = None,
        password: str | None = None,
        max_connections: int = 4,
        **options: Any,
    ) -> None:
        if getattr(self, "_cached", False):
            return
        super().__init__(**{name: options.pop(name) for name in _OF_FSSPEC if name in options})
        place = f"[{host}]" if ":" in host and not host.startswith("[") else host
        self._url = f"{self._scheme}://{quote(place, safe='[]:')}" + (f":{port}" if port else "")
        self._options: dict[str, Any] = {"user": username, "password": password, **self._defaults, **options}
        self._max_connections = max(1, max_connections)
        self._key = tokenize(self._url, self._options, max_connections)

    @property
    def _pool(self) -> Pool:
        return pool_of(self._key, lambda: Session(self._url, **self._options), self._max_connections)

    def _session(self) -> ContextManager[Session]:
        return self._pool.session()

    def close(self) -> None:
        """Ends the connections of this process to the server that are not in use."""
        self._pool.close()

    @classmethod
    def _strip_protocol(cls, path: Any) -> Any:
        if isinstance(path, list):
            return [cls._strip_protocol(each) for each in path]
        path = stringify_path(path)
        scheme, mark, rest = path.partition("://")
        if mark and scheme in _SCHEMES:
            path = rest.partition("/")[2]
        return "/" + path.strip("/")

    @staticmethod
    def _get_kwargs_from_urls(path: str) -> dict[str, Any]:
        parts = urlsplit(path)
        given = {"host": parts.hostname, "port": parts.port, "username": parts.username, "password": parts.password}
        return {name: unquote(value) if isinstance(value, str) else value for name, value in given.items() if value}

    def unstrip_protocol(self, name: str) -> str:
        protocol = self.protocol if isinstance(self.protocol, str) else self.protocol[0]
        return f"{protocol}://{urlsplit(self._url).netloc}{self._strip_protocol(name)}"

    # Looking

    def _info_of(self, session: Session, path: str, entry: Entry, follow_links: bool = True) -> dict[str, Any]:
        kind, size = entry.kind, entry.size
        if entry.is_link:
            try:
                if session.is_folder(path):
                    kind = "folder" if follow_links else kind
                else:
                    kind, size = "file", session.file_size(path)
            except NotFound:  # It leads nowhere.
                pass
        folder = kind == "folder"
        info = {
            "name": path,
            "size": 0 if folder else size,
            "type": "directory" if folder else kind,
            "mtime": entry.modified,
            "mode": entry.mode,
            "owner": entry.owner,
            "group": entry.group,
        }
        return {**info, "islink": True, "destination": entry.link_target} if entry.is_link else info

    def info(self, path: str, **kwargs: Any) -> dict[str, Any]:
        path = self._strip_protocol(path)
        if path == "/":
            return {"name": "/", "size": 0, "type": "directory"}
        with self._session() as session:
            return self._info_of(session, path, session.stat(path))

    def ls(self, path: str, detail: bool = True, follow_links: bool = True, **kwargs: Any) -> list[Any]:
        """A folder's entries; without `follow_links`, one that leads to a folder is of the type "link"."""
        path = self._strip_protocol(path)
        with self._session() as session:
            if path != "/" and not session.is_folder(path):
                found = [self._info_of(session, path, session.stat(path))]
            else:
                below = path.rstrip("/") + "/"
                found = [self._info_of(session, below + each.name, each, follow_links) for each in session.list(path)]
        return found if detail else [each["name"] for each in found]

    def walk(self, path: str, maxdepth: int | None = None, **kwargs: Any) -> Iterator[Any]:
        """As fsspec's, for `find` and all that works on trees too; links below `path` are not entered."""
        yield from super().walk(path, maxdepth=maxdepth, **{"follow_links": False, **kwargs})

    def glob(self, path: str, **kwargs: Any) -> Any:
        """As fsspec's: "*" stands for links to folders too, "**" does not enter them."""
        return super().glob(path, follow_links="**" not in path, **kwargs)

    def exists(self, path: str, **kwargs: Any) -> bool:
        with self._session() as session:
            return session.exists(self._strip_protocol(path))

    def modified(self, path: str) -> datetime | None:
        path = self._strip_protocol(path)
        with self._session() as session:
            entry = session.stat(path)
            return entry.modified if entry.modified_exact else session.modification_time(path) or entry.modified

    def created(self, path: str) -> datetime:
        raise NotImplementedError("neither protocol tells when a file was made")

    # Reading and writing

    def _open(
        self, path: str, mode: str = "rb", block_size: int | None = None, autocommit: bool = True, **kwargs: Any
    ) -> Reader | Writer | Updater:
        pool = self._pool
        path = self._strip_protocol(path)
        mode = checked_mode(mode)
        with pool.session() as session:
            if mode == "rb":
                size = block_size if isinstance(block_size, int) else None
                using = lambda wait: pool.session_of_file(session, wait)
                return Reader(session._native.open(path), path, size, using)

            def send(source: FileIO) -> None:
                def whole() -> None:
                    source.seek(0)
                    sender.send(source, path, replace=mode != "xb")

                with pool.session() as sender:
                    with_parents(sender, path, whole)

            file = open_for_writing(session, path, mode, send)
            file.deferred = not autocommit
            if file.deferred and mode == "r+b":  # `open` sees to those without "r".
                self.transaction.files.append(file)
            return file

    def pipe_file(self, path: str, value: bytes, mode: str = "overwrite", **kwargs: Any) -> None:
        if self._intrans:
            with self.open(path, "wb" if mode == "overwrite" else "xb") as file:
                file.write(value)
            return
        path = self._strip_protocol(path)
        with self._session() as session:
            with_parents(session, path, lambda: session.send_bytes(value, path, replace=mode == "overwrite"))

    def cat_file(self, path: str, start: int | None = None, end: int | None = None, **kwargs: Any) -> bytes:
        path = self._strip_protocol(path)
        with self._session() as session:
            if any(each is not None and each < 0 for each in (start, end)):
                start, end, _ = slice(start, end).indices(session.file_size(path) or 0)
            offset = start or 0
            length = None if end is None else max(0, end - offset)
            return session.fetch_bytes(path, offset=offset, length=length)

    def cat_ranges(self, paths: list[str], starts: Any, ends: Any, max_gap: int | None = None,
                   on_error: str = "return", **kwargs: Any) -> list[Any]:  # fmt: skip
        """Parts of files; over SFTP, those of one file are asked for at once."""
        starts = starts if isinstance(starts, list) else [starts] * len(paths)
        ends = ends if isinstance(ends, list) else [ends] * len(paths)
        if len(starts) != len(paths) or len(ends) != len(paths):
            raise ValueError("there are not as many starts and ends as paths")
        by_path: dict[str, list[int]] = defaultdict(list)
        for index, path in enumerate(paths):
            by_path[self._strip_protocol(path)].append(index)
        parts: list[Any] = [None] * len(paths)
        for path, indices in by_path.items():
            try:
                found: Iterable[Any] = self._ranges(path, [(starts[each], ends[each]) for each in indices])
            except Exception as failure:
                if on_error != "return":
                    raise
                found = [failure] * len(indices)
            for index, part in zip(indices, found):
                parts[index] = part
        return parts

    def _ranges(self, path: str, wanted: list[tuple[int | None, int | None]]) -> list[bytes]:
        with self._session() as session:
            file = session._native.open(path)
            try:
                if any(start is None or start < 0 or end is None or end < 0 for start, end in wanted):
                    size = file.size() or 0
                    wanted = [slice(*each).indices(size)[:2] for each in wanted]
                return file.read_ranges([(start or 0, max(0, (end or 0) - (start or 0))) for start, end in wanted])
            finally:
                file.close(True)

    def copy(self, path1: Any, path2: Any, recursive: bool = False, **kwargs: Any) -> None:
        """As fsspec's; below `path1`, links to folders stay links, or are left out where the server has no way."""
        super().copy(path1, path2, recursive=recursive, _named=self.expand_path(path1), **kwargs)

    def cp_file(self, path1: str, path2: str, _named: Iterable[str] | None = None, **kwargs: Any) -> None:
        """Copies by way of this machine, unless the server can (SFTP with copy-data)."""
        path1, path2 = self._strip_protocol(path1), self._strip_protocol(path2)
        info = self.info(path1)
        if info["type"] == "directory" and not (info.get("islink") and _named is not None and path1 not in _named):
            self.makedirs(path2, exist_ok=True)
            return
        self.makedirs(self._parent(path2), exist_ok=True)
        with self._session() as session:
            if info["type"] != "directory":
                session.copy(path1, path2)
                return
            try:
                session.make_link(session.read_link(path1), path2)
            except NotSupported as error:  # Of a tree, fsspec passes over what is not found, unless it moves.
                raise NotFound(str(error), path1) from error

    # Changing names

    def mkdir(self, path: str, create_parents: bool = True, **kwargs: Any) -> None:
        path = self._strip_protocol(path)
        with self._session() as session:
            if create_parents and self._parent(path) != "/":
                session.make_folder(self._parent(path), parents=True)
            session.make_folder(path)

    def makedirs(self, path: str, exist_ok: bool = False) -> None:
        path = self._strip_protocol(path)
        with self._session() as session:
            if not exist_ok and session.exists(path):
                raise AlreadyExists(f"{path}: there is already something of that name", path)
            session.make_folder(path, parents=True)

    def rmdir(self, path: str) -> None:
        with self._session() as session:
            session.remove_folder(self._strip_protocol(path))

    def rm_file(self, path: str) -> None:
        with self._session() as session:
            session.remove(self._strip_protocol(path))

    _rm = rm_file

    def rm(self, path: Any, recursive: bool = False, maxdepth: int | None = None) -> None:
        """Removes files, and folders with `recursive`: only what `maxdepth` levels hold. No link is followed."""
        for each in self.expand_path(path):
            with self._session() as session:
                if not (recursive and session.stat(each).is_folder):
                    session.remove(each)
                elif maxdepth is None:
                    session.remove_folder(each, recursive=True)
                else:
                    _remove_levels(session, each, maxdepth)

    def mv(self, path1: Any, path2: Any, recursive: bool = False, maxdepth: int | None = None, **kwargs: Any) -> None:
        """Renames one file or folder, replacing a file; several, or into a folder, are copied and removed.

        Of what is copied, `maxdepth` levels are moved; NotEmpty where there is more, which stays where it is.
        """
        plain = all(isinstance(each, (str, os.PathLike)) for each in (path1, path2))
        into = plain and (os.fspath(path2).endswith("/") or self.isdir(path2))
        if not plain or into or fsspec.core.has_magic(os.fspath(path1)):
            self.copy(path1, path2, recursive=recursive, maxdepth=maxdepth, on_error="raise")
            self.rm(path1, recursive=recursive, maxdepth=maxdepth)
            return
        with self._session() as session:
            session.rename(self._strip_protocol(path1), self._strip_protocol(path2), replace=True)


class QftpFileSystem(QrftpFileSystem):
    """The files of an FTP server; encrypted where it can, and a password only then, unless tls="none"."""

    protocol = "qftp"
    _scheme = "ftp"
    _usual_jobs = 4
    _defaults = {"tls": "opportunistic"}


class QftpsFileSystem(QrftpFileSystem):
    """The files of an FTP server, encrypted (explicit TLS)."""

    protocol = "qftps"
    _scheme = "ftp"
    _usual_jobs = 4


def register(replace: bool = False) -> None:
    """Tells fsspec of the protocols, where the package was not installed; with `replace`, also for "sftp", "ssh",
    "ftp" and "ftps" instead of fsspec's own."""
    classes = {"qsftp": QrftpFileSystem, "qftp": QftpFileSystem, "qftps": QftpsFileSystem}
    if replace:
        classes |= {"sftp": QrftpFileSystem, "ssh": QrftpFileSystem, "ftp": QftpFileSystem, "ftps": QftpsFileSystem}
    for protocol, kind in classes.items():
        fsspec.register_implementation(protocol, kind, clobber=True)


def _remove_levels(session: Session, path: str, levels: int) -> None:
    for folder, folders, others in reversed([*session.walk(path, max_depth=levels)]):
        for each in others:
            session.remove(f"{folder}/{each.name}")
        for each in folders:
            session.remove_folder(f"{folder}/{each.name}")
    session.remove_folder(path)
