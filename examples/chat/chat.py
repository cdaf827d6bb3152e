"""A chat server: `chat.py [--port PORT] [--store STORE]`, and then `nc localhost PORT`.

With a store that several processes share, several servers serve the same rooms.
"""

import argparse
import asyncio
from typing import Set

from chat_vu import Line, Lines, Visits
from vu_aio import Client, StoreError, Subscription

KEPT = 10  # lines of a room that a newcomer is shown


class Guest:
    """One connection: a name, a room, and then lines both ways."""

    def __init__(
        self, client: Client, reader: asyncio.StreamReader, writer: asyncio.StreamWriter
    ) -> None:
        self.client = client
        self.reader = reader
        self.writer = writer

    async def ask(self, question: str) -> str:
        self.writer.write(question.encode())
        return (await self.reader.readline()).decode(errors="replace").strip()

    def show(self, line: Line) -> None:
        self.writer.write(("%s: %s\n" % (line.author, line.text)).encode())

    async def serve(self) -> None:
        self.name = await self.ask("Your name? ")
        self.room = await self.ask("Which room? ")
        visitor = await self.client.incr(0, Visits(room=self.room))
        self.writer.write(("You are visitor %d of %s.\n" % (visitor, self.room)).encode())
        async with self.client.subscribe(0, Line(room=self.room), 1) as changes:
            kept = await self.client.lrange(0, Line(room=self.room))
            for line in kept:
                self.show(line)
            shown = {line.number for line in kept}  # which may be published only now
            listening = asyncio.ensure_future(self.listen(changes, shown))
            try:
                await self.talk()
            finally:
                listening.cancel()

    async def listen(self, changes: Subscription[Line], shown: Set[int]) -> None:
        async for change in changes:
            line = change.result
            if isinstance(line, Line):  # published; the list's own changes are not
                if line.number not in shown:
                    self.show(line)
                await self.writer.drain()

    async def talk(self) -> None:
        """What the guest says, until the connection ends."""
        async for said in self.reader:
            text = said.decode(errors="replace").strip()
            number = await self.client.incr(0, Lines(room=self.room))
            line = Line(room=self.room, author=self.name, text=text, number=number)
            self.client.rpush(0, line)
            self.client.publish(0, line)
            if await self.client.llen(0, line) > KEPT:
                await self.client.lpop(0, line)


async def main(port: int, store: str) -> None:
    async with Client(store) as client:

        async def connected(reader: asyncio.StreamReader, writer: asyncio.StreamWriter) -> None:
            try:
                await Guest(client, reader, writer).serve()
            except (ConnectionError, StoreError):  # the guest is gone, or the store
                pass
            finally:
                writer.close()

        server = await asyncio.start_server(connected, "localhost", port)
        print("listening on port", server.sockets[0].getsockname()[1], flush=True)
        async with server:
            await server.serve_forever()


if __name__ == "__main__":
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--port", type=int, default=7000, help="0: a free one")
    parser.add_argument("--store", default="embedded:")
    options = parser.parse_args()
    try:
        asyncio.run(main(options.port, options.store))
    except KeyboardInterrupt:
        pass
