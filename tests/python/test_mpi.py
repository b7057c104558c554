"""vostrel.mpi: the bits of chunked_statistics for any number of processes, and no hang."""

import os
import pathlib
import shutil
import subprocess
import sys

import numpy as np
import pytest
import vostrel
from data_sets import numbers, same_bits
from scale_sets import SETS, scale_sets

pytest.importorskip("mpi4py")
RANK = pathlib.Path(__file__).with_name("mpi_rank.py")


def mpirun(processes, *arguments):
    """The lines that the processes print."""
    command = ["mpirun", "--oversubscribe", "-n", str(processes), sys.executable, RANK, *arguments]
    if os.geteuid() == 0:
        command.insert(1, "--allow-run-as-root")
    path = os.pathsep.join([str(RANK.parent), os.environ.get("PYTHONPATH", "")])
    result = subprocess.run(
        [str(part) for part in command],
        env={**os.environ, "PYTHONPATH": path},
        capture_output=True,
        text=True,
        timeout=1200,
    )
    assert result.returncode == 0, result.stderr
    return result.stdout.split("\n")[:-1]


pytestmark = pytest.mark.skipif(shutil.which("mpirun") is None, reason="needs mpirun")


def test_the_same_bits(rng):
    seed = int(rng.integers(2**32))
    data_sets = list(scale_sets(np.random.default_rng(seed), SETS))
    expected = [numbers(vostrel.chunked_statistics([columns])) for columns in data_sets]
    for processes in (1, 2, 3):
        lines = mpirun(processes, "numbers", seed, SETS)
        assert len(lines) == SETS
        for i, line in enumerate(lines):
            found = np.frombuffer(bytes.fromhex(line))
            assert same_bits(found, expected[i]), (processes, data_sets[i])


def test_an_error_of_one_process_ends_all():
    assert mpirun(3, "error") == ["the file is gone"] * 3
