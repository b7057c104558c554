"""Where the helpers of tests/python are, random numbers, and an empty folder for each test."""

import os
import pathlib
import sys

import numpy as np
import pytest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "python"))


@pytest.fixture
def rng():
    """Random numbers. VOSTREL_TEST_SEED repeats a run."""
    seed = int(os.environ.get("VOSTREL_TEST_SEED") or np.random.SeedSequence().entropy % 2**32)
    print(f"VOSTREL_TEST_SEED={seed}")
    return np.random.default_rng(seed)


@pytest.fixture(autouse=True)
def folder(tmp_path, monkeypatch):
    """Run every test in an empty folder of its own."""
    monkeypatch.chdir(tmp_path)
    return tmp_path
