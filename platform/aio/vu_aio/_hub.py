"""What stands between the clients of one VuGlobal and the store."""

from __future__ import annotations

import asyncio
from typing import TYPE_CHECKING, Any, Callable, Dict, List, Optional, Tuple, Union

from vu_global import VuGlobal
from vu_mom import VuMom

from ._driver import Driver
from ._errors import EventsMissed, StoreError
from ._stream import Stream

if TYPE_CHECKING:
    from vu_message import Message
    from vu_mom_common import PubSubMsg

KeyTuple = Tuple[Union[int, bool, str, bytes], ...]

SUBSCRIPTION_ENDED = 28

_PLAIN = "get hmget hgetall lpop rpop lrange smembers zrange zrangebyscore"
_NUMBER = "incr setnx llen lset linsert scard sismember zcard zrank zscore zcount"
_LEVEL = "pexpire pexpirefield pexpirefields delexpire pdel"


def error_of(msg: PubSubMsg[Any]) -> StoreError:
    return StoreError(msg.status, msg.error)


def settle(future: asyncio.Future[Any], msg: PubSubMsg[Any], value: Any, closed: bool) -> None:
    """Completes a request, unless nobody waits for it any more: then its reply ends here."""
    if future.done():
        return
    try:
        if msg.status:
            future.set_exception(error_of(msg))
            if closed:  # by the program: asyncio is not to complain of all that nobody awaits then
                future.exception()
        else:
            future.set_result(value)
    except RuntimeError:  # the event loop of those who waited was closed
        pass


class Channel:
    """One subscription in the store, to objects or to one field of them, and its readers."""

    def __init__(self, place: Tuple[Any, ...]) -> None:
        self.place = place
        self.readers: List[Stream[PubSubMsg[Any]]] = []


class Place:
    """The objects that a subscription is about, apart from the message that named them, which
    belongs to the caller and may change."""

    def __init__(self, db: int, obj: Message, level: int) -> None:
        keys = sorted(obj.DESCRIPTOR.key_fields, key=lambda field: field.key)[:level]
        values = {field.name: getattr(obj, field.name) for field in keys}
        self.db = db
        self.level = min(level, len(keys))
        self.obj = type(obj)(**values)
        self.identity = (db, type(obj), self.level, tuple(values.values()))


class Hub(VuMom):
    """The one client of a VuGlobal that all vu_aio.Clients of it share: it owns the reply
    methods, and knows how much is still to arrive.

    The store ends subscriptions by what they are to, not one by one; so each is made once,
    however many read it, and ended with its last reader.
    """

    def __init__(self, glb: VuGlobal) -> None:
        super().__init__(glb)
        self.glb = glb
        self.users = 0
        self.expected = 0  # replies that complete a request, and ends of subscriptions
        self.loop: asyncio.AbstractEventLoop
        self._driver: Optional[Driver] = None
        self._channels: Dict[Tuple[Any, ...], Channel] = {}  # those that are not being ended

    @classmethod
    def enter(cls, glb: VuGlobal) -> Hub:
        """The hub of a VuGlobal, bound to the running loop. Pair with leave()."""
        loop = asyncio.get_running_loop()
        hub = next((app for app in glb.apps if type(app) is cls), None) or cls(glb)
        hub._bind(loop)
        hub.users += 1
        return hub

    def _bind(self, loop: asyncio.AbstractEventLoop) -> None:
        if self._driver is not None:
            if self.loop is loop:
                return
            if not self.loop.is_closed():
                raise RuntimeError("this VuGlobal is in use in another event loop")
            # Its loop is gone, and with it all who could have waited for what is expected.
            self._driver.leave()
            self.users = 0
            for channel in self._channels.values():
                channel.readers.clear()
            self._channels.clear()
        self.loop = loop
        self._driver = Driver.enter(loop, self.glb.thread_master)

    def leave(self, loop: asyncio.AbstractEventLoop) -> None:
        if self.loop is loop:
            self.users -= 1
            self._rest()

    def _rest(self) -> None:
        if self.users == 0 and self.expected == 0 and self._driver is not None:
            self._driver.leave()
            self._driver = None

    def _completed(self) -> None:
        self.expected -= 1
        if self.users == 0:
            self._rest()

    # ---- Requests ---------------------------------------------------------------------

    def ask(self, command: Callable[..., None], *args: Any) -> asyncio.Future[Any]:
        """Sends a command with one reply."""
        future = self.loop.create_future()
        command(*args, future)
        self.expected += 1
        return future

    def ask_on_level(
        self, command: Callable[..., None], *args: Any
    ) -> asyncio.Future[List[KeyTuple]]:
        """Sends a command with one reply per object."""
        future: asyncio.Future[List[KeyTuple]] = self.loop.create_future()
        command(*args, (future, []))
        self.expected += 1
        return future

    def read(self, command: Callable[..., None], *args: Any) -> Stream[PubSubMsg[Any]]:
        """Sends a scan."""
        stream: Stream[PubSubMsg[Any]] = Stream(self.loop)
        command(*args, stream)
        self.expected += 1
        return stream

    # ---- Replies. -----------------------------------------------------------------------

    def _plain(self, msg: PubSubMsg[Any], future: asyncio.Future[Any]) -> None:
        self._completed()
        settle(future, msg, msg.result, self.glb.closed)

    def _number(self, msg: PubSubMsg[Any], future: asyncio.Future[Any]) -> None:
        self._completed()
        value = None if msg.result is None else msg.result.value
        settle(future, msg, value, self.glb.closed)

    def _level(
        self, msg: PubSubMsg[Any], p: Tuple[asyncio.Future[List[KeyTuple]], List[KeyTuple]]
    ) -> None:
        future, keys = p
        if not msg.end:
            keys.append(msg.key)
            return
        self._completed()
        settle(future, msg, keys, self.glb.closed)

    def _scan(self, msg: PubSubMsg[Any], stream: Stream[PubSubMsg[Any]]) -> None:
        if not msg.end:
            stream.put(msg)
            return
        self._completed()
        if msg.status:
            stream.put(error_of(msg))
        stream.end_source()

    def _event(self, msg: PubSubMsg[Any], channel: Channel) -> None:
        if msg.type_code != SUBSCRIPTION_ENDED:
            for stream in channel.readers:
                stream.put(EventsMissed(msg.status, msg.error) if msg.status else msg)
            return
        self._completed()
        if self._channels.get(channel.place) is channel:
            del self._channels[channel.place]
        for stream in channel.readers:
            if msg.status:
                stream.put(error_of(msg))
            stream.end_source()
        channel.readers.clear()

    def __getattr__(self, name: str) -> Any:
        """Makes the reply methods of a message type when they are first asked for."""
        prefix = name.split("_", 2)[1] if name.startswith("on_") else ""
        if prefix not in _RECEIVERS:
            raise AttributeError(name)
        setattr(type(self), name, _RECEIVERS[prefix])
        return getattr(self, name)

    # ---- Subscriptions ------------------------------------------------------------------

    def join(self, place: Place, stream: Stream[PubSubMsg[Any]]) -> List[Channel]:
        """Makes `stream` a reader of all changes. Give the result to part()."""
        channel = self._channels.get(place.identity)
        if channel is None:
            channel = Channel(place.identity)
            self.subscribe(place.db, place.obj, place.level, channel)
            self._opened(channel)
        channel.readers.append(stream)
        return [channel]

    def join_fields(
        self, place: Place, fields: List[int], stream: Stream[PubSubMsg[Any]]
    ) -> List[Channel]:
        """The same for the changes of fields; the stream has that many sources."""
        channels = []
        missing = []
        for field in fields:
            identity = place.identity + (field,)
            channel = self._channels.get(identity)
            if channel is None:
                channel = Channel(identity)
                missing.append(channel)
            channels.append(channel)
        self.subscribe_field(
            place.db,
            place.obj,
            place.level,
            [channel.place[-1] for channel in missing],
            [self._event] * len(missing),
            list(missing),
        )
        for channel in missing:
            self._opened(channel)
        for channel in channels:
            channel.readers.append(stream)
        return channels

    def _opened(self, channel: Channel) -> None:
        self._channels[channel.place] = channel
        self.expected += 1

    def part(
        self, place: Place, channels: List[Channel], stream: Stream[PubSubMsg[Any]]
    ) -> None:
        """Ends the channels that nobody else reads."""
        fields = []
        for channel in channels:
            if stream in channel.readers:
                channel.readers.remove(stream)
            if channel.readers or self._channels.get(channel.place) is not channel:
                continue
            del self._channels[channel.place]
            if self.glb.closed:
                continue
            if channel.place == place.identity:
                self.unsubscribe(place.db, place.obj, place.level)
            else:
                fields.append(channel.place[-1])
        if fields:
            self.unsubscribe_field(place.db, place.obj, place.level, fields)


_RECEIVERS: Dict[str, Callable[..., None]] = {
    **dict.fromkeys(_PLAIN.split(), Hub._plain),
    **dict.fromkeys(_NUMBER.split(), Hub._number),
    **dict.fromkeys(_LEVEL.split(), Hub._level),
    "scan": Hub._scan,
    "scanindex": Hub._scan,
    "subscribe": Hub._event,
}
