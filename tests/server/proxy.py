"""What stands between a client and a server's socket, and does harm to what passes."""

import os
import socket
import tempfile
import threading
import time


class Proxy:
    def __init__(self, server):
        self.server = server
        self.directory = tempfile.TemporaryDirectory(prefix="vu-proxy-")
        self.path = os.path.join(self.directory.name, "proxy.sock")
        self.harm = None  # see _spoil
        self.is_ending = False
        self.sockets = []
        self.listener = socket.socket(socket.AF_UNIX)
        self.listener.bind(self.path)
        self.listener.listen(16)
        self.threads = [threading.Thread(target=self._accept)]
        self.threads[0].start()

    def url(self, **options):
        return self.server.url(**options).replace(self.server.socket, self.path)

    def close(self):
        self.is_ending = True
        with socket.socket(socket.AF_UNIX) as last:
            last.connect(self.path)
        for thread in self.threads:
            thread.join()
        for each in self.sockets + [self.listener]:  # not before: numbers are used again
            each.close()
        self.directory.cleanup()

    def __enter__(self):
        return self

    def __exit__(self, *exc_info):
        self.close()

    def _accept(self):
        while True:
            client, _ = self.listener.accept()
            if self.is_ending:
                client.close()
                return
            server = socket.socket(socket.AF_UNIX)
            try:
                server.connect(self.server.socket)
            except OSError:
                client.close()
                continue
            self.sockets += [client, server]
            for ends in ((client, server, False), (server, client, True)):
                self.threads.append(threading.Thread(target=self._pass, args=ends))
                self.threads[-1].start()

    def _pass(self, source, target, is_reply):
        source.settimeout(0.02)
        try:
            while not self.is_ending:
                if self.harm == "black hole":
                    time.sleep(0.02)
                    continue
                try:
                    data = source.recv(65536)
                except socket.timeout:
                    continue
                if not data:
                    break
                if is_reply and self.harm:
                    data = self._spoil(data, target)
                target.sendall(data)
        except OSError:
            pass
        for end in (source, target):
            try:
                end.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass

    def _spoil(self, data, target):
        if self.harm == "trickle":
            for i in range(len(data) - 1):
                target.sendall(data[i : i + 1])
                time.sleep(0.0005)
            return data[-1:]
        if self.harm == "corrupt":
            return data[:7] + b"\xa5" * 20 + b"\r\n" + data[7:]
        if self.harm == "reset":
            target.sendall(data[: len(data) // 2 + 1][:-1])
            raise OSError("reset in the middle of a reply")
        assert self.harm == "black hole"
        while self.harm == "black hole" and not self.is_ending:
            time.sleep(0.02)
        return data
