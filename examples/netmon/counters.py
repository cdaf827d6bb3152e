"""The kernel's interface counters, from /proc/net/dev."""

from typing import Dict, Iterable, NamedTuple

# Of the file's columns after the name, eight for each direction.
RX_BYTES, RX_ERRORS, RX_DROPS = 0, 2, 3
TX_BYTES, TX_ERRORS, TX_DROPS = 8, 10, 11
COLUMNS = 16

# No real counter comes near it, and the sum of two still fits into a uint64 field.
LIMIT = 2**63


class Counters(NamedTuple):
    """Totals of one interface since it came up."""

    rx_bytes: int
    tx_bytes: int
    errors: int
    drops: int


def read(path: str) -> Dict[str, Counters]:
    """The counters of every interface, by name. Raises OSError where there is no such file."""
    # Interface names may be any bytes; messages hold text.
    with open(path, encoding="utf-8", errors="backslashreplace") as file:
        return parse(file)


def parse(lines: Iterable[str]) -> Dict[str, Counters]:
    """Headings, and whatever else is no interface with its numbers, are passed over."""
    found = {}
    for line in lines:
        name, _, columns = line.rpartition(":")  # from the right: "eth0:1" is a name
        try:
            values = [int(column) for column in columns.split()]
        except ValueError:
            continue
        in_range = all(0 <= value < LIMIT for value in values)
        if name.strip() and len(values) >= COLUMNS and in_range:
            found[name.strip()] = Counters(
                rx_bytes=values[RX_BYTES],
                tx_bytes=values[TX_BYTES],
                errors=values[RX_ERRORS] + values[TX_ERRORS],
                drops=values[RX_DROPS] + values[TX_DROPS],
            )
    return found
