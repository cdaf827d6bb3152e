"""What people read: tables, and one line per thing that happens."""

from __future__ import annotations

import json
import shlex
import shutil
import sys
from typing import Any, Dict, List, Sequence, Tuple

from vu_message import Message

from .protos import Types
from .records import HASH, SINGLE, ZSET, Record, key_names
from .values import to_plain

ABSENT = "-"
GAP = "  "


def printable(text: str) -> str:
    """On one line, and without what would change the terminal."""
    return "".join(c if c.isprintable() else c.encode("unicode_escape").decode() for c in text)


def cell(plain: Any) -> str:
    """A JSON value."""
    if plain is None:
        return ABSENT
    if isinstance(plain, str):
        return printable(plain)
    if isinstance(plain, bool):
        return str(plain).lower()
    if isinstance(plain, (dict, list)):
        return json.dumps(plain, ensure_ascii=False, separators=(",", ":"))
    return str(plain)


def is_number(text: str) -> bool:
    try:
        float(text)
    except ValueError:
        return text == ABSENT
    return True


def lines_of(headings: Sequence[str], rows: Sequence[Sequence[str]]) -> List[str]:
    """Columns as wide as they must be, those of numbers to the right."""
    columns = list(zip(headings, *rows))
    widths = [max(map(len, column)) for column in columns]
    to_right = [all(map(is_number, column[1:])) and len(column) > 1 for column in columns]
    lines = []
    for row in [headings, *rows]:
        cells = [
            text.rjust(width) if right else text.ljust(width)
            for text, width, right in zip(row, widths, to_right)
        ]
        lines.append(GAP.join(cells).rstrip())
    return lines


def show(lines: Sequence[str]) -> None:
    """Prints them, no wider than the terminal, if it is one."""
    width = shutil.get_terminal_size().columns if sys.stdout.isatty() else 0
    for line in lines:
        print(line if not width or len(line) <= width else line[: width - 1] + "…")
    sys.stdout.flush()


def kind_cell(record: Record, number: int) -> str:
    if record.kind == ZSET:
        return "%s %s" % (record.kind, record.scores[number])
    if record.kind in (SINGLE, HASH):
        return record.kind
    return "%s %d" % (record.kind, number)


def table(types: Types, records: Sequence[Record]) -> List[str]:
    """Objects of one type, a row for each value: the key, the kind where there are others than
    single values, and the fields that any of them has."""
    rows: List[Tuple[str, Dict[str, Any]]] = []
    for record in records:
        only = record.tags if record.kind == HASH else None
        for number, value in enumerate(record.values):
            rows.append((kind_cell(record, number), to_plain(types, value, only)))
    descriptor = records[0].cls.DESCRIPTOR
    keys = key_names(records[0].cls)
    used = {name for _, plain in rows for name in plain}
    others = [field.name for field in descriptor.fields if field.name in used]
    names = keys + [name for name in others if name not in keys]
    with_kind = any(record.kind != SINGLE for record in records)
    headings = [name.upper() for name in names]
    if with_kind:
        headings.insert(len(keys), "(KIND)")
    cells = []
    for kind, plain in rows:
        row = [cell(plain.get(name)) for name in names]
        if with_kind:
            row.insert(len(keys), kind)
        cells.append(row)
    return lines_of(headings or ["(NO FIELDS)"], cells if headings else [[""] for _ in cells])


def sheet(types: Types, record: Record) -> List[str]:
    """One object: a line per field, or a table of its elements."""
    if record.kind not in (SINGLE, HASH):
        return table(types, [record])
    only = record.tags if record.kind == HASH else None
    plain = to_plain(types, record.values[0], only)
    keys = key_names(record.cls)
    names = keys + [name for name in plain if name not in keys]
    width = max(map(len, names), default=0)
    return ["%s%s%s" % (name.ljust(width), GAP, cell(plain[name])) for name in names]


def words(types: Types, message: Message) -> str:
    """A message as it would be typed."""
    plain = to_plain(types, message).items()
    return " ".join("%s=%s" % (name, shlex.quote(cell(value))) for name, value in plain)
