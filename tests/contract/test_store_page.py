"""docs/store.md does what it says: its examples run, in order, as one program."""

import doctest
import pathlib
import re

HERE = pathlib.Path(__file__).parent
PAGE = HERE.parent.parent / "docs" / "store.md"


def blocks(language):
    """The fenced blocks of a language: line number in the page and text."""
    text = PAGE.read_text(encoding="utf-8")
    for match in re.finditer(r"^```%s\n(.*?)^```$" % language, text, re.M | re.S):
        yield text.count("\n", 0, match.start(1)), match.group(1)


def test_the_examples():
    parser = doctest.DocTestParser()
    runner = doctest.DocTestRunner(optionflags=doctest.REPORT_ONLY_FIRST_FAILURE)
    program = {}
    report = []
    for line, text in blocks("python"):
        part = parser.get_doctest(text, program, "store.md", str(PAGE), line)
        runner.run(part, out=report.append, clear_globs=False)
        program = part.globs
    assert runner.failures == 0, "".join(report)
    assert runner.tries > 100


def test_the_messages_are_those_that_are_shown():
    [(_, shown)] = blocks("proto")
    compiled = (HERE / "store_page.proto").read_text(encoding="utf-8")
    assert compiled.endswith("\n" + shown)


def test_every_command_is_explained():
    import store as harness

    text = PAGE.read_text(encoding="utf-8")
    assert [name for name in harness.COMMANDS if "`%s`" % name not in text] == []
