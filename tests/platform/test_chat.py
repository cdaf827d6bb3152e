"""examples/chat, used over its connections."""

import asyncio
import contextlib
import importlib.util
import pathlib
import signal
import socket
import subprocess
import sys

import pytest
from vu_aio import Client

sys.path.insert(1, str(pathlib.Path(__file__).parents[1] / "support"))

from redis_server import RedisServer  # noqa: E402

CHAT = pathlib.Path(__file__).parents[2] / "examples" / "chat" / "chat.py"


class Guest:
    def __init__(self, port, name, room):
        self.connection = socket.create_connection(("localhost", port), timeout=60)
        self.lines = self.connection.makefile("r")
        self.say(name)
        self.say(room)
        self.greeting = self.hear()

    def say(self, text):
        self.connection.sendall((text + "\n").encode())

    def hear(self):
        return self.lines.readline()

    def leave(self):
        self.lines.close()
        self.connection.close()


@contextlib.contextmanager
def chat_server(*options):
    child = subprocess.Popen(
        [sys.executable, "-B", str(CHAT), "--port", "0", *options],
        stdout=subprocess.PIPE,
        stderr=subprocess.PIPE,
        universal_newlines=True,
    )
    try:
        yield child, int(child.stdout.readline().split()[-1])
    finally:
        child.kill()
        child.communicate()


@pytest.fixture
def server():
    with chat_server() as child_and_port:
        yield child_and_port


def test_chat(server):
    server, port = server
    with contextlib.ExitStack() as guests:

        def enter(name, room):
            guest = Guest(port, name, room)
            guests.callback(guest.leave)
            return guest

        prompts = "Your name? Which room? "
        ann, bob = enter("ann", "lobby"), enter("bob", "lobby")
        assert ann.greeting == prompts + "You are visitor 1 of lobby.\n"
        assert bob.greeting == prompts + "You are visitor 2 of lobby.\n"
        assert enter("eve", "cellar").greeting == prompts + "You are visitor 1 of cellar.\n"
        for number in range(12):
            ann.say("line %d" % number)
            for guest in ann, bob:
                assert guest.hear() == "ann: line %d\n" % number
        late = enter("late", "lobby")
        assert late.greeting == prompts + "You are visitor 3 of lobby.\n"
        assert [late.hear() for _ in range(10)] == ["ann: line %d\n" % n for n in range(2, 12)]
        bob.leave()
        late.say("hello")
        assert ann.hear() == late.hear() == "late: hello\n"
    server.send_signal(signal.SIGINT)
    _, errors = server.communicate(timeout=60)
    assert (server.returncode, errors) == (0, "")


def test_two_servers_share_their_rooms():
    with RedisServer() as redis, contextlib.ExitStack() as guests:
        with chat_server("--store", redis.url()) as (_, one):
            with chat_server("--store", redis.url()) as (_, two):
                ann, bob = Guest(one, "ann", "lobby"), Guest(two, "bob", "lobby")
                guests.callback(ann.leave)
                guests.callback(bob.leave)
                assert ann.greeting.endswith("You are visitor 1 of lobby.\n")
                assert bob.greeting.endswith("You are visitor 2 of lobby.\n")
                for number in range(3):
                    ann.say("to bob %d" % number)
                    assert bob.hear() == ann.hear() == "ann: to bob %d\n" % number
                    bob.say("to ann %d" % number)
                    assert ann.hear() == bob.hear() == "bob: to ann %d\n" % number


def test_newcomer_was_shown_a_line_twice():
    """One that another server had put into the room, and published when the newcomer listened."""
    program = importlib.util.spec_from_file_location("chat", CHAT)
    assert program is not None
    chat = importlib.util.module_from_spec(program)
    program.loader.exec_module(chat)

    class Late(Client):
        """The other server publishes in the last moment."""

        def lrange(self, db, obj):
            self.publish(db, first)
            return super().lrange(db, obj)

    class Writer:
        written = ""

        def write(self, data):
            self.written += data.decode()

        async def drain(self):
            pass

    first = chat.Line(room="lobby", author="ann", text="first", number=1)

    async def visit():
        async with Late("embedded:newcomer") as client:
            client.rpush(0, first)
            reader, writer = asyncio.StreamReader(), Writer()
            reader.feed_data(b"bob\nlobby\n")
            guest = asyncio.ensure_future(chat.Guest(client, reader, writer).serve())
            while "first" not in writer.written:
                await asyncio.sleep(0.001)
            client.publish(0, chat.Line(room="lobby", author="ann", text="second", number=2))
            while "second" not in writer.written:
                await asyncio.sleep(0.001)
            reader.feed_eof()
            await guest
            return writer.written

    written = asyncio.run(asyncio.wait_for(visit(), 60))
    assert written.endswith("You are visitor 1 of lobby.\nann: first\nann: second\n")
