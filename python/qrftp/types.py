"""The types of what methods take."""

from __future__ import annotations

import os
from typing import Callable, Iterable, Optional, Protocol, Sequence, Tuple, Union

from .entry import Action, Progress, TreeProgress

RemotePath = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]
"""A name on the server: bytes as they are, text as UTF-8 with surrogate escapes. A relative one is seen from
the working folder."""
LocalPath = Union[str, bytes, "os.PathLike[str]", "os.PathLike[bytes]"]


class Readable(Protocol):
    """A binary file object to send from."""

    def read(self, size: int, /) -> bytes: ...


class Writable(Protocol):
    """A binary file object to fetch to."""

    def write(self, data: memoryview, /) -> int | None: ...


Pairs = Iterable[Tuple[RemotePath, LocalPath]]
OnProgress = Callable[[Progress], Optional[bool]]
OnTreeProgress = Callable[[TreeProgress], Optional[bool]]
OnAction = Callable[[Action], object]
Texts = Sequence[str]
