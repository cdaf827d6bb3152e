"""A queue between what the store delivers and the one task that reads it."""

from __future__ import annotations

import asyncio
import collections
from typing import Callable, Deque, Generic, Optional, TypeVar, Union

from ._errors import EventsMissed, StoreError

T = TypeVar("T")


class Stream(Generic[T]):
    """What arrives from a number of sources, in order; errors are raised at their place in it.

    `limit` is how many values may wait. Where there are more, the later ones are dropped
    and EventsMissed stands in their place; None: no limit.
    """

    def __init__(
        self,
        loop: asyncio.AbstractEventLoop,
        limit: Optional[int] = None,
        sources: int = 1,
    ) -> None:
        self._loop = loop
        self._limit = limit
        self._sources = sources
        self._waiting: Deque[Union[T, StoreError]] = collections.deque()
        self._is_dropping = False
        self._reader: Optional[asyncio.Future[None]] = None
        self.ended = False

    def put(self, value: Union[T, StoreError]) -> None:
        if self.ended:
            return
        if self._limit is not None and len(self._waiting) >= self._limit:
            if not self._is_dropping:
                self._is_dropping = True
                text = "changes were dropped: %d were waiting to be read" % len(self._waiting)
                self._waiting.append(EventsMissed(-1, text))
            return
        self._is_dropping = False
        self._waiting.append(value)
        self._wake()

    def end_source(self) -> None:
        """With the last one nothing comes any more; what is there can still be read."""
        self._sources -= 1
        if self._sources == 0:
            self.ended = True
            self._wake()

    def abandon(self) -> None:
        """Nothing is to be read any more."""
        self._waiting.clear()
        self.ended = True
        self._wake()

    def _wake(self) -> None:
        if self._reader is not None and not self._reader.done():
            self._reader.set_result(None)

    async def next(self) -> T:
        """Raises StopAsyncIteration at the end."""
        if self._reader is not None:
            raise RuntimeError("another task is reading this already")
        while not self._waiting:
            if self.ended:
                raise StopAsyncIteration
            self._reader = self._loop.create_future()
            try:
                await self._reader
            finally:
                self._reader = None
        value = self._waiting.popleft()
        if isinstance(value, StoreError):
            raise value
        return value


def call_later_from_finaliser(
    loop: asyncio.AbstractEventLoop, function: Callable[[], None]
) -> None:
    """Finalisers run at any moment and on any thread."""
    if not loop.is_closed():
        try:
            loop.call_soon_threadsafe(function)
        except RuntimeError:  # closed meanwhile
            pass
