"""Running medians and NMADs along the reference, with their confidence intervals."""

from __future__ import annotations

import math
from dataclasses import dataclass
from functools import partial

import numpy as np
from numpy.typing import NDArray

from vostrel import _core
from vostrel._binned import equal_counts
from vostrel._inputs import Columns
from vostrel._options import Asked
from vostrel._uncertainties import CONFIDENCE, by_formula
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
        Lower and upper ends of their confidence intervals. NaN if a bin has
        fewer than three objects.
    """

    reference: Floats
    counts: NDArray[np.int64]
    median: Floats
    median_band: Floats
    nmad: Floats
    nmad_band: Floats


def running(objects: Objects) -> Running:
    """Return the running statistics in bins of equal counts.

    The number of bins is half the square root of the number of objects, at
    least 1 and at most 100. Objects of equal reference are in one bin.

    Notes
    -----
    The interval of the NMAD is that of `vostrel.uncertainties`. The interval
    of the median goes from one residual to another, at the same ranks.
    """
    n = objects.reference.size
    columns = Columns([objects.reference, objects.estimate], [])
    edges = equal_counts(columns, n, min(100, max(1, int(math.sqrt(n) / 2))))
    bins = _core.ObjectsInBins(columns.values, columns.masks, edges.tolist())
    rows = []
    for i in range(len(edges) - 1):
        count = bins.count(i)
        if count == 0:  # equal values leave bins empty
            continue
        _, norm, _ = by_formula(count, Asked(), partial(bins.statistics, i), CONFIDENCE)
        reference, _, _ = bins.medians(i, [])
        median, nmad = norm.median, norm.nmad
        rows.append((
            reference, count, median.value, median.low, median.high,
            nmad.value, nmad.low, nmad.high,
        ))
    found = np.array(rows).T
    return Running(
        reference=found[0],
        counts=found[1].astype(np.int64),
        median=found[2],
        median_band=found[3:5],
        nmad=found[5],
        nmad_band=found[6:8],
    )
