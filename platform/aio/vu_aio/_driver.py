"""Event loops of vu_thread inside event loops of asyncio."""

from __future__ import annotations

import asyncio
import weakref
from typing import Dict

from vu_thread import VuThreadMaster


class Driver:
    """Drives one VuThreadMaster for all who have entered it, from the loop that watches its
    descriptor. A turn delivers a bounded batch, so neither loop starves the other."""

    _drivers: "weakref.WeakKeyDictionary[asyncio.AbstractEventLoop, Dict[int, Driver]]"
    _drivers = weakref.WeakKeyDictionary()

    def __init__(self, loop: asyncio.AbstractEventLoop, master: VuThreadMaster) -> None:
        self._loop = weakref.ref(loop)
        self._master = master
        self._users = 0

    @classmethod
    def enter(cls, loop: asyncio.AbstractEventLoop, master: VuThreadMaster) -> Driver:
        """Pair with leave()."""
        of_loop = cls._drivers.setdefault(loop, {})
        driver = of_loop.get(master.fileno())
        if driver is None:
            driver = of_loop[master.fileno()] = cls(loop, master)
            loop.add_reader(master.fileno(), master.run_once, 0)
        driver._users += 1
        return driver

    def leave(self) -> None:
        self._users -= 1
        loop = self._loop()
        if self._users == 0 and loop is not None:
            del self._drivers[loop][self._master.fileno()]
            if not loop.is_closed():
                loop.remove_reader(self._master.fileno())
