"""The application that watches: it knows nothing of the kernel, only what is in the store."""

from typing import Any, Callable, Dict, NamedTuple, Optional, Tuple

from layout import ALL_OF_HOST, DB, Event
from netmon_vu import Alarm, Busiest, Faults, Interface, Samples
from screen import Screen, amount
from vu_global import VuGlobal
from vu_mom import VuMom
from vu_mom_common import HashResult, LrangeResult, PubSubMsg, ZrangeResult

KEPT_ALARMS = 5
SHOWN_INTERFACES = 10

HEADING = f"{'interface':<15} {'receiving':>12} {'sending':>12} {'received':>10} {'sent':>10}"


class Traffic(NamedTuple):
    """One interface as it was last seen: totals in bytes, rates in bytes per second."""

    time: float
    rx_bytes: int
    tx_bytes: int
    rx_rate: float = 0.0
    tx_rate: float = 0.0

    def row(self, name: str) -> str:
        return (
            f"{name:<15} {amount(self.rx_rate) + '/s':>12} {amount(self.tx_rate) + '/s':>12}"
            f" {amount(self.rx_bytes):>10} {amount(self.tx_bytes):>10}"
        )


def rate(before: int, now: int, seconds: float) -> float:
    """Per second; 0 where counters were reset, or no time has passed."""
    return (now - before) / seconds if now > before and seconds > 0 else 0.0


def name_of(msg: PubSubMsg[Any]) -> str:
    """The interface that an event is about: its key is the host and the name."""
    return str(msg.key[1])


class Monitor(VuMom):
    def __init__(self, glb: VuGlobal, host: str, screen: Screen) -> None:
        super().__init__(glb)
        self.host = host
        self.screen = screen
        self.traffic: Dict[str, Traffic] = {}
        self.faults: Dict[Tuple[str, str], int] = {}
        self.alarms = 0
        self.done: Callable[[], object] = lambda: None

        # In a store that others share, the alarms and rates of an earlier run may be left.
        self.delete(DB, Alarm(host=host))
        self.delete(DB, Busiest(host=host))

        # Every interface of the host, and the counter that closes a sample.
        self.subscribe(DB, Interface(host=host), ALL_OF_HOST, None)
        self.subscribe(DB, Samples(host=host), ALL_OF_HOST, None)
        # Two single fields of every hash; each has a function and an argument of its own.
        self.subscribe_field(
            DB,
            Faults(host=host),
            ALL_OF_HOST,
            [Faults.ERRORS_FIELD_NUMBER, Faults.DROPS_FIELD_NUMBER],
            [self.on_fault, self.on_fault],
            ["errors", "drops"],
        )

    def finish(self, done: Callable[[], object]) -> None:
        """Show what has been told until now and what is in the store, then call `done`."""
        self.done = done
        self.unsubscribe(DB, Interface(host=self.host), ALL_OF_HOST)
        self.unsubscribe_field(
            DB,
            Faults(host=self.host),
            ALL_OF_HOST,
            [Faults.ERRORS_FIELD_NUMBER, Faults.DROPS_FIELD_NUMBER],
        )
        self.unsubscribe(DB, Samples(host=self.host), ALL_OF_HOST)

    def failed(self, msg: PubSubMsg[Any]) -> bool:
        """Whether there is nothing but an error, as when the server of the store is away."""
        if msg.status:
            self.screen.log(msg.error)
        return msg.status != 0

    # What changes. The event carries the new value: nothing has to be read back.

    def on_subscribe_netmon_Interface(self, msg: PubSubMsg[Interface], p: Any) -> None:
        if msg.type_code == Event.ENDED or self.failed(msg):
            return
        if msg.type_code == Event.SET:
            self.update(msg.result.name, msg.result, msg.time)
        elif msg.type_code in (Event.EXPIRED, Event.DELETED):
            self.forget(name_of(msg))

    def on_subscribe_netmon_Samples(self, msg: PubSubMsg[Samples], p: Any) -> None:
        if msg.type_code == Event.INCR:  # a sample is complete: show it, the busiest first
            self.zrange(DB, Busiest(host=self.host), -SHOWN_INTERFACES, -1, msg.result.taken)
        elif msg.type_code == Event.ENDED and msg.status == 0:
            # Replies come in the order of their commands: these two come after every table.
            self.get(DB, Samples(host=self.host), None)
            self.lrange(DB, Alarm(host=self.host), 0, -1, None)

    def on_fault(self, msg: PubSubMsg[HashResult[Faults]], field: str) -> None:
        if msg.type_code != Event.HMSET:
            return
        name = name_of(msg)
        now = getattr(msg.result.obj, field)
        before = self.faults.get((name, field), now)
        self.faults[name, field] = now
        if now > before:
            self.alarm(f"{name}: {now - before} {field}")

    def update(self, name: str, now: Interface, time: float) -> None:
        before = self.traffic.get(name)
        if before is None:
            self.screen.log(f"new: {name}")
            before = Traffic(time, now.rx_bytes, now.tx_bytes)
        seconds = time - before.time
        traffic = Traffic(
            time,
            now.rx_bytes,
            now.tx_bytes,
            rate(before.rx_bytes, now.rx_bytes, seconds),
            rate(before.tx_bytes, now.tx_bytes, seconds),
        )
        self.traffic[name] = traffic
        # A member that is there already moves to its new score.
        busiest = Busiest(host=self.host, name=name)
        self.zadd(DB, [traffic.rx_rate + traffic.tx_rate], [busiest])

    def forget(self, name: str) -> None:
        self.screen.log(f"gone: {name}")
        self.traffic.pop(name, None)
        self.zrem(DB, [Busiest(host=self.host, name=name)])

    def alarm(self, text: str) -> None:
        self.screen.log(f"ALARM {text}")
        self.rpush(DB, Alarm(host=self.host, text=text))
        self.alarms += 1
        if self.alarms > KEPT_ALARMS:
            self.lpop(DB, Alarm(host=self.host), None)

    # Replies.

    def on_zrange_netmon_Busiest(self, msg: PubSubMsg[ZrangeResult[Busiest]], taken: int) -> None:
        if self.failed(msg):
            return
        names = [member.name for member, _ in reversed(msg.result)]
        rows = [self.traffic[name].row(name) for name in names if name in self.traffic]
        self.screen.show([HEADING] + rows)

    def on_lpop_netmon_Alarm(self, msg: PubSubMsg[Alarm], p: Any) -> None:
        pass  # the oldest; it was shown when it was new

    def on_get_netmon_Samples(self, msg: PubSubMsg[Optional[Samples]], p: Any) -> None:
        if not self.failed(msg):
            self.screen.log(f"{msg.result.taken if msg.result else 0} samples")

    def on_lrange_netmon_Alarm(self, msg: PubSubMsg[LrangeResult[Alarm]], p: Any) -> None:
        if not self.failed(msg):
            self.screen.log(f"last alarms: {', '.join(a.text for a in msg.result) or 'none'}")
        self.done()
