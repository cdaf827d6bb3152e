"""What the commands of VuMom are fuzzed with: clients, values by kind, rows of commands."""

import gc
import sys
from typing import Any, List

import hostile
import vu_global
import vu_mom

import cases


class Message:
    package_name = "demo"
    short_name = "Counter"

    def __init__(self, address):
        self.address = address

    def get_ptr(self):
        hostile.act()
        return self.address


class OddNames(Message):
    """Its names are looked up anew each time, and are not always text."""

    def __init__(self, package, short):
        Message.__init__(self, 4096)
        self.names = package, short

    @property
    def package_name(self):
        hostile.act()
        return self.names[0]

    @property
    def short_name(self):
        hostile.act()
        return self.names[1]


class OddClass(Message):
    @property  # type: ignore[misc]
    def __class__(self):
        hostile.act()
        if self.address < 0:
            raise ValueError("no class")
        return Message if self.address % 2 else 7


class Client(vu_mom.VuMom):
    """Has reply methods for demo.Counter, and for nothing else."""


def _reply_method(msg, p):
    hostile.act()


class _Reply:
    def __get__(self, instance, owner=None):
        return _reply_method


for row in cases.REPLYING:
    setattr(Client, row.prefix + "demo_Counter", _Reply())


class OddClient(Client):
    """Gives out its reply methods in its own way."""


def _getfunc(self):
    hostile.act()

    def getfunc(name):
        hostile.act()
        return _reply_method if name else None

    return getfunc


setattr(OddClient, "__getfunc", property(_getfunc))

GLOBAL = vu_global.VuGlobal(0x12345678)
CLIENTS = [Client(GLOBAL), OddClient(GLOBAL)]

NUMBERS: List[Any] = [0, 1, -1, 2, 5, 2**31 - 1, -(2**31), 2**31, 2**32 - 1, 2**32]
NUMBERS += [2**63 - 1, 2**63, -(2**63), 2**64 - 1, 2**64, True, 1.5, -0.0, 1e300, 1e-7]
NUMBERS += [2147483647.999999, float("inf"), float("nan"), hostile.Number(3), hostile.Number(2.5)]
MESSAGES = [Message(4096), Message(-(2**31)), Message(0), Message(2**63), Message("x")]
MESSAGES += [Message(hostile.Number(8)), Message(1.5), Message(None), OddNames("demo", "Counter")]
MESSAGES += [OddNames("", ""), OddNames(hostile.Text("demo"), hostile.Text("Counter"))]
MESSAGES += [OddNames(None, 1), OddNames("x" * 300, "y"), OddClass(-1), OddClass(1), OddClass(2)]
FUNCTIONS = [_reply_method, None, 7, hostile.Raising()]

# Names of methods with those of their parameters and the kind of each: "number", "message",
# "numbers", "messages", "functions", "args", "privdata".
KINDS = {"obj": "message", "pivot": "message", "privdata": "privdata", "objs": "messages"}
KINDS.update(funcs="functions", args="args", field_tags="numbers", fields="numbers")
KINDS.update(scores="numbers")
COMMANDS = [
    (row.name, tuple(row.names), tuple(KINDS.get(name, "number") for name in row.names))
    for row in cases.COMMANDS
]
WITH_CONTEXT = [bool(row.context) or row.name == "subscribe_field" for row in cases.COMMANDS]
POOLS = {"number": NUMBERS, "message": MESSAGES, "functions": FUNCTIONS}


def settle():
    """From now on the collector knows of what is made from now on, and of nothing else."""
    sys.stderr = None  # type: ignore[assignment]
    gc.disable()
    gc.collect()
    gc.freeze()
