"""A redis-server of one's own, as Debian brings it: on a unix socket, keeping nothing."""

import os
import shutil
import subprocess
import tempfile
import time


class RedisServer:
    """Runs from start() to stop(). `options` are words of its command line."""

    def __init__(self, *options):
        self.directory = tempfile.mkdtemp(prefix="vu-redis-")
        self.socket = os.path.join(self.directory, "redis.sock")
        self.options = list(options)
        self.process = None

    def start(self):
        program = shutil.which("redis-server") or "/usr/bin/redis-server"
        with open(os.path.join(self.directory, "log"), "ab") as log:
            self.process = subprocess.Popen(
                [program, "--port", "0", "--unixsocket", self.socket, "--dir", self.directory]
                + ["--save", "", "--appendonly", "no"]
                + self.options,
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
