"""Runs of the built programs in scratch folders.

VOSTREL names the program, VOSTREL_PLAIN the plain program. Fixtures: `vostrel` is the program in an
empty folder, `plain` is the plain program in another, and `both` runs and compares the two.
"""

import os
import pathlib
import random
import shutil
import tempfile

import pytest
from support.programs import LONG_LINE, Both, Program

NOBODY = 65534


@pytest.fixture
def scratch():
    """An empty folder that any user may look into, in memory where there is room."""
    memory = pathlib.Path("/dev/shm")
    room = os.access(memory, os.W_OK) and shutil.disk_usage(memory).free > 6 * LONG_LINE + (1 << 30)
    folder = pathlib.Path(tempfile.mkdtemp(prefix="vostrel-test-", dir=memory if room else None))
    folder.chmod(0o755)
    yield folder
    for path in folder.rglob("*"):
        if path.is_dir() and not path.is_symlink():
            path.chmod(0o755)
    shutil.rmtree(folder)


def program(variable, scratch, name):
    if variable not in os.environ:
        pytest.fail(f"{variable} must name the program to test")
    # A copy that a user without rights can run, wherever it was built.
    path = scratch / f"{name}-program"
    shutil.copy(os.environ[variable], path)
    path.chmod(0o755)
    folder = scratch / name
    folder.mkdir()
    folder.chmod(0o777)
    return Program(str(path), folder)


@pytest.fixture
def vostrel(scratch):
    return program("VOSTREL", scratch, "vostrel")


@pytest.fixture
def plain(scratch):
    return program("VOSTREL_PLAIN", scratch, "plain")


@pytest.fixture
def both(vostrel, plain):
    return Both(vostrel, plain)


@pytest.fixture
def without_rights():
    """Options for a run that obeys file permissions. Root would not."""
    return {"user": NOBODY, "group": NOBODY, "extra_groups": []} if os.geteuid() == 0 else {}


@pytest.fixture
def chance():
    """A source of random numbers. Prints its seed; VOSTREL_TEST_SEED repeats a run."""
    seed = int(os.environ.get("VOSTREL_TEST_SEED") or random.SystemRandom().getrandbits(32))
    print(f"VOSTREL_TEST_SEED={seed}")
    return random.Random(seed)
