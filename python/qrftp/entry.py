"""What the client tells of files, folders, servers and transfers."""

from __future__ import annotations

from dataclasses import dataclass
from datetime import datetime, timezone
from typing import Any, Iterable, Literal

from .error import Error

Kind = Literal["file", "folder", "link", "other"]


def to_datetime(seconds: int) -> datetime | None:
    """The time that lies so many seconds after 1970, aware, in UTC; None for a year that `datetime` does not have."""
    try:
        return datetime.fromtimestamp(seconds, timezone.utc)
    except (OverflowError, OSError, ValueError):
        return None


@dataclass(frozen=True, slots=True)
class Entry:
    """One file, folder or link of a remote folder. What the server did not tell is None or empty."""

    name: str
    """The last segment of the path; bytes that are not UTF-8 are surrogate escapes."""
    kind: Kind
    size: int | None = None
    """Bytes; of files only."""
    modified: datetime | None = None
    """Aware, in UTC. Where the server did not say in which zone it counts, its clock is taken for UTC."""
    modified_exact: bool = False
    """Whether `modified` is known to the second and in UTC."""
    mode: int | None = None
    """POSIX permission bits, 0 to 0o7777."""
    owner: str = ""
    group: str = ""
    link_target: str = ""
    """Of links only, where the server tells it."""

    @classmethod
    def _of(cls, fields: tuple[Any, ...]) -> Entry:
        name, kind, size, modified, *rest = fields
        time = to_datetime(modified[0]) if modified else None
        return cls(name, kind, size, time, time is not None and modified[1], *rest)

    @property
    def is_file(self) -> bool:
        """Whether it is an ordinary file."""
        return self.kind == "file"

    @property
    def is_folder(self) -> bool:
        """Whether it is a folder; a link to one is not."""
        return self.kind == "folder"

    @property
    def is_link(self) -> bool:
        """Whether it is a symbolic link."""
        return self.kind == "link"

    def __repr__(self) -> str:
        told = [repr(self.name), self.kind]
        if self.size is not None:
            told.append(f"{self.size} bytes")
        if self.modified is not None:
            told.append(self.modified.isoformat())
        if self.mode is not None:
            told.append(f"0o{self.mode:o}")
        if self.link_target:
            told.append(f"-> {self.link_target!r}")
        return f"Entry({', '.join(told)})"


class Listing(list[Entry]):
    """The entries of a folder, sorted by name."""

    skipped: tuple[str, ...]
    """Lines of the listing that could not be read, or whose names no file may have."""

    def __init__(self, entries: Iterable[Entry], skipped: Iterable[str] = ()) -> None:
        super().__init__(entries)
        self.skipped = tuple(skipped)


@dataclass(frozen=True, slots=True)
class ServerInfo:
    """What a server told of itself and what was agreed on."""

    greeting: str
    encryption: str
    """FTP: the version of TLS and the cipher. SFTP: the ciphers."""
    fingerprint: str | None
    """SFTP: that of the host key, "SHA256:…"."""
    features: tuple[str, ...]
    """FTP: the lines of FEAT. SFTP: the extensions."""
    login_folder: str
    round_trip: float
    """Seconds."""


@dataclass(frozen=True, slots=True)
class DiskSpace:
    """The room on a storage, in bytes. What the server does not tell is None."""

    total: int | None
    free: int | None
    """With what only root may use."""
    available: int
    """To this user."""


@dataclass(frozen=True, slots=True)
class Checksum:
    """The checksum of a file's content. MD5 and CRC32 tell accidents, not forgeries."""

    algorithm: str
    """"SHA-256", "SHA-1", "MD5" or "CRC32"."""
    digits: str
    """Hexadecimal, in small letters."""


@dataclass(frozen=True, slots=True)
class Progress:
    """How far a transfer is."""

    bytes: int
    """Of the whole file, with what a resumed transfer found."""
    total: int
    """0 when it is not known."""
    rate: float
    """Bytes per second on average."""


@dataclass(frozen=True, slots=True)
class TreeProgress:
    """How far many files are."""

    path: str
    """The file that moved last."""
    file: Progress
    all: Progress
    files_done: int
    files: int

    @classmethod
    def _of(cls, path: str, *fields: Any) -> TreeProgress:
        return cls(path, Progress(*fields[:3]), Progress(*fields[3:6]), *fields[6:])


@dataclass(frozen=True, slots=True)
class Action:
    """One step of bringing a tree over."""

    what: Literal["make_folder", "copy", "remove_file", "remove_folder", "make_link"]
    why: Literal["wanted", "missing", "newer", "other_size", "extra", "other_content", "other_target"]
    path: str
    """Below both roots, with "/" between segments."""
    size: int


@dataclass(frozen=True, slots=True)
class Failure:
    """A step that failed."""

    path: str
    error: Error


@dataclass(frozen=True, slots=True)
class TreeResult:
    """What was done for a tree, or in a dry run would be."""

    done: tuple[Action, ...]
    failures: tuple[Failure, ...]
    skipped: tuple[str, ...]
    """Remote entries that could not be read, or whose names no local file may get."""
    passed_over: tuple[str, ...]
    """Links and special files of the source, and what could not be followed any further."""
    bytes: int
    """Copied."""

    @classmethod
    def _of(cls, fields: tuple[Any, ...]) -> TreeResult:
        done, failures, skipped, passed_over, copied = fields
        return cls(tuple(Action(*each) for each in done), tuple(Failure(*each) for each in failures),
                   tuple(skipped), tuple(passed_over), copied)  # fmt: skip
