"""What is read one by one: the changes of a subscription, the objects of a scan."""

from __future__ import annotations

from typing import (
    TYPE_CHECKING,
    Any,
    AsyncIterator,
    Awaitable,
    Callable,
    Generator,
    Generic,
    List,
    Optional,
    TypeVar,
    Union,
)

import vu_mom_common as common

from ._hub import Channel, Hub, Place
from ._stream import Stream, call_later_from_finaliser

M = TypeVar("M", bound="Message")
T = TypeVar("T")

if TYPE_CHECKING:
    from vu_message import Message

    Found = common.PubSubMsg[
        Union[
            M,
            common.HashResult[M],
            common.LrangeResult[M],
            common.SmembersResult[M],
            common.ZrangeResult[M],
        ]
    ]
    Change = common.PubSubMsg[
        Union[
            M,
            common.HashResult[M],
            common.ListResult[M],
            common.SetResult[M],
            common.SortedsetResult[M],
            None,
        ]
    ]
else:
    # For annotations that are evaluated: Change[Greeting] is PubSubMsg[Greeting].
    Found = Change = common.PubSubMsg


class Scan(AsyncIterator[T], Awaitable[List[T]]):
    """What a scan finds: `await` it for a list, or read it with `async for`.

    The objects arrive while the event loop runs, whether or not they are read. Who stops
    reading early loses nothing by it; what still arrives is dropped.
    """

    def __init__(self, stream: Stream[Any], value_of: Callable[[Any], T]) -> None:
        self._stream = stream
        self._value_of = value_of

    def __aiter__(self) -> Scan[T]:
        return self

    async def __anext__(self) -> T:
        return self._value_of(await self._stream.next())

    def __await__(self) -> Generator[Any, None, List[T]]:
        return self._all().__await__()

    async def _all(self) -> List[T]:
        return [value async for value in self]

    def __del__(self) -> None:
        self._stream.abandon()


class Subscription(AsyncIterator["Change[M]"], Generic[M]):
    """The changes of a subscription, in order, from the call that made it on.

    Read it with `async for`. It ends with close(), at the end of an `async with` block, when
    nobody refers to it any more, and when its client is closed.

    Raises EventsMissed where changes may be missing; reading can go on after that. Raises
    StoreError where the store has ended it, as it does when the VuGlobal is closed.
    """

    def __init__(
        self,
        hub: Hub,
        place: Place,
        fields: Optional[List[int]],
        limit: int,
    ) -> None:
        self._hub = hub
        self._place = place
        self._channels: List[Channel] = []
        self._stream: Stream[Any] = Stream(hub.loop, limit, 1 if fields is None else len(fields))
        if fields is None:
            self._channels = hub.join(place, self._stream)
        else:
            self._channels = hub.join_fields(place, fields, self._stream)

    @property
    def closed(self) -> bool:
        """Whether nothing arrives any more."""
        return self._stream.ended

    def close(self) -> None:
        """End the subscription. Nothing can be read any more; who waits is told the end."""
        channels, self._channels = self._channels, []
        self._stream.abandon()
        self._hub.part(self._place, channels, self._stream)

    def __aiter__(self) -> Subscription[M]:
        return self

    async def __anext__(self) -> Change[M]:
        change: Change[M] = await self._stream.next()
        return change

    async def __aenter__(self) -> Subscription[M]:
        return self

    async def __aexit__(self, *exception: object) -> None:
        self.close()

    def __del__(self) -> None:
        if getattr(self, "_channels", None):
            hub, place, channels, stream = self._hub, self._place, self._channels, self._stream
            call_later_from_finaliser(hub.loop, lambda: hub.part(place, channels, stream))
