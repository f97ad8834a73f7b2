"""A relay in front of a server, which at a chosen moment delivers nothing any more."""

import os
import signal
import socket
import threading


class Relay:
    """Forwards to 127.0.0.1:`port`. Once `limit` bytes have come from the server, the connection stalls, and
    the process gets SIGINT. Connections after that are forwarded without a limit."""

    def __init__(self, port):
        self._target = ("127.0.0.1", port)
        self._listener = socket.create_server(("127.0.0.1", 0))
        self._sockets = [self._listener]
        self.port = self._listener.getsockname()[1]
        self.limit = None
        self._in_thread(self._accept)

    def close(self):
        for each in self._sockets:
            each.close()

    def _in_thread(self, work, *arguments):
        def until_closed():
            try:
                work(*arguments)
            except OSError:
                pass  # closed, or the other side has gone

        threading.Thread(target=until_closed, daemon=True).start()

    def _accept(self):
        while True:
            client, server = self._listener.accept()[0], socket.create_connection(self._target)
            self._sockets += [client, server]
            self._in_thread(self._forward, client, server)
            self._in_thread(self._forward, server, client, True)

    def _forward(self, source, target, counts=False):
        while data := source.recv(65536):
            if counts and self.limit is not None:
                self.limit -= len(data)
                if self.limit < 0:
                    self.limit = None
                    return os.kill(os.getpid(), signal.SIGINT)
            target.sendall(data)
        target.shutdown(socket.SHUT_WR)
