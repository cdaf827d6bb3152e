"""Words that a shell may complete with."""

from __future__ import annotations

import argparse
import shlex
from typing import Any, Callable, Iterable, List, Optional

from .errors import ToolError
from .protos import Types
from .values import BOOL, ENUM, REPEATED

BREAKS = "=:"  # what the shell takes for the end of a word, beside spaces


def typed_words(line: str) -> List[str]:
    """The words before the cursor; the last is the one that is being typed."""
    for closing in ("", "'", '"'):
        try:
            words = shlex.split(line + closing)
        except ValueError:
            continue
        return words if not line[-1:].isspace() or closing else words + [""]
    return [""]


def candidates(
    line: str,
    parser: argparse.ArgumentParser,
    commands: Any,
    types_of: Callable[[List[str]], Optional[Types]],
) -> Iterable[str]:
    """What the last word of a command line may become; each ends the word, unless it ends
    in "="."""
    words = typed_words(line)[1:] or [""]
    word = words[-1]
    named = [each for each in words[:-1] if each in commands]
    sub = commands[named[0]] if named else parser
    before = words[-2] if len(words) > 1 else ""
    if takes_value(sub, before) or takes_value(parser, before):
        found = []  # the shell completes names of files
    elif word.startswith("-"):
        found = [option for option in options_of(sub) if option.startswith(word)]
    elif not named:
        found = [name for name in commands if name.startswith(word)]
    else:
        behind = words[words.index(named[0]) + 1 :]
        try:
            types = types_of(words[:-1])
        except ToolError:
            types = None
        found = [] if types is None else in_command(types, named[0], behind)
    start = max(word.rfind(character) for character in BREAKS) + 1
    return [each[start:] for each in found]


def options_of(parser: argparse.ArgumentParser) -> List[str]:
    return [option for option in parser._option_string_actions if option.startswith("--")]


def takes_value(parser: argparse.ArgumentParser, word: str) -> bool:
    action = parser._option_string_actions.get(word)
    return action is not None and action.nargs is None


def in_command(types: Types, command: str, behind: List[str]) -> List[str]:
    word = behind[-1]
    given = [each for each in behind[:-1] if not each.startswith("-")]
    cls = None
    for each in given:
        try:
            cls = types.find(each)
            break
        except ToolError:
            continue
    if cls is None or command == "dump":
        short = [name.rpartition(".")[2] for name in types.named]
        names = list(types.named) + [name for name in short if short.count(name) == 1]
        return sorted(name for name in names if name.startswith(word))
    fields = cls.DESCRIPTOR.fields
    if command not in ("set", "publish"):
        fields = cls.DESCRIPTOR.key_fields
    name, equals, value = word.partition("=")
    if not equals:
        taken = {each.partition("=")[0] for each in given}
        return [
            field.name + "="
            for field in fields
            if field.name.startswith(word) and (field.name not in taken or field.repeated)
        ]
    found: List[str] = []
    for field in fields:
        known = types.field(field)
        if field.name == name and known.type == ENUM and known.label <= REPEATED:
            found = [each for each in types.enum_names(known) if each.startswith(value)]
        elif field.name == name and known.type == BOOL:
            found = [each for each in ("true", "false") if each.startswith(value)]
    return [name + "=" + each for each in found]
