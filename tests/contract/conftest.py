"""Fixtures of the contract suite. It runs once per engine; on a cluster only that part in which a
cluster differs from a server, unless VU_CONTRACT_ON_CLUSTER is set to "all"."""

import os
import pathlib
import platform
import sys

import pytest

sys.path.insert(0, str(pathlib.Path(__file__).parent))

import engines  # noqa: E402
import store as harness  # noqa: E402


# Commands on a level, scans and subscriptions go to several servers, and replies come from them.
ON_CLUSTER = {
    "test_delivery.py",
    "test_in_a_row.py",
    "test_levels.py",
    "test_scans.py",
    "test_subscriptions.py",
}
ALL_ON_CLUSTER = os.environ.get("VU_CONTRACT_ON_CLUSTER") == "all"
SLOW = platform.machine().startswith("arm")  # a device, or an emulator


def is_wanted(item):
    parameters = item.callspec.params if hasattr(item, "callspec") else {}
    if parameters.get("engine") != "cluster" or ALL_ON_CLUSTER:
        return True
    return not SLOW and item.path.name in ON_CLUSTER


def pytest_collection_modifyitems(config, items):
    left_out = [item for item in items if not is_wanted(item)]
    config.hook.pytest_deselected(items=left_out)
    items[:] = [item for item in items if is_wanted(item)]


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
