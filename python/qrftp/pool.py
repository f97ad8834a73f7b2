"""The sessions of one server that the threads of this process share."""

from __future__ import annotations

import os
import threading
from contextlib import contextmanager
from typing import Callable, Iterator

from .session import Session


class Pool:
    """At most so many sessions. A thread gets one that is free, or waits."""

    def __init__(self, connect: Callable[[], Session], most: int) -> None:
        self._connect = connect
        self._most = max(1, most)
        self._count = 0
        self._free: list[Session] = []
        self._changed = threading.Condition()

    @contextmanager
    def session(self, wanted: Session | None = None) -> Iterator[Session]:
        """A session for this thread alone: `wanted` where it is given, to which open files belong."""
        session = self._take(wanted) or self._opened()
        try:
            yield session
        finally:
            with self._changed:
                self._free.append(session)
                self._changed.notify_all()

    def close(self) -> None:
        """Ends the connections that nobody uses at the moment."""
        with self._changed:
            self._count -= len(self._free)
            for session in self._free:
                session.close()
            self._free.clear()

    def _take(self, wanted: Session | None) -> Session | None:
        """A free session, or none where another one may be opened."""
        with self._changed:
            while True:
                if wanted in self._free or (wanted is None and self._free):
                    return self._free.pop(-1 if wanted is None else self._free.index(wanted))
                if wanted is None and self._count < self._most:
                    self._count += 1
                    return None
                self._changed.wait()

    def _opened(self) -> Session:
        try:
            return self._connect()
        except BaseException:
            with self._changed:
                self._count -= 1
                self._changed.notify_all()
            raise


_pools: dict[str, Pool] = {}
_of_parents: list[dict[str, Pool]] = []
_lock = threading.Lock()


def pool_of(key: str, connect: Callable[[], Session], most: int) -> Pool:
    """The pool of this process that has `key`."""
    with _lock:
        return _pools.setdefault(key, Pool(connect, most))


def _after_fork() -> None:
    # The connections are the parent's: they are neither used here nor closed.
    global _lock
    _lock = threading.Lock()
    _of_parents.append(dict(_pools))
    _pools.clear()


os.register_at_fork(after_in_child=_after_fork)
