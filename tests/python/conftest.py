"""Random numbers, and the results of the class UTILS.

VOSTREL names the program and VOSTREL_UTILS_RESULTS the program that computes with UTILS.
"""

import os
import struct
import subprocess

import numpy as np
import pytest


@pytest.fixture
def rng():
    """Random numbers. VOSTREL_TEST_SEED repeats a run."""
    seed = int(os.environ.get("VOSTREL_TEST_SEED") or np.random.SeedSequence().entropy % 2**32)
    print(f"VOSTREL_TEST_SEED={seed}")
    return np.random.default_rng(seed)


@pytest.fixture
def utils_results():
    """A function: all results of UTILS for each of some data sets."""

    def compute(data_sets):
        text = b"".join(
            struct.pack("=Q", len(reference)) + reference.tobytes() + estimate.tobytes()
            for reference, estimate in data_sets
        )
        result = subprocess.run(
            [os.environ["VOSTREL_UTILS_RESULTS"]], input=text, capture_output=True, check=True
        )
        return np.frombuffer(result.stdout).reshape(len(data_sets), -1)

    return compute
