"""Random commands to both engines at once: every reply and every event of the one must be
that of the other.

The test command runs a part. More of it, with other commands for each seed, as they are carried
out where a clock runs if the last word says so:

    PYTHONPATH=build/host/python /usr/bin/python3 tests/contract/differential.py 100000 [SEED [running]]
"""

import collections
import itertools
import sys
import time
from typing import Any

import engines
import store as harness
from random_commands import HANDLES, batches

ENDLESS: dict[str, Any] = {"leave_out": {"advance"}, "lifetimes": [600, 3600]}


class Side:
    """One engine, with the replies and events of each step of the run."""

    def __init__(self, engine, clock_runs=False):
        self.store = harness.Store(engine, clock_runs)
        self.clients = [self.store.open() for _ in range(HANDLES)]
        self.replies = []  # (inbox, command, arguments), of this batch
        self.watches = []  # inboxes

    def do(self, handle, command, db, args):
        client = self.clients[handle]
        if command == "advance":
            self.store.advance(*args)
        elif command == "close":
            self.store.drive()
            client.handle.close()
            self.store.drive()
            self.store.handles.remove(client.handle)
            self.clients[handle] = self.store.open()
        elif command == "set_flag":
            client.set(db, *args)
        elif command == "subscribe":
            self.watches.append(client.watch(db, *args))
        elif command == "subscribe_field":
            self.watches.extend(client.watch_fields(db, *args))
        elif command.startswith("unsubscribe") or command in harness.NO_REPLY:
            getattr(client, command)(db, *args)
        else:
            self.replies.append((client.send(command, db, *args), command))

    def take_replies(self):
        """What has been replied since the last time, to each command in order."""
        taken = []
        for inbox, command in self.replies:
            assert inbox.completed, (command, inbox)
            replies = [said(msg) for msg in inbox]
            if command in harness.END_MARKS:  # promised in no order
                replies[:-1] = sorted(replies[:-1], key=repr)
            taken.append(replies)
        self.replies = []
        for client in self.clients:
            client.log.clear()
        return taken

    def take_events(self):
        """What each watch has heard since the last time, of each object in order."""
        taken = []
        for inbox in self.watches:
            by_object = collections.defaultdict(list)
            for msg in inbox.take():
                by_object[msg.key].append(said(msg, in_order=False))
            taken.append(dict(by_object))
        self.watches = [inbox for inbox in self.watches if not inbox.completed]
        return taken

    def finish(self):
        self.watches.clear()
        self.store.finish()


def said(msg, in_order=True):
    """All that a message says, but when it was."""
    result = msg.result
    content: Any
    if hasattr(result, "get_ptr"):
        content = (type(result).__name__, result.SerializeToString())
    elif hasattr(result, "obj"):
        content = ("hash", result.obj.SerializeToString(), result.tags)
    elif hasattr(result, "value"):
        content = ("value", repr(result.value))
    elif result is None:
        content = None
    else:
        content = [
            (one[0].SerializeToString(), repr(one[1]))
            if isinstance(one, tuple)
            else one.SerializeToString()
            for one in result
        ]
        if not in_order or type(result).__name__ == "SmembersResult":
            content.sort()
        content = (type(result).__name__, content)
    return (msg.status, msg.error, msg.type_code, msg.end, msg.count, msg.db, msg.tag, msg.key, content)


class Difference(AssertionError):
    pass


def compare(seed, sides, batch):
    replies, other_replies = [side.take_replies() for side in sides]
    events, other_events = [side.take_events() for side in sides]
    if replies == other_replies and events == other_events:
        return
    lines = ["seed %d, after:" % seed] + ["  %r" % (step,) for step in batch]
    for one, other in zip(replies, other_replies):
        if one != other:
            lines += ["embedded replied %r" % one, "server replied   %r" % other]
    for one, other in zip(events, other_events):
        for key in sorted(set(one) | set(other), key=repr):
            if one.get(key) != other.get(key):
                lines += ["embedded told %r" % one.get(key), "server told   %r" % other.get(key)]
    raise Difference("\n".join(lines))


def do_both(sides, step):
    for side in sides:
        side.do(*step)
    # What reads when it is delivered, and what depends on what was swept.
    if step[1].startswith("scan") or step[1] in ("advance", "close"):
        for side in sides:
            side.store.drive()


def run(made, commands, seed, clock_runs=False, tell=lambda done: None):
    """Runs as many commands on both engines. `made` are the two. Where the clock runs, nothing
    ends by itself. Tells how many are done, from time to time."""
    done = 0
    source = batches(seed, **(ENDLESS if clock_runs else {}))
    while done < commands:
        sides = [Side(engine, clock_runs) for engine in made]
        for batch in itertools.islice(source, 100):  # then new stores
            for step in batch:
                do_both(sides, step)
            for side in sides:
                side.store.drive()
            compare(seed, sides, batch)
            done += len(batch)
        for side in sides:
            side.finish()
        tell(done)
    return done


def main(argv):
    commands = int(argv[1]) if len(argv) > 1 else 100000
    seed = int(argv[2]) if len(argv) > 2 else int(time.time())
    clock_runs = argv[3:] == ["running"]

    def tell(done):
        print("\r%d" % done, end=" ", file=sys.stderr, flush=True)

    made: list[Any] = [engines.EmbeddedEngine(), engines.ServerEngine()]
    begin = time.monotonic()
    try:
        done = run(made, commands, seed, clock_runs, tell)
    finally:
        for engine in made:
            engine.stop()
    seconds = time.monotonic() - begin
    print("%d commands, seed %d: no difference (%.0f s)" % (done, seed, seconds))


if __name__ == "__main__":
    main(sys.argv)
