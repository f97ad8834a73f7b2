"""A relay in front of a server, which at a chosen moment delivers nothing any more."""

import os
import signal
import socket
import threading


class Relay:
    """Forwards to 127.0.0.1:`port`. Once `limit` bytes have come from the server, the connection stalls, and
    the process gets SIGINT. Connections after that are forwarded without a limit."""

    def __init__(self, port):
        self._port = port
        self._sockets = []
        self._listener = socket.create_server(("127.0.0.1", 0))
        self.port = self._listener.getsockname()[1]
        self.limit = None
        self.stalled_at = None
        threading.Thread(target=self._accept, daemon=True).start()

    def stall_after(self, count):
        self.limit = count

    def close(self):
        for each in (self._listener, *self._sockets):
            each.close()

    def _accept(self):
        try:
            while True:
                client, _ = self._listener.accept()
                server = socket.create_connection(("127.0.0.1", self._port)) if self._port else None
                self._sockets += [client, server] if server else [client]
                if server:
                    threading.Thread(target=self._forward, args=(client, server, False), daemon=True).start()
                threading.Thread(target=self._forward, args=(server, client, True), daemon=True).start()
        except OSError:
            pass  # closed

    def _forward(self, source, target, counts):
        try:
            while True:
                if counts and self.limit is not None and self.limit <= 0:
                    self.limit = None
                    os.kill(os.getpid(), signal.SIGINT)
                    return
                data = source.recv(65536)
                if not data:
                    target.shutdown(socket.SHUT_WR)
                    return
                target.sendall(data)
                if counts and self.limit is not None:
                    self.limit -= len(data)
        except OSError:
            pass  # the other side has gone
