"""vu_mom_common: PubSubMsg and the result classes.

The cases play the store's deliveries by hand and so need an interpreter of their own, in
which nothing has asked the real store for them yet. They are written for every interpreter
version; `python -m unittest cases_values` in common_support runs them without pytest.
"""

import pathlib
import re
import subprocess
import sys

import pytest

SUPPORT = pathlib.Path(__file__).parent / "common_support"
CASES = sorted(path.stem for path in SUPPORT.glob("cases_*.py"))


@pytest.mark.parametrize("cases", CASES)
def test_common(cases):
    child = subprocess.run(
        [sys.executable, "-B", "-m", "unittest", "-v", cases],
        cwd=SUPPORT,
        stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT,
        universal_newlines=True,
        timeout=300,
    )
    assert child.returncode == 0, child.stdout
    assert int(re.search(r"^Ran (\d+) tests", child.stdout, re.M).group(1)) > 0


def test_all_cases_are_found():
    assert CASES == [
        "cases_memory",
        "cases_messages",
        "cases_module",
        "cases_pubsubmsg",
        "cases_values",
    ]
