"""Lines of news above a table: redrawn on a terminal, plain lines everywhere else."""

import time
from typing import List, TextIO

CURSOR_UP = "\x1b[{}A"
ERASE_BELOW = "\x1b[J"


def amount(number: float) -> str:
    """Bytes, to three digits: "999 B", "1.23 kB"."""
    for unit in ("B", "kB", "MB", "GB", "TB", "PB"):
        if number < 999.5 or unit == "PB":
            break
        number /= 1000
    if unit == "B" or number >= 99.95:
        return f"{number:.0f} {unit}"
    return f"{number:.2f} {unit}" if number < 9.995 else f"{number:.1f} {unit}"


class Screen:
    def __init__(self, out: TextIO) -> None:
        self.out = out
        self.live = out.isatty()
        self.start = time.monotonic()
        self.table: List[str] = []

    def log(self, text: str) -> None:
        """News, which stays."""
        self.erase()
        self.write([self.stamp() + text])
        if self.live:
            self.write(self.table)

    def show(self, table: List[str]) -> None:
        """The table from now on. Off a terminal: the rows that are new."""
        if self.live:
            self.erase()
            self.write(table)
        else:
            self.write([self.stamp() + row for row in table if row not in self.table])
        self.table = table

    def stamp(self) -> str:
        return f"{time.monotonic() - self.start:6.1f} s  "

    def erase(self) -> None:
        if self.live and self.table:
            self.out.write(CURSOR_UP.format(len(self.table)) + ERASE_BELOW)

    def write(self, lines: List[str]) -> None:
        self.out.writelines(line + "\n" for line in lines)
        self.out.flush()
