"""A store on a redis-server that a test may mistreat, and clients that count what they get."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))
sys.path.insert(0, str(pathlib.Path(__file__).parents[1] / "support"))

import redis_server  # noqa: E402
from clients import Clients  # noqa: E402


@pytest.fixture
def server():
    """Keeps what it was told, even where it is killed."""
    with redis_server.RedisServer("--appendonly", "yes", "--appendfsync", "always") as started:
        yield started


@pytest.fixture
def clients():
    made = Clients()
    yield made
    made.finish()
