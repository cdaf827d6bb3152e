"""What a command may raise when it is awaited."""

from __future__ import annotations

import vu_mom


class StoreError(vu_mom.Error):
    """The store has refused or given up a request.

    `status` is the negative number and `error` the text that the reply carried. Also raised
    by the commands of a client that is closed.
    """

    def __init__(self, status: int, error: str) -> None:
        super().__init__(status, error)
        self.status = status
        self.error = error

    def __str__(self) -> str:
        return self.error


class EventsMissed(StoreError):
    """Changes may be missing at this place of a subscription, which itself goes on: the
    connection was lost for a while, or the reader was too slow. `error` says which."""


for _class in (StoreError, EventsMissed):
    _class.__module__ = "vu_aio"  # where they are imported from
