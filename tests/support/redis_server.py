"""A redis-server of one's own, as Debian brings it: on a unix socket, keeping nothing."""

import os
import shutil
import socket
import subprocess
import tempfile
import time


def call(server, *words, password=None):
    """One command to the server itself; the first line of its reply, or the string that it is."""
    commands = ([("AUTH", password)] if password else []) + [words]
    with socket.socket(socket.AF_UNIX) as connection:
        connection.settimeout(10)
        connection.connect(server.socket)
        replies = connection.makefile("rb")
        for command in commands:
            text = b"*%d\r\n" % len(command)
            for word in command:
                raw = word if isinstance(word, bytes) else str(word).encode()
                text += b"$%d\r\n%s\r\n" % (len(raw), raw)
            connection.sendall(text)
            reply = replies.readline().strip().decode()
            if reply.startswith("$") and reply != "$-1":
                reply = replies.read(int(reply[1:])).decode()
                replies.readline()
    return reply


class RedisServer:
    """Runs from start() to stop(). `options` are words of its command line, and the name of a
    configuration file in front of them."""

    def __init__(self, *options):
        self.directory = tempfile.mkdtemp(prefix="vu-redis-")
        self.socket = os.path.join(self.directory, "redis.sock")
        self.options = list(options)
        self.process = None

    def start(self):
        program = shutil.which("redis-server") or "/usr/bin/redis-server"
        has_file = bool(self.options) and not self.options[0].startswith("--")
        with open(os.path.join(self.directory, "log"), "ab") as log:
            self.process = subprocess.Popen(
                [program]
                + self.options[:has_file]
                + ["--port", "0", "--unixsocket", self.socket, "--dir", self.directory]
                + ["--save", "", "--appendonly", "no"]
                + self.options[has_file:],
                stdout=log,
                stderr=log,
                stdin=subprocess.DEVNULL,
            )
        end = time.monotonic() + 30
        while not os.path.exists(self.socket):
            if self.process.poll() is not None or time.monotonic() > end:
                raise RuntimeError("redis-server does not start:\n" + self.log())
            time.sleep(0.01)
        return self

    def url(self, prefix="vu", **options):
        words = ["prefix=" + prefix] + ["%s=%s" % item for item in sorted(options.items())]
        return "redis+unix://%s?%s" % (self.socket, "&".join(words))

    def log(self):
        with open(os.path.join(self.directory, "log"), encoding="utf-8", errors="replace") as log:
            return log.read()

    def stop(self, keep=False):
        """Kills it. `keep`: it will be started again at the same place, with nothing in it."""
        if self.process is not None:
            self.process.kill()
            self.process.wait()
            self.process = None
        if not keep:
            shutil.rmtree(self.directory, ignore_errors=True)
        elif os.path.exists(self.socket):
            os.unlink(self.socket)

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc_info):
        self.stop()
