"""Message types from .proto files, compiled when the tool starts."""

from __future__ import annotations

import os
import shutil
import subprocess
import tempfile
from typing import Any, Dict, Iterator, List, Sequence, Type

import vu_message
from vu_message import Message

from .errors import ToolError

# Where vu/options.proto may be, seen from the directory of the program.
SHARED = ["../share", "../share/vu_mom", "../include"]


class Types:
    """The types of some .proto files, by full name, and what is known of their fields."""

    def __init__(self) -> None:
        self.named: Dict[str, Type[Message]] = {}  # of the files that were asked for
        self._fields: Dict[str, Any] = {}  # FieldDescriptorProto by full name
        self._enums: Dict[str, Any] = {}  # EnumDescriptorProto by full name with leading "."
        self._entries: Dict[str, Any] = {}  # DescriptorProto of the entries of a map, likewise

    def add(self, file: Any, is_asked_for: bool) -> None:
        package = "." + file.package if file.package else ""
        self._add_enums(package, file.enum_type)
        for message in file.message_type:
            self._add_message(package, message, is_asked_for)

    def _add_enums(self, scope: str, enums: Any) -> None:
        for enum in enums:
            self._enums[scope + "." + enum.name] = enum

    def _add_message(self, scope: str, message: Any, is_asked_for: bool) -> None:
        name = scope + "." + message.name
        if message.options.map_entry:
            self._entries[name] = message
            return
        if is_asked_for:
            self.named[name[1:]] = vu_message.message_class(name[1:])
        for field in message.field:
            self._fields[name[1:] + "." + field.name] = field
        self._add_enums(name, message.enum_type)
        for nested in message.nested_type:
            self._add_message(name, nested, is_asked_for)

    def find(self, name: str) -> Type[Message]:
        """A type by its full name, or by as much of its end as is unambiguous."""
        if name in self.named:
            return self.named[name]
        found = sorted(full for full in self.named if full.endswith("." + name))
        if not found:
            there = ", ".join(sorted(self.named)) or "none"
            raise ToolError("TYPE: no message type %r; there are: %s" % (name, there))
        if len(found) > 1:
            raise ToolError("TYPE: %r may be %s" % (name, " or ".join(found)))
        return self.named[found[0]]

    def field(self, descriptor: Any) -> Any:
        """The FieldDescriptorProto of a field of a message class."""
        return self._fields[descriptor.full_name]

    def entry(self, field: Any) -> Any:
        """The key and the value field of a map field; None: it is no map."""
        entry = self._entries.get(field.type_name)
        return None if entry is None else (entry.field[0], entry.field[1])

    def enum_names(self, field: Any) -> Dict[str, int]:
        """The values of the type of an enum field."""
        return {value.name: value.number for value in self._enums[field.type_name].value}


def split_set(data: bytes) -> Iterator[bytes]:
    """The serialized files of a serialized FileDescriptorSet, whose only field is number 1."""
    position = 0
    while position < len(data):
        position += 1
        size = shift = 0
        while True:
            byte = data[position]
            position += 1
            size |= (byte & 0x7F) << shift
            shift += 7
            if byte < 0x80:
                break
        yield data[position : position + size]
        position += size


def root_of(path: str, include: Sequence[str]) -> str:
    """The directory that a file is named from: a given one that it is in, or its own."""
    real = os.path.realpath(path)
    for directory in include:
        if real.startswith(os.path.realpath(directory) + os.sep):
            return directory
    return os.path.dirname(path) or "."


def compile_files(paths: Sequence[str], include: Sequence[str], program_dir: str) -> Types:
    """Raises ToolError with what protoc says."""
    for path in paths:
        if not os.path.isfile(path):
            raise ToolError("--proto: there is no file %r" % path)
    for directory in include:
        if not os.path.isdir(directory):
            raise ToolError("-I: there is no directory %r" % directory)
    protoc = shutil.which("protoc")
    if protoc is None:
        raise ToolError("protoc is not installed (Debian: protobuf-compiler)")
    roots = list(include)
    for path in paths:
        if root_of(path, include) not in roots:
            roots.append(root_of(path, include))
    for place in SHARED:
        directory = os.path.join(program_dir, place)
        if os.path.isfile(os.path.join(directory, "vu", "options.proto")):
            roots.append(directory)
    with tempfile.TemporaryDirectory(prefix="vu-mom-") as made:
        command = [protoc, "--include_imports", "--descriptor_set_out=" + made + "/set"]
        plugin = shutil.which("protoc-gen-vu", path=program_dir + os.pathsep + os.defpath)
        if plugin is not None:  # for its checks of keys and counters
            command += ["--plugin=protoc-gen-vu=" + plugin, "--vu_out=" + made]
        command += ["-I" + directory for directory in roots]
        command += ["google/protobuf/descriptor.proto", *paths]
        ran = subprocess.run(command, stdout=subprocess.PIPE, stderr=subprocess.STDOUT)
        if ran.returncode != 0:
            said = ran.stdout.decode(errors="replace").strip()
            raise ToolError("--proto: protoc refuses it:\n" + said)
        with open(made + "/set", "rb") as file:
            return types_of(file.read(), paths, roots)


def types_of(data: bytes, paths: Sequence[str], roots: Sequence[str]) -> Types:
    serialized: List[bytes] = list(split_set(data))
    for file in serialized:
        vu_message.add_file(file)
    parse = vu_message.message_class("google.protobuf.FileDescriptorProto").FromString
    asked_for = {
        os.path.relpath(os.path.realpath(path), os.path.realpath(root))
        for path in paths
        for root in roots
    }
    types = Types()
    for data in serialized:
        parsed: Any = parse(data)
        types.add(parsed, parsed.name in asked_for)
    return types
