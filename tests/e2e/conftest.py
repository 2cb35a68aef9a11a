"""Fixtures of the end-to-end tests; README.md tells how to write one."""

import threading

import pytest

from lab import Lab, LabError, install

OUTCOME = pytest.StashKey()
JOIN_SECONDS = 10


@pytest.hookimpl(hookwrapper=True)
def pytest_runtest_makereport(item, call):
    report = (yield).get_result()
    if report.failed:
        item.stash[OUTCOME] = "failed"


@pytest.fixture(scope="session")
def whole_lab():
    """Outside a lab every test that needs one fails with the way to run it; none is skipped."""
    try:
        lab = Lab()
    except LabError as problem:
        pytest.fail(str(problem), pytrace=False)
    yield lab
    lab.close()
    others = [thread for thread in threading.enumerate() if thread is not threading.main_thread()]
    for thread in others:
        thread.join(JOIN_SECONDS)  # one that has just signed off is on its way out
    left = [thread.name for thread in others if thread.is_alive()]
    assert not left, f"threads of the lab still run: {left}"


@pytest.fixture
def lab(whole_lab, request):
    """The lab, as new: no scripts, no records, an empty folder on drive C:."""
    whole_lab.begin_test(request.node.name)
    yield whole_lab
    whole_lab.end_test(failed=request.node.stash.get(OUTCOME, None) == "failed")


@pytest.fixture
def tree(lab):
    """Version 1.0.0.0, installed with its launcher."""
    return install(lab)
