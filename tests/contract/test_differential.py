"""Both engines on the same random commands; differential.py says how to run more of them."""

import os
import platform
from typing import Any

import pytest

import differential
import engines

SLOW = platform.machine().startswith("arm")  # a device, or an emulator
COMMANDS = int(os.environ.get("VU_DIFFERENTIAL_COMMANDS", "2000" if SLOW else "20000"))


@pytest.fixture(scope="module")
def both():
    made: list[Any] = [engines.EmbeddedEngine(), engines.ServerEngine()]
    yield made
    for engine in made:
        engine.stop()


@pytest.mark.parametrize("clock_runs", [False, True])
@pytest.mark.parametrize("seed", [1, 2])
def test_no_difference(both, seed, clock_runs):
    assert differential.run(both, COMMANDS // 4, seed, clock_runs) >= COMMANDS // 4


def test_a_difference_is_found(both, monkeypatch):
    """One reply of many, on one of the sides."""
    said = differential.said
    lengths = []

    def said_otherwise(msg, **how):
        if type(msg.result).__name__ == "LlenResult":
            lengths.append(msg)
            if len(lengths) == 20:
                return "otherwise"
        return said(msg, **how)

    monkeypatch.setattr(differential, "said", said_otherwise)
    with pytest.raises(differential.Difference, match="otherwise"):
        differential.run(both, 5000, 3)
