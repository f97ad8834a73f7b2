"""What a session copies: files, folders and what file objects hold."""

from __future__ import annotations

import os
from typing import Any, Callable, Literal

from . import _native
from .entry import Action, Progress, TreeProgress, TreeResult
from .error import InvalidOption
from .types import LocalPath, OnAction, OnProgress, OnTreeProgress, Pairs, Readable, RemotePath, Texts, Writable


def _options(given: dict[str, Any], of_progress: Callable[..., object] = Progress) -> dict[str, Any]:
    """The keywords of a call, with callbacks that get the package's own types."""
    converters: dict[str, Callable[..., object]] = {"progress": of_progress, "on_action": Action}
    for name, convert in converters.items():
        if given.get(name) is not None:
            given[name] = _wrapped(given[name], convert)
    return given


def _wrapped(call: Callable[[Any], object], convert: Callable[..., object]) -> Callable[..., object]:
    return lambda *fields: call(convert(*fields))


def _writing_all(target: Writable) -> Callable[[bytes], None]:
    """What writes to `target`, which may take less than it is given."""

    def write(data: bytes) -> None:
        rest = memoryview(data)
        while rest:
            taken = target.write(rest)
            rest = rest[len(rest) if taken is None else taken :]

    return write


class Transfers:
    """The part of `Session` that copies."""

    _native: _native.Session

    def fetch(self, remote: RemotePath, local: LocalPath | Writable, *, resume: bool = False, replace: bool = True,
              in_place: bool = False, follow_target: bool = True, keep_time: bool = False, keep_mode: bool = False,
              sync: bool = False, verify: bool = False, offset: int = 0, length: int | None = None, jobs: int = 1,
              segments: int = 1, rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
              progress: OnProgress | None = None) -> None:  # fmt: skip
        """Fetches a file to a local path, where it appears as a whole, or into a binary file object.

        `resume` completes a file that was begun, `replace` replaces one that exists, `in_place` writes to the
        target itself, `follow_target` to what a link there leads to, `keep_time` and `keep_mode` give it those of
        the source, `sync` waits for the disk. `verify` compares checksums (`checksum`) before the target gets its
        name; raises ChecksumMismatch, NotSupported. `offset` and `length` are the part that a file object gets.

        `jobs` is how many connections a large file may use (SFTP), `segments` in how many segments it is fetched,
        each over a connection of its own, `rate_limit` bytes per second. After a lost connection the transfer goes
        on from where it was, `retries` times without getting any further; before the second time it waits
        `retry_delay` seconds, then twice as long each time. `progress` is called several times a second with a
        `Progress`; returning False ends the call with `Cancelled`.
        """
        options = _options(locals())
        if isinstance(local, (str, bytes, os.PathLike)):
            if offset or length is not None:
                raise InvalidOption("offset and length are for file objects and fetch_bytes")
            self._native.fetch(remote, local, options)
        else:
            self._native.fetch_to(remote, _writing_all(local), options)

    def fetch_bytes(self, remote: RemotePath, *, offset: int = 0, length: int | None = None, verify: bool = False,
                    rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
                    progress: OnProgress | None = None) -> bytes:  # fmt: skip
        """A file, or a part of it, as bytes; see `fetch`."""
        return self._native.fetch_bytes(remote, _options(locals()))

    def send(self, local: LocalPath | Readable, remote: RemotePath, *, resume: bool = False, replace: bool = True,
             in_place: bool = False, keep_time: bool = False, keep_mode: bool = False, sync: bool = False,
             verify: bool = False, jobs: int = 1, rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
             progress: OnProgress | None = None) -> None:  # fmt: skip
        """Sends a local file, or what a binary file object holds; see `fetch`."""
        options = _options(locals())
        if isinstance(local, (str, bytes, os.PathLike)):
            self._native.send(local, remote, options)
        else:
            self._native.send_from(local.read, remote, options)

    def send_bytes(self, content: bytes | bytearray | memoryview, remote: RemotePath, *, replace: bool = True,
                   in_place: bool = False, sync: bool = False, verify: bool = False, rate_limit: int = 0,
                   retries: int = 3, retry_delay: float = 1, progress: OnProgress | None = None) -> None:  # fmt: skip
        """Sends `content` as a file; see `fetch`."""
        self._native.send_bytes(content, remote, _options(locals()))

    def fetch_tree(self, remote: RemotePath, local: LocalPath, *, include: Texts = (), exclude: Texts = (),
                   follow_links: bool = False, copy_links: bool = False, max_depth: int = 1000, jobs: int = 0,
                   keep_going: bool = False, dry_run: bool = False, resume: bool = False, replace: bool = True,
                   in_place: bool = False, keep_time: bool = False, keep_mode: bool = False, sync: bool = False,
                   verify: bool = False, rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
                   progress: OnTreeProgress | None = None, on_action: OnAction | None = None) -> TreeResult:  # fmt: skip
        """Fetches a folder with all that is in it.

        `include` and `exclude` are globs: one without "/" is compared with names, one with it with paths, a
        final "/" stands for folders only. `jobs` connections work side by side, 0 lets the protocol choose.
        Links are passed over, copied as links (`copy_links`) or followed (`follow_links`). `keep_going` collects
        errors in the result; otherwise the first one is raised. `dry_run` only says what would be done.
        `on_action` is called with each `Action`, `progress` with a `TreeProgress`. The rest is as for `fetch`.
        """
        return TreeResult._of(self._native.fetch_tree(remote, local, _options(locals(), TreeProgress._of)))

    def send_tree(self, local: LocalPath, remote: RemotePath, *, include: Texts = (), exclude: Texts = (),
                  follow_links: bool = False, copy_links: bool = False, max_depth: int = 1000, jobs: int = 0,
                  keep_going: bool = False, dry_run: bool = False, resume: bool = False, replace: bool = True,
                  in_place: bool = False, keep_time: bool = False, keep_mode: bool = False, sync: bool = False,
                  verify: bool = False, rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
                  progress: OnTreeProgress | None = None, on_action: OnAction | None = None) -> TreeResult:  # fmt: skip
        """Sends a folder with all that is in it; see `fetch_tree`."""
        return TreeResult._of(self._native.send_tree(local, remote, _options(locals(), TreeProgress._of)))

    def sync(self, local: LocalPath, remote: RemotePath, direction: Literal["fetch", "send"], *,
             remove_extra: bool = False, force: bool = False, max_removals: int | None = None,
             comparison: Literal["size_and_time", "size", "checksum"] = "size_and_time",
             newer: Literal["replace", "skip", "refuse"] = "replace", include: Texts = (), exclude: Texts = (),
             follow_links: bool = False, copy_links: bool = False, max_depth: int = 1000, jobs: int = 0,
             keep_going: bool = False, dry_run: bool = False, in_place: bool = False, keep_time: bool = True,
             keep_mode: bool = False, verify: bool = False, rate_limit: int = 0, retries: int = 3,
             retry_delay: float = 1, progress: OnTreeProgress | None = None,
             on_action: OnAction | None = None) -> TreeResult:  # fmt: skip
        """Brings over the files that the destination does not have, has older, or has in another size.

        `comparison` is what tells that a file is out of date: "size" alone, or "checksum" for the content, as the
        server computes it. Files of the destination that are newer and differ are replaced, left alone with
        `newer="skip"`, or an error (`AlreadyExists`) with "refuse". Copies keep the time of their source.

        `remove_extra` removes what the source does not have, but nothing when the source is empty
        (`EmptySource`) unless `force`, and nothing when it would be more than `max_removals`
        (`TooManyRemovals`). The rest is as for `fetch_tree`.
        """
        if direction not in ("fetch", "send"):
            raise InvalidOption(f"direction is fetch or send, not {direction!r}")
        options = _options(locals(), TreeProgress._of)
        return TreeResult._of(self._native.sync(local, remote, direction == "send", options))

    def fetch_files(self, files: Pairs, *, jobs: int = 0, keep_going: bool = False, keep_time: bool = False,
                    keep_mode: bool = False, replace: bool = True, follow_target: bool = True, verify: bool = False,
                    rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
                    progress: OnTreeProgress | None = None) -> TreeResult:  # fmt: skip
        """Fetches files, pairs of a remote and a local path, as many at a time as the protocol carries."""
        return TreeResult._of(self._native.fetch_files(list(files), _options(locals(), TreeProgress._of)))

    def send_files(self, files: Pairs, *, jobs: int = 0, keep_going: bool = False, keep_time: bool = False,
                   keep_mode: bool = False, replace: bool = True, verify: bool = False,
                   rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
                   progress: OnTreeProgress | None = None) -> TreeResult:  # fmt: skip
        """Sends files, pairs of a remote and a local path, as many at a time as the protocol carries."""
        return TreeResult._of(self._native.send_files(list(files), _options(locals(), TreeProgress._of)))

    def copy(self, source: RemotePath, target: RemotePath, to: Transfers | None = None, *, replace: bool = True,
             in_place: bool = False, keep_time: bool = False, keep_mode: bool = False, sync: bool = False,
             verify: bool = False, rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
             progress: OnProgress | None = None) -> None:  # fmt: skip
        """Copies a file to a path on this server, or on that of the session `to`, without a local file.

        On one SFTP server that offers copy-data, the server copies by itself. The options are as for `fetch`.
        """
        self._native.copy(source, (to or self)._native, target, _options(locals()))

    def copy_tree(self, source: RemotePath, target: RemotePath, to: Transfers | None = None, *, include: Texts = (),
                  exclude: Texts = (), follow_links: bool = False, copy_links: bool = False, max_depth: int = 1000,
                  jobs: int = 0, keep_going: bool = False, dry_run: bool = False, replace: bool = True,
                  in_place: bool = False, keep_time: bool = False, keep_mode: bool = False, sync: bool = False,
                  verify: bool = False, rate_limit: int = 0, retries: int = 3, retry_delay: float = 1,
                  progress: OnTreeProgress | None = None, on_action: OnAction | None = None) -> TreeResult:  # fmt: skip
        """Copies a folder with all that is in it; see `copy` and `fetch_tree`."""
        options = _options(locals(), TreeProgress._of)
        return TreeResult._of(self._native.copy_tree(source, (to or self)._native, target, options))

    def clean_up(self, folder: RemotePath = ".", *, age: float = 24 * 3600) -> Texts:
        """Removes what broken transfers left below `folder` and is older than `age` seconds; returns the paths."""
        return self._native.clean_up(folder, age)
