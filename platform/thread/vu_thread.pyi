"""The event loop of the process: VuThreadMaster, and Thread, one piece of work in it."""

from typing import Any, Callable, Optional, Protocol, Union, final

class _HasFileno(Protocol):
    def fileno(self) -> int: ...

@final
class Thread:
    """One piece of work in the event loop of a VuThreadMaster."""

    @property
    def active(self) -> bool:
        """Whether the function will be called (again)."""
    @property
    def done(self) -> bool:
        """Whether the function was called for the last time, or is being called so."""
    @property
    def cancelled(self) -> bool:
        """Whether cancel() or the end of the VuThreadMaster took the work away."""
    def cancel(self) -> bool:
        """Take the work out of the loop; return whether it was active."""

class VuThreadMaster:
    """An event loop: timers, descriptors, soon-callbacks and the replies of store handles."""

    def __init__(self) -> None: ...
    @property
    def running(self) -> bool:
        """Whether run() or run_once() is under way."""
    def run(self) -> None:
        """Run the loop until stop()."""
    def run_once(self, timeout: Optional[float] = None) -> bool:
        """Wait for something to do, at most timeout seconds, run it; return whether anything ran."""
    def stop(self) -> None:
        """Make the run() or run_once() under way return when its turn is over."""
    def fileno(self) -> int:
        """A descriptor that is readable whenever run_once(0) has something to do."""
    def call_soon(self, func: Callable[..., object], /, *args: Any) -> Thread:
        """Call func(*args) in the next turn of the loop."""
    def add_timer(
        self, seconds: float, func: Callable[..., object], /, *args: Any, repeat: bool = False
    ) -> Thread:
        """Call func(*args) in so many seconds, once or at that interval."""
    def add_reader(
        self, fd: Union[int, _HasFileno], func: Callable[..., object], /, *args: Any
    ) -> Thread:
        """Call func(*args) whenever fd is readable."""
    def add_writer(
        self, fd: Union[int, _HasFileno], func: Callable[..., object], /, *args: Any
    ) -> Thread:
        """Call func(*args) whenever fd is writable."""
