"""vostrel.mpi: the bits of chunked_statistics for any number of processes, and no hang."""

import json
import os
import pathlib
import re
import shutil
import subprocess
import sys

import numpy as np
import pytest
import vostrel
from data_sets import LONG, numbers, redshifts, same_bits
from scale_sets import ASKED, SETS, columns_of, scale_sets

pytest.importorskip("mpi4py")
RANK = pathlib.Path(__file__).with_name("mpi_rank.py")


TIME_LIMIT = 1200 if LONG else 120  # seconds; a process that waits for ever fails its test


def start(processes, *arguments, script=RANK):
    """The finished run of these processes."""
    command = ["mpirun", "--oversubscribe", "-n", str(processes), sys.executable, script]
    command += arguments
    if os.geteuid() == 0:
        command.insert(1, "--allow-run-as-root")
    path = os.pathsep.join([str(RANK.parent), os.environ.get("PYTHONPATH", "")])
    return subprocess.run(
        [str(part) for part in command],
        env={**os.environ, "PYTHONPATH": path},
        capture_output=True,
        text=True,
        timeout=TIME_LIMIT,
    )


def mpirun(processes, *arguments, **options):
    """The lines that the processes print."""
    result = start(processes, *arguments, **options)
    assert result.returncode == 0, result.stderr
    return result.stdout.split("\n")[:-1]


pytestmark = pytest.mark.skipif(shutil.which("mpirun") is None, reason="needs mpirun")


def test_same_bits(rng):
    seed = int(rng.integers(2**32))
    data_sets = list(scale_sets(np.random.default_rng(seed), SETS))
    expected = [numbers(vostrel.chunked_statistics([columns], **ASKED)) for columns in data_sets]
    for processes in (1, 2, 3):
        lines = mpirun(processes, "numbers", seed, SETS)
        assert len(lines) == SETS
        for i, line in enumerate(lines):
            found = np.frombuffer(bytes.fromhex(line))
            assert same_bits(found, expected[i]), (processes, data_sets[i])


def test_same_bits_in_bins(rng):
    seed = int(rng.integers(2**32))
    columns = redshifts(np.random.default_rng(seed), 20_000)
    b = vostrel.chunked_binned_statistics([columns], bins=4, range=(0, 2), **ASKED)
    expected = columns_of(b)
    for processes in (1, 3):
        (line,) = mpirun(processes, "binned", seed)
        assert same_bits(np.frombuffer(bytes.fromhex(line)), expected)


@pytest.mark.parametrize("processes", [1, 2, 3, 4])
def test_an_error_of_one_process_ends_all_with_its_text(processes):
    lines = [json.loads(line) for line in mpirun(processes, "errors")]
    assert len(lines) == 3 * 8  # each in three passes
    for text, (*others, own) in lines:
        shared = f"RuntimeError: rank {processes - 1} failed: {text}"
        assert own == (shared if "Exit" in text else text)
        assert others == [shared] * (processes - 1)


def test_recipe(rng, tmp_path, monkeypatch):
    h5py = pytest.importorskip("h5py")
    monkeypatch.chdir(tmp_path)
    columns = redshifts(rng, 1000)
    for i in range(3):
        with h5py.File(f"part-{i}.hdf5", "w") as file:
            file["zspec"], file["zphot"] = (column[i::3] for column in columns)
    document = RANK.parents[2] / "docs" / "scale.md"
    (code,) = re.findall(r"```python\n(import glob.*?)```", document.read_text(), re.DOTALL)
    script = tmp_path / "evaluate.py"
    script.write_text(code)
    lines = mpirun(2, script=script)
    assert lines == str(vostrel.chunked_statistics([columns])).split("\n")


@pytest.mark.parametrize("processes", [1, 3])
def test_a_killed_process_ends_the_job(processes):
    result = start(processes, "killed")
    assert result.returncode != 0
    assert "signal 9" in result.stderr
