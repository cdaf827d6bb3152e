"""docs/messages.md: its file is compiled, its examples are run, its tables name what there is."""

import inspect
import os
import re
import subprocess
import sys
from typing import Any, Callable

import page
import pytest
import vu_message
import vu_well_known

PAGE = "messages.md"
TEXT = (page.ROOT / "docs" / PAGE).read_text(encoding="utf-8")


def test_examples(tmp_path, monkeypatch):
    (proto,) = [block for block in page.blocks(PAGE) if block.language == "proto"]
    (tmp_path / proto.name).write_text(proto.text)
    path = "%s:%s" % (page.build() / "bin", os.environ["PATH"])
    subprocess.run(
        ["protoc", "--vu_out=.", "-I.", proto.name],
        cwd=str(tmp_path),
        env=dict(os.environ, PATH=path),
        check=True,
    )
    monkeypatch.syspath_prepend(str(tmp_path))
    assert page.run_prompt(PAGE, {}) == 50
    assert sys.modules["plant_vu"].__file__ == str(tmp_path / "plant_vu.py")


def test_every_option_of_json_is_named():
    rows = re.findall(r"^\| `(\w+)(?:=(\w+))?` \|", TEXT, re.M)
    methods: tuple[Callable[..., Any], ...] = (
        vu_message.Message.ToJson, vu_message.Message.FromJson)
    for method in methods:
        for parameter in inspect.signature(method).parameters.values():
            if parameter.name in ("self", "cls"):
                continue
            required = parameter.default is inspect.Parameter.empty
            assert (parameter.name, "" if required else str(parameter.default)) in rows


def test_every_conversion_is_named():
    section = TEXT.split("## Well-known types")[1].split("\n## ")[0]
    for unit in ("Nanoseconds", "Microseconds", "Milliseconds", "Seconds"):
        section += " From" + unit
    named = set(re.findall(r"\w+", section))
    for name, cls in vars(vu_well_known).items():
        if not isinstance(cls, type) or name.startswith("_"):
            continue
        assert issubclass(cls, vu_message.Message)
        inherited = set(dir(vu_well_known.Empty))
        inherited |= {field.name for field in cls.DESCRIPTOR.fields}
        own = {
            each
            for each in dir(cls)
            if each not in inherited
            and not each.startswith("_")
            and not each.endswith("_FIELD_NUMBER")
        }
        assert own - named == set(), name


def test_the_depth_of_json():
    cls = vu_message.message_class("google.protobuf.DescriptorProto")

    def deep(levels):
        message = inner = cls()
        for _ in range(levels - 1):
            inner = inner.nested_type.add()
        return message

    assert "65 levels deep" in TEXT
    assert cls.FromJson(deep(65).ToJson()) == deep(65)
    with pytest.raises(vu_message.EncodeError, match="too deep"):
        deep(66).ToJson()
