"""A cluster of redis-servers of one's own: three masters, each with a third of the slots."""

import time

from free_port import free_port
from redis_server import RedisServer, call

MASTERS = 3
SLOTS = 16384


class RedisCluster:
    """Runs from start() to stop(). `options` are words of each member's command line."""

    def __init__(self, *options):
        self.ports = []
        self.members = []
        self.options = options

    def start(self):
        for _ in range(MASTERS):
            self.ports.append(free_port())
            own = ["--port", str(self.ports[-1]), "--bind", "127.0.0.1", "--cluster-enabled", "yes"]
            self.members.append(RedisServer(*own, *self.options).start())
        for number, member in enumerate(self.members):
            first, behind = (SLOTS * part // MASTERS for part in (number, number + 1))
            self._expect("+OK", member, "CLUSTER", "ADDSLOTSRANGE", first, behind - 1)
            # So that a key which goes from one to another has an epoch that nobody else has.
            self._expect("+OK", member, "CLUSTER", "SET-CONFIG-EPOCH", number + 1)
        for port in self.ports[1:]:
            self._expect("+OK", self.members[0], "CLUSTER", "MEET", "127.0.0.1", port)
        end = time.monotonic() + 60
        while not all(map(self._is_ready, self.members)):
            if time.monotonic() > end:
                raise RuntimeError("the cluster does not come together")
            time.sleep(0.02)
        return self

    @staticmethod
    def _expect(wanted, member, *words):
        reply = call(member, *words)
        if reply != wanted:
            raise RuntimeError("%s: %s" % (" ".join(map(str, words)), reply))

    @staticmethod
    def _is_ready(member):
        """Whether it knows who has which slots, and is connected to all the others."""
        nodes = call(member, "CLUSTER", "NODES").splitlines()
        return (
            "cluster_state:ok" in call(member, "CLUSTER", "INFO")
            and call(member, "CLUSTER", "SLOTS") == "*%d" % MASTERS
            and sum(" connected " in node for node in nodes) == MASTERS
        )

    def url(self, prefix="vu", **options):
        words = ["prefix=" + prefix] + ["%s=%s" % item for item in sorted(options.items())]
        hosts = ",".join("127.0.0.1:%d" % port for port in self.ports)
        return "redis+cluster://%s?%s" % (hosts, "&".join(words))

    def stop(self):
        for member in self.members:
            member.stop()
        self.members.clear()
        self.ports.clear()

    def __enter__(self):
        return self.start()

    def __exit__(self, *exc_info):
        self.stop()
