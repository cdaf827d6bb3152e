"""vu-mom is typed throughout."""

import os
import pathlib
import subprocess

import vu_tool

PYTHON = pathlib.Path(vu_tool.__file__).parents[1]


def test_mypy(tmp_path):
    checked = subprocess.run(
        ["/usr/bin/mypy", "--strict", "--no-error-summary", "--cache-dir", str(tmp_path)]
        + ["-p", "vu_tool"],
        cwd=tmp_path,
        env=dict(os.environ, MYPYPATH=str(PYTHON)),
        capture_output=True,
        text=True,
        timeout=300,
    )
    assert (checked.returncode, checked.stdout + checked.stderr) == (0, "")
