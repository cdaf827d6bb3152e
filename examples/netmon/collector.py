"""The application that writes: it stores what the kernel counts, sample after sample."""

from typing import Any, Dict

import counters
from layout import DB, ONE_INTERFACE
from netmon_vu import Faults, Interface, Samples
from vu_global import VuGlobal
from vu_mom import VuMom
from vu_mom_common import IncrResult, PubSubMsg

# An interface lives for three samples, and for this many seconds on a machine that is so busy
# that samples come late.
SHORTEST_LIFE = 2.0

FAULT_TAGS = {"errors": Faults.ERRORS_FIELD_NUMBER, "drops": Faults.DROPS_FIELD_NUMBER}


class Collector(VuMom):
    def __init__(self, glb: VuGlobal, host: str, path: str, interval: float) -> None:
        super().__init__(glb)
        self.host = host
        self.path = path
        self.lifetime = max(3 * interval, SHORTEST_LIFE)
        self.samples = 0
        self.written: Dict[str, counters.Counters] = {}
        self.timer = glb.thread_master.add_timer(interval, self.sample, repeat=True)
        self.sample()

    def stop(self) -> None:
        self.timer.cancel()

    def sample(self) -> None:
        try:
            found = counters.read(self.path)
        except OSError:
            return  # what is not written again in time expires by itself
        for name, now in found.items():
            self.store(name, now)
        self.written = found
        # Counted after the interfaces are written: who sees it can read a complete sample.
        self.incr(DB, Samples(host=self.host), None)

    def store(self, name: str, now: counters.Counters) -> None:
        interface = Interface(
            host=self.host, name=name, rx_bytes=now.rx_bytes, tx_bytes=now.tx_bytes
        )
        self.set(DB, interface)
        # A lifetime, taken away by the next `set`: an interface that the kernel no longer
        # names, or whose collector has died, does not stay in the store for ever.
        self.pexpire(DB, interface, ONE_INTERFACE, self.lifetime, name)

        before = self.written.get(name)
        changed = [
            tag
            for field, tag in FAULT_TAGS.items()
            if before is None or getattr(before, field) != getattr(now, field)
        ]
        if changed:  # an empty list would write every field
            faults = Faults(host=self.host, name=name, errors=now.errors, drops=now.drops)
            self.hmset(DB, faults, changed)

    # The replies. Commands without one (`set`, `hmset`) need no method here.

    def on_incr_netmon_Samples(self, msg: PubSubMsg[IncrResult], p: Any) -> None:
        if msg.result is not None:
            self.samples = msg.result.value

    def on_pexpire_netmon_Interface(self, msg: PubSubMsg[None], name: str) -> None:
        if msg.status:
            print(f"no lifetime for {name}: {msg.error}")
