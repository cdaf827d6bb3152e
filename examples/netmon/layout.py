"""Where netmon's objects are in the store, and what happens to them: all that the two
applications have in common, besides netmon.proto."""

from enum import IntEnum

DB = 0

# Levels: how many key components must match. Every key here begins with the host.
ALL_OF_HOST = 1
ONE_INTERFACE = 2


class Event(IntEnum):
    """The type codes of the changes that netmon subscribes to."""

    EXPIRED = 0
    SET = 1
    INCR = 3
    HMSET = 4
    ENDED = 28
    DELETED = 29
