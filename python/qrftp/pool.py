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
        self._most = most
        self._count = 0
        self._free: list[Session] = []
        self._changed = threading.Condition()

    @contextmanager
    def session(self) -> Iterator[Session]:
        """A session for this thread alone."""
        session = self._take() or self._opened()
        try:
            yield session
        finally:
            self._give_back(session)

    @contextmanager
    def session_of_file(self, session: Session, wait: bool) -> Iterator[Session | None]:
        """The session to which an open file belongs, for this thread alone, or None where another call has it and
        `wait` is false. It may be closed: nobody waits for such a one."""
        free = self._take_this(session, wait)
        try:
            yield session if free else None
        finally:
            if free:
                self._give_back(session)

    def close(self) -> None:
        """Ends the connections that nobody uses at the moment."""
        with self._changed:
            free, self._free = self._free, []
            self._count -= len(free)
            for session in free:
                session.close()
            self._changed.notify_all()

    def _take(self) -> Session | None:
        """A free session, or none where another one may be opened."""
        with self._changed:
            self._changed.wait_for(lambda: self._free or self._count < self._most)
            if self._free:
                return self._free.pop()
            self._count += 1
            return None

    def _take_this(self, session: Session, wait: bool) -> bool:
        with self._changed:
            while not session.closed and session not in self._free:
                if not wait:
                    return False
                self._changed.wait()
            if not session.closed:
                self._free.remove(session)
            return True

    def _give_back(self, session: Session) -> None:
        with self._changed:
            if not session.closed:
                self._free.append(session)
                self._changed.notify_all()

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
