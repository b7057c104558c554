"""Medians along the reference, and how well they are known."""

from __future__ import annotations

import math
from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from vostrel import _core
from vostrel.plot._objects import Objects

Floats = NDArray[np.float64]


@dataclass(frozen=True)
class Running:
    """Statistics of the normalized residual in k bins of the reference.

    Attributes
    ----------
    reference : ndarray, shape (k,)
        The median reference of each bin.
    counts : ndarray, shape (k,)
        Number of objects.
    median, nmad : ndarray, shape (k,)
        Median and NMAD.
    median_band, nmad_band : ndarray, shape (2, k)
        Lower and upper ends of their confidence intervals.
    """

    reference: Floats
    counts: NDArray[np.uint64]
    median: Floats
    median_band: Floats
    nmad: Floats
    nmad_band: Floats


def running(objects: Objects) -> Running:
    """Return the running statistics in bins of equal counts.

    Half the square root of the number of objects is the number of bins, 1 at
    least and 100 at most. Objects of equal reference are in one bin.

    Notes
    -----
    A median lies between the values of ranks a and n - 1 - a (counted from 0)
    with the probability that a number with the binomial distribution of n
    throws of a coin lies from a + 1 to n - 1 - a. a is the greatest rank for
    which that is 68 % or more (0 where no rank has it: of one or two objects).
    So the band needs no assumption on the distribution of the residuals.
    """
    n = objects.reference.size
    number = min(100, max(1, int(math.sqrt(n) / 2)))
    ranks = [i * n // number for i in range(number)] + [n - 1]
    edges = _core.order_values([objects.reference], [], n, ranks)  # as binned_statistics has them
    counts, rows = _core.medians_in_bins(objects.reference, objects.norm, edges.tolist())
    full = counts > 0  # equal values leave bins empty
    reference, median, low, high, nmad, nmad_low, nmad_high = rows[:, full]
    return Running(
        reference=reference,
        counts=counts[full],
        median=median,
        median_band=np.array([low, high]),
        nmad=nmad,
        nmad_band=np.array([nmad_low, nmad_high]),
    )
