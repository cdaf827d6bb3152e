"""The store for asyncio.

    async with Client("embedded:") as client:
        client.set(0, Greeting(name="world", text="Hello,"))
        greeting = await client.get(0, Greeting(name="world"))

Client has the commands of vu_mom.VuMom under the same names, without `privdata` and without
reply methods: commands with replies return what can be awaited, subscriptions and scans are
asynchronous iterators. docs/asyncio.md tells the whole of it. Needs CPython 3.7 or later.
"""

from ._client import Client, Key, M
from ._errors import EventsMissed, StoreError
from ._subscription import Change, Found, Scan, Subscription

__all__ = [
    "Change",
    "Client",
    "EventsMissed",
    "Found",
    "Key",
    "M",
    "Scan",
    "StoreError",
    "Subscription",
]
