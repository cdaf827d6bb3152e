"""Fixtures of the contract suite. It runs once per engine."""

import pathlib
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import engines  # noqa: E402
import store as harness  # noqa: E402


@pytest.fixture(scope="session", params=sorted(engines.ENGINES))
def engine(request):
    made = engines.ENGINES[request.param]()
    yield made
    made.stop()


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    outcome = yield
    item.failed = getattr(item, "failed", False) or outcome.get_result().failed


@pytest.fixture
def store(engine, request):
    fresh = harness.Store(engine)
    yield fresh
    if not request.node.failed:  # the traceback of a failed test holds on to everything
        fresh.finish()


@pytest.fixture
def client(store):
    return store.open()
