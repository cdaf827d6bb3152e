"""One of several processes that share a store on a server. It makes the same random commands
as all of them from one seed, carries out those that it is told to, and says what it got.

    peer.py URL SEED, then on standard input one word a line:
      run      carry the next batch out
      skip     leave it to another process
      heard    say what the subscriptions have heard since the last time

Each line of output answers one of input, as repr() writes it.
"""

import pathlib
import sys

sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "contract"))

import differential  # noqa: E402
import engines  # noqa: E402
from random_commands import DATABASES, batches  # noqa: E402
from contract_vu import ByString, Mixed, Port, Settings  # noqa: E402

# Of each process for itself: its subscriptions, its handles, its clock.
LEFT_OUT = "subscribe subscribe_field unsubscribe unsubscribe_field advance close".split()
LIFETIMES = [-1, 0, 3600]


class Elsewhere(engines.ServerEngine):
    """A store on a server that somebody else has started."""

    def __init__(self, url):
        self.url = url

    def fresh_store(self):
        return self.url


class Peer:
    """On any engine; hears everything that happens."""

    def __init__(self, engine, seed):
        self.side = differential.Side(engine)
        self.batches = batches(seed, LEFT_OUT, LIFETIMES)
        for db in range(DATABASES):
            for kind in (Port, Settings, ByString, Mixed):
                self.side.do(0, "subscribe", db, (kind(), 0))
            self.side.do(1, "subscribe_field", db, (Port(), 0, list(range(1, 11))))
        self.side.store.drive()

    def run(self):
        for step in next(self.batches):
            self.side.do(*step)
            if step[1].startswith("scan"):
                self.side.store.drive()
        self.side.store.drive()
        return self.side.take_replies()

    def skip(self):
        return next(self.batches) and None

    def heard(self):
        self.side.store.drive()
        return [sorted(events.items(), key=repr) for events in self.side.take_events()]


def main():
    url, seed = sys.argv[1:]
    peer = Peer(Elsewhere(url), int(seed))
    print("ready", flush=True)
    for line in sys.stdin:
        print(repr(getattr(peer, line.strip())()), flush=True)
    peer.side.finish()


if __name__ == "__main__":
    main()
