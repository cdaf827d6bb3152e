"""VuGlobal: opens the store, drives it in the event loop and keeps the applications."""

from types import TracebackType
from typing import Any, Dict, Optional, Tuple, Type, TypeVar

from vu_thread import VuThreadMaster

_Global = TypeVar("_Global", bound="VuGlobal")

class VuGlobal:
    """The object that an application makes first."""

    def __init__(
        self, thread_master: Optional[VuThreadMaster] = None, store: str = "embedded:"
    ) -> None: ...
    @property
    def apps(self) -> Tuple[Any, ...]:
        """The registered applications."""
    @property
    def thread_master(self) -> VuThreadMaster:
        """The event loop."""
    @property
    def store(self) -> str:
        """The store that was opened, as it was named."""
    @property
    def store_text(self) -> str:
        """The store without its password, to be shown to people."""
    @property
    def closed(self) -> bool:
        """Whether close() was called."""
    def regist_app(self, app: object, /) -> None:
        """Keep an application alive until close()."""
    def close(self) -> None:
        """Complete everything that is pending, with errors, and drop the applications."""
    def run(self) -> None:
        """Run the event loop: thread_master.run()."""
    def run_once(self, timeout: Optional[float] = None) -> bool:
        """Run one turn: thread_master.run_once(timeout)."""
    def stop(self) -> None:
        """End the loop: thread_master.stop()."""
    def fileno(self) -> int:
        """The descriptor of the event loop: thread_master.fileno()."""
    def stats(self) -> Dict[str, int]:
        """What the store handle has done since it was opened.

        Of this VuGlobal: 'commands' accepted, 'refused' (an exception was raised), 'replies'
        delivered and how many of them were 'errors', 'events' delivered, 'missed' (events that
        say that others may be missing), and 'waiting', replies and events not delivered yet.
        Of the store, for all that share its connections, and 0 for an embedded one:
        'reconnects', and 'pending' commands without an answer and 'unsent_bytes' at this
        moment. After close() the counters stay as they were.
        """
    def __enter__(self: _Global) -> _Global: ...
    def __exit__(
        self,
        exc_type: Optional[Type[BaseException]],
        exc: Optional[BaseException],
        traceback: Optional[TracebackType],
    ) -> None: ...
    def _advance_clock(self, seconds: float, /) -> None:
        """For tests: stop the store's clock and move it on."""

def _reopen(cls: Type[_Global], store: str, /) -> _Global:
    """The oldest open VuGlobal of exactly that class and store, or a new one."""
