"""Client: the commands of vu_mom.VuMom for asyncio."""

from __future__ import annotations

import asyncio
import weakref
from typing import TYPE_CHECKING, Any, Iterable, List, NoReturn, Optional, TypeVar, Union

import vu_mom_common as common
from vu_global import VuGlobal

from ._errors import StoreError
from ._hub import Hub, KeyTuple, Place
from ._subscription import Found, Scan, Subscription

if TYPE_CHECKING:
    from vu_message import Message

M = TypeVar("M", bound="Message")
Key = KeyTuple

# How many changes may wait to be read, where the caller does not say.
MOST_WAITING = 65536


class _Closed:
    """Stands in for the hub of a client that was closed."""

    def __getattr__(self, name: str) -> NoReturn:
        raise StoreError(-1, "the client is closed")


class Client:
    """The store in the running event loop.

    `store` is a store as VuGlobal takes it, or a VuGlobal, which the event loop then drives.
    A client belongs to the event loop that runs when it is made, and to its thread. Use it in
    an `async with` block, or call close().

    Every command is sent when it is called, and commands take effect in the order of their
    calls. Those with one reply return a future with its value: a message, None where there is
    nothing, or a number. Awaiting it raises StoreError where the store replies with an error.
    Cancelling it gives up the reply and not the command. Arguments that are refused raise when
    the command is called, as vu_mom.VuMom raises.
    """

    def __init__(self, store: Union[str, VuGlobal] = "embedded:") -> None:
        self._loop = asyncio.get_running_loop()
        self._owns_glb = not isinstance(store, VuGlobal)
        self._glb = store if isinstance(store, VuGlobal) else VuGlobal(store=store)
        self._hub = Hub.enter(self._glb)
        self._entered: Optional[Hub] = self._hub
        self._subscriptions: weakref.WeakSet[Subscription[Any]] = weakref.WeakSet()

    @property
    def glb(self) -> VuGlobal:
        """The VuGlobal that the client uses."""
        return self._glb

    @property
    def closed(self) -> bool:
        """Whether close() was called."""
        return self._entered is None

    def close(self) -> None:
        """End the client's subscriptions, and complete everything that is pending with
        StoreError. A VuGlobal that the client was given stays open, and then what is pending
        still arrives. Closing again does nothing."""
        hub, self._entered = self._entered, None
        if hub is None:
            return
        self._hub = _Closed()  # type: ignore[assignment]
        for subscription in list(self._subscriptions):
            subscription.close()
        if self._owns_glb:
            self._glb.close()
        hub.leave(self._loop)

    async def __aenter__(self) -> Client:
        if self.closed:
            raise StoreError(-1, "the client is closed")
        return self

    async def __aexit__(self, *exception: object) -> None:
        self.close()

    # ---- Single values ---------------------------------------------------------------

    def get(self, db: int, obj: M) -> asyncio.Future[Optional[M]]:
        """The message stored under the key of obj; None: nothing is stored."""
        return self._hub.ask(self._hub.get, db, obj)

    def incr(self, db: int, obj: Message) -> asyncio.Future[int]:
        """Add one to the counter field; the new value."""
        return self._hub.ask(self._hub.incr, db, obj)

    def setnx(self, db: int, obj: Message) -> asyncio.Future[bool]:
        """Store obj where nothing is stored; whether it was."""
        return self._hub.ask(self._hub.setnx, db, obj)

    def set(self, db: int, obj: Message, flag: int = 0) -> None:
        """Store obj in place of what is there. flag: 1 quiet, 2 keep the lifetime."""
        self._hub.set(db, obj, flag)

    def setow(self, db: int, obj: Message, owner: int, flag: int = 0) -> None:
        """Store obj for owner, unless another owner holds the object."""
        self._hub.setow(db, obj, owner, flag)

    def delow(self, db: int, obj: Message, owner: int, flag: int = 0) -> None:
        """Delete the object if owner holds it."""
        self._hub.delow(db, obj, owner, flag)

    def delete(self, db: int, obj: Message) -> None:
        """Delete the object."""
        self._hub.delete(db, obj)

    def setnx_noreply(self, db: int, obj: Message) -> None:
        """Store obj where nothing is stored."""
        self._hub.setnx_noreply(db, obj)

    # ---- Hashes ------------------------------------------------------------------------

    def hmset(self, db: int, obj: Message, field_tags: Optional[Iterable[int]] = None) -> None:
        """Write the fields with these numbers; None: every field that obj carries."""
        self._hub.hmset(db, obj, _list(field_tags))

    def hmsetnx(self, db: int, obj: Message, field_tags: Optional[Iterable[int]] = None) -> None:
        """As hmset, if none of the fields exists."""
        self._hub.hmsetnx(db, obj, _list(field_tags))

    def hmupdate(self, db: int, obj: Message, field_tags: Optional[Iterable[int]] = None) -> None:
        """As hmset, if the object exists."""
        self._hub.hmupdate(db, obj, _list(field_tags))

    def hmget(
        self, db: int, obj: M, field_tags: Optional[Iterable[int]] = None
    ) -> asyncio.Future[Optional[common.HashResult[M]]]:
        """The fields with these numbers, None: all; None: nothing is stored."""
        return self._hub.ask(self._hub.hmget, db, obj, _list(field_tags))

    def hgetall(self, db: int, obj: M) -> asyncio.Future[Optional[common.HashResult[M]]]:
        """Every field; None: nothing is stored."""
        return self._hub.ask(self._hub.hgetall, db, obj)

    # ---- Scans -------------------------------------------------------------------------

    def scan(self, db: int, obj: M, level: int) -> Scan[Found[M]]:
        """The objects that match the first level key components of obj, with their values:
        PubSubMsg, whose .type_code tells the kind and .result is the value."""
        hub = self._hub
        return Scan(hub.read(hub.scan, db, obj, level), _itself)

    def scan_index(self, db: int, obj: M, level: int) -> Scan[M]:
        """The keys of these objects: messages of which only the key fields are set."""
        hub = self._hub
        return Scan(hub.read(hub.scan_index, db, obj, level), _result)

    # ---- Lists -------------------------------------------------------------------------

    def lpush(self, db: int, obj: Message) -> None:
        """Put obj at the head."""
        self._hub.lpush(db, obj)

    def rpush(self, db: int, obj: Message) -> None:
        """Put obj at the tail."""
        self._hub.rpush(db, obj)

    def lpop(self, db: int, obj: M) -> asyncio.Future[Optional[M]]:
        """Take the message at the head; None: there is none."""
        return self._hub.ask(self._hub.lpop, db, obj)

    def rpop(self, db: int, obj: M) -> asyncio.Future[Optional[M]]:
        """Take the message at the tail; None: there is none."""
        return self._hub.ask(self._hub.rpop, db, obj)

    def llen(self, db: int, obj: Message) -> asyncio.Future[int]:
        """How many messages the list has."""
        return self._hub.ask(self._hub.llen, db, obj)

    def lset(self, db: int, obj: Message, pos: int) -> asyncio.Future[bool]:
        """Put obj at position pos; whether there is such a position."""
        return self._hub.ask(self._hub.lset, db, obj, pos)

    def lrem(self, db: int, obj: Message, count: int) -> None:
        """Remove the first count messages equal to obj; 0: all."""
        self._hub.lrem(db, obj, count)

    def linsert(self, db: int, pivot: M, obj: M, order: int) -> asyncio.Future[int]:
        """Put obj before (order 0) or after (1) the pivot; the new length, -1: there is no
        such pivot, 0: there is no list."""
        return self._hub.ask(self._hub.linsert, db, pivot, obj, order)

    def lrange(
        self, db: int, obj: M, start: int = 0, stop: int = -1
    ) -> asyncio.Future[common.LrangeResult[M]]:
        """The messages from position start to stop, both included."""
        return self._hub.ask(self._hub.lrange, db, obj, start, stop)

    # ---- Sets --------------------------------------------------------------------------

    def sadd(self, db: int, obj: Message) -> None:
        """Add obj."""
        self._hub.sadd(db, obj)

    def srem(self, db: int, obj: Message) -> None:
        """Remove obj."""
        self._hub.srem(db, obj)

    def smembers(self, db: int, obj: M) -> asyncio.Future[common.SmembersResult[M]]:
        """The members."""
        return self._hub.ask(self._hub.smembers, db, obj)

    def scard(self, db: int, obj: Message) -> asyncio.Future[int]:
        """How many members there are."""
        return self._hub.ask(self._hub.scard, db, obj)

    def sismember(self, db: int, obj: Message) -> asyncio.Future[bool]:
        """Whether obj is a member."""
        return self._hub.ask(self._hub.sismember, db, obj)

    # ---- Sorted sets -------------------------------------------------------------------

    def zadd(self, db: int, scores: Iterable[float], objs: Iterable[Message]) -> None:
        """Add each of objs, or move it, with the score at its place."""
        self._hub.zadd(db, list(scores), list(objs))

    def zrem(self, db: int, objs: Iterable[Message]) -> None:
        """Remove each of objs."""
        self._hub.zrem(db, list(objs))

    def zcard(self, db: int, obj: Message) -> asyncio.Future[int]:
        """How many members there are."""
        return self._hub.ask(self._hub.zcard, db, obj)

    def zrank(self, db: int, obj: Message) -> asyncio.Future[Optional[int]]:
        """The position of obj by score, from 0; None: it is no member."""
        return self._hub.ask(self._hub.zrank, db, obj)

    def zscore(self, db: int, obj: Message) -> asyncio.Future[Optional[float]]:
        """The score of obj; None: it is no member."""
        return self._hub.ask(self._hub.zscore, db, obj)

    def zcount(self, db: int, obj: Message, min: float, max: float) -> asyncio.Future[int]:
        """How many members have scores from min to max, both included."""
        return self._hub.ask(self._hub.zcount, db, obj, min, max)

    def zrange(
        self, db: int, obj: M, start: int = 0, stop: int = -1
    ) -> asyncio.Future[common.ZrangeResult[M]]:
        """The (message, score) pairs from position start to stop, both included."""
        return self._hub.ask(self._hub.zrange, db, obj, start, stop)

    def zrangebyscore(
        self, db: int, obj: M, min: float, max: float
    ) -> asyncio.Future[common.ZrangebyscoreResult[M]]:
        """The (message, score) pairs with scores from min to max, both included."""
        return self._hub.ask(self._hub.zrangebyscore, db, obj, min, max)

    def zremrangebyscore(self, db: int, obj: Message, min: float, max: float) -> None:
        """Remove the members with scores from min to max, both included."""
        self._hub.zremrangebyscore(db, obj, min, max)

    def zremrangebyrank(self, db: int, obj: Message, start: int, stop: int) -> None:
        """Remove the members from position start to stop, both included."""
        self._hub.zremrangebyrank(db, obj, start, stop)

    # ---- Lifetimes and deletion: on every object that matches the first level key components,
    # ---- whose keys are the value.

    def pexpire(
        self, db: int, obj: Message, level: int, time: float
    ) -> asyncio.Future[List[Key]]:
        """Give the objects a lifetime of time seconds."""
        return self._hub.ask_on_level(self._hub.pexpire, db, obj, level, time)

    def pexpire_field(
        self, db: int, obj: Message, level: int, tag: int, time: float
    ) -> asyncio.Future[List[Key]]:
        """Give the field numbered tag a lifetime."""
        return self._hub.ask_on_level(self._hub.pexpire_field, db, obj, level, tag, time)

    def pexpire_fields(
        self, db: int, obj: Message, level: int, field_tags: Iterable[int], time: float
    ) -> asyncio.Future[List[Key]]:
        """Give each of these fields a lifetime."""
        hub, tags = self._hub, list(field_tags)
        if not tags:  # the store is not asked then, and does not reply
            nothing: asyncio.Future[List[Key]] = hub.loop.create_future()
            nothing.set_result([])
            return nothing
        return hub.ask_on_level(hub.pexpire_fields, db, obj, level, tags, time)

    def del_expire(self, db: int, obj: Message, level: int) -> asyncio.Future[List[Key]]:
        """Take the objects' lifetimes away."""
        return self._hub.ask_on_level(self._hub.del_expire, db, obj, level)

    def pdel(self, db: int, obj: Message, level: int) -> asyncio.Future[List[Key]]:
        """Delete the objects."""
        return self._hub.ask_on_level(self._hub.pdel, db, obj, level)

    # ---- Subscriptions and publishing ------------------------------------------------------

    def subscribe(
        self, db: int, obj: M, level: int, limit: int = MOST_WAITING
    ) -> Subscription[M]:
        """Every change, from now on, of the objects that match the first level key components
        of obj. At most limit changes wait to be read, see EventsMissed."""
        return self._subscribed(Subscription(self._hub, Place(db, obj, level), None, _most(limit)))

    def subscribe_field(
        self, db: int, obj: M, level: int, fields: Iterable[int], limit: int = MOST_WAITING
    ) -> Subscription[M]:
        """Every write, deletion and expiry of the fields with these numbers; the .tag of a
        change is the field's."""
        numbers = list(dict.fromkeys(fields))
        if not numbers:
            raise ValueError("fields must name a field")
        place = Place(db, obj, level)
        return self._subscribed(Subscription(self._hub, place, numbers, _most(limit)))

    def _subscribed(self, subscription: Subscription[M]) -> Subscription[M]:
        self._subscriptions.add(subscription)
        return subscription

    def publish(self, db: int, obj: Message) -> None:
        """Deliver obj to the subscribers of the object it names; nothing is stored."""
        self._hub.publish(db, obj)


def _itself(msg: Any) -> Any:
    return msg


def _result(msg: Any) -> Any:
    return msg.result


def _list(numbers: Optional[Iterable[int]]) -> Optional[List[int]]:
    return None if numbers is None else list(numbers)


def _most(limit: int) -> int:
    if limit < 1:
        raise ValueError("limit must be at least 1, not %r" % limit)
    return limit
