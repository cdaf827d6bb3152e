"""README quotes the files of examples/hello as they are."""

import pathlib

import pytest

ROOT = pathlib.Path(__file__).parents[2]


def fenced_blocks(text):
    """The contents of ``` blocks, with their language."""
    blocks = []
    for part in text.split("\n```")[1::2]:
        language, _, content = part.partition("\n")
        blocks.append((language, content + "\n"))
    return blocks


@pytest.mark.parametrize("name, language", [("hello.proto", "proto"), ("hello.py", "python")])
def test_readme_quotes(name, language):
    blocks = fenced_blocks((ROOT / "README.md").read_text(encoding="utf-8"))
    quoted = (ROOT / "examples" / "hello" / name).read_text(encoding="utf-8")
    assert blocks.count((language, quoted)) == 1


def test_the_application_is_as_short_as_readme_says():
    text = (ROOT / "examples" / "hello" / "hello.py").read_text(encoding="utf-8")
    assert len([line for line in text.splitlines() if line.strip()]) <= 20
