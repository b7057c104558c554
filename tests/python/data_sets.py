"""Data sets, and how results are compared.

VOSTREL_LONG_SAMPLES=ON makes more and larger data sets.
"""

import os

import numpy as np

from vostrel._results import NAMES

LONG = os.environ.get("VOSTREL_LONG_SAMPLES", "").upper() in ("1", "ON", "TRUE")


def numbers(statistics):
    """All numbers of a PointStatistics."""
    return np.array(list(statistics.to_dict().values())[3:])


def report_numbers(statistics):
    """The numbers of a PointStatistics that the program's report has."""
    parts = (statistics.delta, statistics.norm)
    return np.array([getattr(part, name) for part in parts for name in NAMES])


def same_bits(first, second):
    """Whether two arrays of doubles are equal in every bit. NaNs may differ in sign and payload."""
    first, second = np.asarray(first, np.float64), np.asarray(second, np.float64)
    either_nan = np.isnan(first) | np.isnan(second)
    return np.array_equal(np.isnan(first), np.isnan(second)) and np.array_equal(
        first[~either_nan].view(np.uint64), second[~either_nan].view(np.uint64)
    )


def redshifts(rng, n):
    """References, and estimates that scatter by 0.03 (1 + z), every tenth by far more."""
    reference = rng.gamma(2.0, 0.4, n)
    scatter = np.where(rng.random(n) < 0.1, 0.5, 0.03)
    return reference, reference + (1 + reference) * scatter * rng.standard_normal(n)


def awkward_numbers(rng, n):
    """One of the shapes that numbers come in: repeats, infinities, zeros of both signs, ..."""
    shape = rng.integers(8)
    if shape == 0:
        return rng.standard_normal(n)
    if shape == 1:
        return rng.standard_cauchy(n)
    if shape == 2:
        return rng.integers(-3, 4, n) / 4
    if shape == 3:
        return np.full(n, rng.standard_normal())
    if shape == 4:
        return rng.choice([0.0, -0.0, 1.0, -1.0], n)
    if shape == 5:
        return rng.choice([np.inf, -np.inf, 0.5, 0.25, -1.0, 1e308, -1e308], n)
    if shape == 6:
        return rng.standard_normal(n) * 10.0 ** rng.integers(-300, 300, n)
    return np.sort(rng.random(n))


def data_set(rng, n):
    """Reference and estimate with n entries."""
    if rng.random() < 0.3:
        return redshifts(rng, n)
    reference = awkward_numbers(rng, n)
    if rng.random() < 0.3:
        with np.errstate(all="ignore"):
            return reference, np.nan_to_num(reference + awkward_numbers(rng, n), posinf=np.inf)
    return reference, awkward_numbers(rng, n)
