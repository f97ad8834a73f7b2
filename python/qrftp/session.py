"""The session: a login on one server, with everything that can be done there."""

from __future__ import annotations

import os
import re
from types import TracebackType
from typing import Any, Callable, Iterator, Literal, Sequence, overload

from . import _native
from .entry import Checksum, DiskSpace, Entry, Listing, ServerInfo, to_datetime
from .error import Error, InvalidOption
from .transfers import Transfers
from .types import LocalPath, RemotePath, Texts

TYPE_CHECKING = False
if TYPE_CHECKING:
    from datetime import datetime

    from .file import Reader, Updater, Writer

_Entries = list[Entry]
_Prompts = list[tuple[str, bool]]


def _from_command(command: str) -> Callable[[int], str | None]:
    """What asks `command` for the password: the first line that it prints. It is asked once."""

    def ask(attempt: int) -> str | None:
        if attempt:
            return None
        import subprocess

        lines = subprocess.run(command, shell=True, check=True, stdout=subprocess.PIPE, text=True).stdout.splitlines()
        return lines[0] if lines else None

    return ask


def _remembered(ask: Callable[[int], str | None]) -> Callable[[int], str | None]:
    """`ask`, for which a connection that is opened later is no reason to be called again."""
    known: list[str | None] = []

    def answer(attempt: int) -> str | None:
        if attempt or not known:
            known[:] = [ask(attempt)]
        return known[0]

    return answer


def _without_password(url: str) -> str:
    server, user, password, _ = _native.split_url(url)
    if not password:
        return url
    scheme, rest = url.split("://", 1)
    credentials, mark, path = rest.partition("/")
    credentials, place = credentials.rsplit("@", 1)
    return f"{scheme}://{credentials.split(':', 1)[0]}@{place}{mark}{path}"


def _restored(url: str, options: dict[str, Any], folder: str) -> Session:
    session = Session.__new__(Session)
    session._begin(url, options, folder)
    return session


class Session(Transfers):
    """A login on one FTP, FTPS or SFTP server, with a working folder.

    >>> with qrftp.connect("sftp://me@host") as session:
    ...     session.fetch("reports/today.csv", "today.csv")

    `url` is "ftp://…", "ftps://…" or "sftp://…"; its path is not looked at. Options of a login:

    * `user`, `password`: else those of the URL. `ask_password(attempt)` is called where a password is needed
      and none is given, `password_command` is a shell command whose first line of output is the password.
    * `key`: one private key or several (SFTP), with `pass_phrase` or `ask_pass_phrase(key)` and
      `certificates`; `agent` and `identities_only` as in OpenSSH; `ssh_config`: the file to read instead of the
      user's own, "" for none. `answer_prompts(name, instruction, [(text, echo), …])` returns a list of answers.

    Options about trust:

    * `tls` (FTP): "strict", "opportunistic" (without TLS for anonymous logins only), "none".
      `certificate_authorities` is a PEM file to trust instead of the system's. `pins` are keys "sha256//…" that the
      certificate may have, in place of an authority. `tls_trust="accept-new"` remembers new certificates in
      `known_tls`; `confirm_certificate(host, pin, problem)` is asked before. `client_certificate` and `client_key`
      (PEM, with `pass_phrase`) show the server who you are.
    * `host_keys` (SFTP): "accept-new", "strict", "off"; `known_hosts` and `global_known_hosts` are files.
      `confirm_host_key(host, type, fingerprint)` is asked before a new key is accepted.

    Others: `active` (FTP), `proxy` (a URL, or True for that of the environment), `on_warning(sentence)`; seconds
    for connecting (`connect_timeout`), without any data (`stall_timeout`, 0 means never) and for a whole request
    (`total_timeout`, 0 means no limit).

    A session is for one thread at a time: RuntimeError otherwise; `clone` makes another one. Calls release the
    GIL. Callbacks may run on another thread; what they raise ends the call and is raised by it.
    KeyboardInterrupt, and whatever else a signal handler raises, ends any call, and what was being written is
    removed; the next call connects again.

    A session can be pickled: URL, options and working folder go along, the password only with
    `pickle_password`. It connects where it is first used. Every method raises `qrftp.Error`, and `Closed` after
    `close`.
    """

    def __init__(
        self,
        url: str,
        *,
        user: str | None = None,
        password: str | None = None,
        ask_password: Callable[[int], str | None] | None = None,
        password_command: str | None = None,
        pickle_password: bool = False,
        key: LocalPath | Sequence[LocalPath] | None = None,
        pass_phrase: str | None = None,
        ask_pass_phrase: Callable[[os.PathLike[str]], str | None] | None = None,
        certificates: Sequence[LocalPath] | None = None,
        agent: bool = True,
        identities_only: bool = False,
        ssh_config: LocalPath | None = None,
        answer_prompts: Callable[[str, str, _Prompts], Sequence[str] | None] | None = None,
        tls: Literal["strict", "opportunistic", "none"] = "strict",
        certificate_authorities: LocalPath | None = None,
        pins: Sequence[str] | None = None,
        tls_trust: Literal["strict", "accept-new"] = "strict",
        known_tls: LocalPath | None = None,
        confirm_certificate: Callable[[str, str, str], bool] | None = None,
        client_certificate: LocalPath | None = None,
        client_key: LocalPath | None = None,
        host_keys: Literal["accept-new", "strict", "off"] = "accept-new",
        known_hosts: LocalPath | None = None,
        global_known_hosts: LocalPath | None = None,
        confirm_host_key: Callable[[str, str, str], bool] | None = None,
        active: bool = False,
        proxy: bool | str = False,
        connect_timeout: float = 30,
        stall_timeout: float = 60,
        total_timeout: float = 0,
        on_warning: Callable[[str], object] | None = None,
    ) -> None:
        options = {name: value for name, value in locals().items() if name not in ("self", "url")}
        if ask_password is not None and password_command is not None:
            raise InvalidOption("ask_password and password_command exclude each other")
        self._begin(url, options, "")
        self._native.connect()

    def _begin(self, url: str, options: dict[str, Any], folder: str) -> None:
        self._url = url
        self._given = options
        used = dict(options)
        if isinstance(used["key"], (str, bytes, os.PathLike)):
            used["key"] = [used["key"]]
        if used["password_command"] is not None:
            used["ask_password"] = _from_command(used["password_command"])
        if used["ask_password"] is not None:
            used["ask_password"] = _remembered(used["ask_password"])
        self._used = used
        self._native = _native.Session(url, used, folder)

    def __enter__(self) -> Session:
        return self

    def __exit__(self, kind: type[BaseException] | None, error: BaseException | None,
                 trace: TracebackType | None) -> None:  # fmt: skip
        self.close()

    def __repr__(self) -> str:
        state = " closed" if self.closed else ""
        return f"<qrftp.Session {_native.without_password(self._url)}{state}>"

    def __reduce__(self) -> tuple[Callable[..., Session], tuple[Any, ...]]:
        options = dict(self._given)
        url = self._url
        if not options["pickle_password"]:
            options["password"] = options["pass_phrase"] = None
            url = _without_password(url)
            if isinstance(options["proxy"], str):
                options["proxy"] = re.sub(r"^((?:\w+://)?[^:@/]*):.*@", r"\1@", options["proxy"])
        return _restored, (url, options, self._native.folder())

    def clone(self) -> Session:
        """Another login like this one, in the same working folder, for another thread."""
        copy = _restored(self._url, self._given, self._native.folder())
        copy._used = self._used  # What was asked for once is not asked for again.
        copy._native = _native.Session(self._url, self._used, self._native.folder())
        copy._native.connect()
        return copy

    def close(self) -> None:
        """Ends the connection. A second call does nothing."""
        self._native.close()

    @property
    def closed(self) -> bool:
        """Whether `close` was called."""
        return self._native.is_closed()

    @property
    def url(self) -> str:
        """The URL of the server, without a password."""
        return _without_password(self._url)

    def server_info(self) -> ServerInfo:
        """What the server told of itself. Makes one request for the round trip."""
        greeting, encryption, fingerprint, features, folder, seconds = self._native.server_info()
        return ServerInfo(greeting, encryption, fingerprint, tuple(features), folder, seconds)

    def system_type(self) -> str:
        """FTP: the answer to SYST. SFTP: empty."""
        return self._native.system_type()

    @property
    def working_folder(self) -> str:
        """The absolute folder from which relative names are seen."""
        return self._native.working_folder()

    def change_folder(self, path: RemotePath) -> str:
        """Changes the working folder and returns it. Raises NotFound, NotFolder, PermissionDenied."""
        return self._native.change_folder(path)

    def absolute(self, path: RemotePath) -> str:
        """The absolute form of `path`, without "." and ".."."""
        return self._native.absolute(path)

    def stat(self, path: RemotePath) -> Entry:
        """What is at `path`; a link is not followed. Raises NotFound."""
        return Entry._of(self._native.stat(path))

    def exists(self, path: RemotePath) -> bool:
        """Whether there is anything; a link is not followed."""
        return self._native.exists(path)

    def is_folder(self, path: RemotePath) -> bool:
        """Whether there is a folder, or a link to one."""
        return self._native.is_folder(path)

    def is_file(self, path: RemotePath) -> bool:
        """Whether there is something else, or a link to something else."""
        return self._native.is_file(path)

    def file_size(self, path: RemotePath) -> int | None:
        """The bytes of a file, or of the one that a link leads to; None where the server does not tell."""
        return self._native.file_size(path)

    def modification_time(self, path: RemotePath) -> datetime | None:
        """When a file was changed, to the second, aware; None where the server does not tell."""
        time = self._native.modification_time(path)
        return None if time is None else to_datetime(time[0])

    def list(self, path: RemotePath = ".") -> Listing:
        """The entries of a folder by name. Raises NotFound, NotFolder, IncompleteListing."""
        entries, skipped = self._native.list(path)
        return Listing(map(Entry._of, entries), skipped)

    def walk(self, path: RemotePath = ".", *, max_depth: int | None = None,
             on_error: Callable[[Error], object] | None = None) -> Iterator[tuple[str, _Entries, _Entries]]:  # fmt: skip
        """Each folder from `path` downwards, as its absolute path, its folders and its other entries.

        As with os.walk, what is taken out of the folders is not entered. Links are not followed. `max_depth` is
        how many levels are listed. `on_error` is told of folders that cannot be listed; else the error is raised.
        """
        todo = [(self.absolute(path), 1)]
        while todo:
            folder, depth = todo.pop()
            try:
                entries = self.list(folder)
            except Error as error:
                if on_error is None:
                    raise
                on_error(error)
                continue
            folders = [each for each in entries if each.is_folder]
            yield folder, folders, [each for each in entries if not each.is_folder]
            if max_depth is None or depth < max_depth:
                todo += [(folder.rstrip("/") + "/" + each.name, depth + 1) for each in reversed(folders)]

    def glob(self, pattern: RemotePath) -> Texts:
        """The paths that `pattern` stands for, sorted: "*" and "?" stop at "/", "[…]" is a set."""
        return [path for path, _ in self._native.glob(pattern)]

    def make_folder(self, path: RemotePath, *, parents: bool = False) -> None:
        """Makes a folder; with `parents`, those above it too, and one that exists is no error."""
        self._native.make_folder(path, parents)

    def remove(self, path: RemotePath) -> None:
        """Removes a file or a link. Raises NotFound, IsFolder, PermissionDenied."""
        self._native.remove(path)

    def remove_folder(self, path: RemotePath, *, recursive: bool = False) -> None:
        """Removes a folder; with `recursive`, what is in it first. Raises NotEmpty, NotFound, NotFolder."""
        self._native.remove_folder(path, recursive)

    def rename(self, old: RemotePath, new: RemotePath, *, replace: bool = False) -> None:
        """Renames; with `replace`, a file that has the name goes. Raises AlreadyExists, NotFound, IsFolder."""
        self._native.rename(old, new, replace)

    def set_permissions(self, path: RemotePath, mode: int) -> None:
        """Gives a file or folder these permission bits; a link is followed. Raises NotFound, NotSupported."""
        self._native.set_permissions(path, mode)

    def set_modification_time(self, path: RemotePath, time: datetime) -> None:
        """Gives a file or folder this time, to the second; a link is followed. Raises NotFound, NotSupported."""
        self._native.set_modification_time(path, int(time.timestamp() // 1))

    def make_link(self, target: RemotePath, path: RemotePath) -> None:
        """Makes a symbolic link at `path` that says `target`, seen from the link's folder. Over FTP the target
        must exist, and the link says its absolute name. Raises AlreadyExists, NotFound, NotSupported."""
        self._native.make_link(target, path)

    def make_hard_link(self, existing: RemotePath, path: RemotePath) -> None:
        """Gives a file a further name (SFTP). Raises AlreadyExists, NotFound, NotSupported."""
        self._native.make_hard_link(existing, path)

    def read_link(self, path: RemotePath) -> str:
        """What a symbolic link says. Raises NotFound, Refused (it is no link), NotSupported."""
        return self._native.read_link(path)

    def space(self, path: RemotePath = ".") -> DiskSpace:
        """The room on the storage that holds `path`. Raises NotFound, NotSupported."""
        return DiskSpace(*self._native.space(path))

    def checksum_support(self) -> tuple[str, str]:
        """How the server computes checksums: the command and the algorithm. Raises NotSupported."""
        return self._native.checksum_support()

    def checksum(self, path: RemotePath) -> Checksum:
        """The checksum of a file, computed by the server. Raises NotFound, IsFolder, NotSupported."""
        return Checksum(*self._native.checksum(path))

    @overload
    def open(self, path: RemotePath, mode: Literal["rb"] = ..., *, buffer_size: int | None = ...) -> Reader: ...
    @overload
    def open(self, path: RemotePath, mode: Literal["wb", "xb", "ab"]) -> Writer: ...
    @overload
    def open(self, path: RemotePath, mode: Literal["r+b"]) -> Updater: ...

    def open(self, path: RemotePath, mode: str = "rb", *, buffer_size: int | None = None) -> Reader | Writer | Updater:
        """Opens a file as a binary file object.

        "rb" reads at any place; over FTP it reads ahead, on a connection of its own. "wb", "xb" (must not
        exist), "ab" and "r+b" write to a local temporary file, which is sent at `close` and appears as a whole;
        an exception in the `with` block, and `discard`, leave the target as it was. "ab" and "r+b" fetch the
        file first.
        """
        from .file import Reader, checked_mode, open_for_writing

        mode = checked_mode(mode)
        if mode == "rb":
            return Reader(self._native.open(path), os.fsdecode(path), buffer_size)
        whole = self.absolute(path)
        return open_for_writing(self, whole, mode, lambda source: self.send(source, whole, replace=mode != "xb"))


def set_trace(level: Literal["off", "dialogue", "debug"]) -> None:
    """Shows on standard error what all sessions ask of servers and are answered, without secrets."""
    _native.set_trace(level)


def versions() -> str:
    """The libraries in use with their versions."""
    return _native.versions()
