"""What file systems for fsspec copy from and to this machine."""

from __future__ import annotations

import os
from collections import defaultdict
from pathlib import PurePath
from typing import Any, Callable, ContextManager, Iterable

from fsspec.callbacks import Callback
from fsspec.implementations.local import make_path_posix
from fsspec.spec import AbstractFileSystem
from fsspec.utils import isfilelike

from .entry import Progress, TreeProgress
from .error import IsFolder, NotFound, UnsafeName
from .file import BUFFER_SIZE
from .session import Session

_NO_CALLBACK = Callback()


class LocalCopies(AbstractFileSystem):  # type: ignore[misc]
    """The part of `QrftpFileSystem` that copies from and to this machine."""

    _max_connections: int
    _session: Callable[[], ContextManager[Session]]
    _usual_jobs = 1
    """How many connections carry many files at a time, where there may be so many."""

    def get(self, rpath: Any, lpath: Any, recursive: bool = False, callback: Any = _NO_CALLBACK, **kwargs: Any) -> None:
        """Fetches files, many at a time. Links below `lpath` are not followed, on either side those to folders."""
        files: list[tuple[str, str]] = []
        if isinstance(rpath, list) and isinstance(lpath, list):  # Old versions of fsspec would sort one of them.
            for pair in zip(rpath, lpath, strict=True):
                self.get_file(*pair, _files=files)
        else:
            super().get(rpath, lpath, recursive=recursive, _files=files, **kwargs)
        files = [(remote, os.path.abspath(local)) for remote, local in files]
        given = [lpath] if isinstance(lpath, (str, os.PathLike)) else lpath
        named = {os.path.abspath(make_path_posix(os.fspath(each))) for each in given if not isfilelike(each)}
        folders = {os.path.dirname(local) for _, local in files}
        for folder in folders:
            _make_local_folder(folder, named)
        callback.set_size(len(files))
        pairs = [(remote, local) for remote, local in files if local not in folders]
        locals_of: dict[str, list[str]] = defaultdict(list)
        for remote, local in pairs:
            locals_of[remote].append(local)
        with self._session() as session:
            result = session.fetch_files(pairs, keep_going=True, jobs=self._jobs(),
                                         progress=lambda now: _count(callback, now),
                                         follow_target=named.issuperset(local for _, local in pairs))  # fmt: skip
        for path, error in ((each.path, each.error) for each in result.failures):
            may_be_folder = isinstance(error, (IsFolder, NotFound)) or any(map(os.path.isdir, locals_of[path]))
            info = self.info(path) if may_be_folder else {}
            if info.get("type") != "directory":
                raise error
            for local in locals_of[path] if not info.get("islink") else []:
                _make_local_folder(local, named)
        callback.absolute_update(len(files))

    def get_file(self, rpath: str, lpath: Any, callback: Any = _NO_CALLBACK, outfile: Any = None,
                 _files: list[tuple[str, str]] | None = None, **kwargs: Any) -> None:  # fmt: skip
        rpath = self._strip_protocol(rpath)
        target = lpath if isfilelike(lpath) else outfile or os.fspath(lpath)
        if _files is not None and isinstance(target, str):
            _files.append((rpath, target))
            return
        with self._session() as session:
            try:
                session.fetch(rpath, target, progress=lambda now: _show(callback, now))
            except IsFolder:
                os.makedirs(target, exist_ok=True)

    def put(self, lpath: Any, rpath: Any, recursive: bool = False, callback: Any = _NO_CALLBACK,
            mode: str = "overwrite", **kwargs: Any) -> None:  # fmt: skip
        """Sends files, many at a time; within a transaction, one after the other."""
        files: list[tuple[str, str]] | None = None if self._intrans else []
        if isinstance(lpath, list) and isinstance(rpath, list):
            for pair in zip(lpath, rpath, strict=True):
                self.put_file(*pair, mode=mode, _files=files)
        else:
            told = callback if files is None else _NO_CALLBACK
            super().put(lpath, rpath, recursive=recursive, callback=told, mode=mode, _files=files, **kwargs)
        if files is None:
            return
        callback.set_size(len(files))
        folders = {remote if os.path.isdir(local) else self._parent(remote) for remote, local in files}
        pairs = [(remote, local) for remote, local in files if not os.path.isdir(local)]
        with self._session() as session:
            for folder in sorted(folders - {"/"}):
                session.make_folder(folder, parents=True)
            session.send_files(pairs, jobs=self._jobs(), replace=mode == "overwrite",
                               progress=lambda now: _count(callback, now))  # fmt: skip
        callback.absolute_update(len(files))

    def put_file(self, lpath: Any, rpath: str, callback: Any = _NO_CALLBACK, mode: str = "overwrite",
                 _files: list[tuple[str, str]] | None = None, **kwargs: Any) -> None:  # fmt: skip
        rpath = self._strip_protocol(rpath)
        if _files is not None:
            _files.append((rpath, os.fspath(lpath)))
        elif os.path.isdir(lpath):
            self.makedirs(rpath, exist_ok=mode == "overwrite")
        elif self._intrans:
            with open(lpath, "rb") as source, self.open(rpath, "wb" if mode == "overwrite" else "xb") as target:
                callback.set_size(os.fstat(source.fileno()).st_size)
                while data := source.read(BUFFER_SIZE):
                    target.write(data)
                    callback.relative_update(len(data))
        else:
            replace = mode == "overwrite"
            show = lambda now: _show(callback, now)
            with self._session() as session:
                send = lambda: session.send(lpath, rpath, replace=replace, progress=show)
                with_parents(session, rpath, send)

    def _jobs(self) -> int:
        return min(self._usual_jobs, self._max_connections)


def with_parents(session: Session, path: str, write: Callable[[], None]) -> None:
    """Writes a file; where its folder is missing, makes that first."""
    try:
        write()
    except NotFound:
        session.make_folder(path.rpartition("/")[0], parents=True)
        write()


def _make_local_folder(folder: str, named: Iterable[str]) -> None:
    """Makes a local folder, and those above it; in the folders that the caller named, links do not count as such."""
    for part in (folder, *map(str, PurePath(folder).parents)):
        if os.path.islink(part) and any(each in map(str, PurePath(part).parents) for each in named):
            raise UnsafeName(f"{part}: a symbolic link stands in its way", part)
    os.makedirs(folder, exist_ok=True)


def _count(callback: Any, now: TreeProgress) -> None:
    callback.absolute_update(now.files_done)


def _show(callback: Any, now: Progress) -> None:
    callback.set_size(now.total or None)
    callback.absolute_update(now.bytes)
