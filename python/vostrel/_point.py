"""All statistics of one set of objects."""

from __future__ import annotations

import math
from collections.abc import Sequence
from typing import Any

from vostrel import _core
from vostrel._inputs import Columns, NanPolicy, check_counts, prepare
from vostrel._options import Asked, Numbers, read_asked
from vostrel._results import (
    METRICS,
    QUANTILES,
    ROWS,
    LsstMetrics,
    PointStatistics,
    ResidualStatistics,
)


def point_statistics(
    reference: Any,
    estimate: Any,
    *,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    mask: Any | None = None,
    nan_policy: NanPolicy = "raise",
) -> PointStatistics:
    """Compute error statistics of estimates.

    Parameters
    ----------
    reference : array_like, shape (n,)
        Reference values such as spectroscopic redshifts. Dimensionless.
        Contiguous native float64 is read in place; other numbers are
        converted a few thousand at a time.
    estimate : array_like, shape (n,)
        Estimated values, in the order of `reference`.
    percentiles : float or array_like of float, optional
        Additional percentiles of each residual, from 0 to 100, such as
        ``(16, 84)``. A repeated one counts once.
    outliers : float or array_like of float, optional
        The bounds beyond which outliers are counted, 0 or more, such as
        ``(0.05, 0.2)``. A repeated one counts once.
    mask : array_like of bool, shape (n,), optional
        True leaves an object out. So does an entry that is masked in
        `reference` or `estimate` (numpy.ma, astropy's MaskedColumn, pandas NA).
    nan_policy : {"raise", "omit", "propagate"}
        What to do with objects that have NaN and are not masked: raise a
        ValueError, leave them out, or make every result NaN. Infinities are
        numbers.

    Returns
    -------
    PointStatistics
        The statistics of the residual, ``reference - estimate``, and of
        the normalized residual, which is divided by ``1 + reference``; and
        LSST's metrics.

    Raises
    ------
    ValueError
        If the lengths differ, an array is not one-dimensional, no objects
        are left, or there is NaN with ``nan_policy="raise"``; also if a
        percentile or a bound is out of its range.
    TypeError
        If an array doesn't hold real numbers, has a unit, or is lazy.

    Notes
    -----
    Sums run in the order of the objects, in double precision, and all numbers
    have the same bits as those of the program ``vostrel`` on the same values.
    The arrays are read two or three times and must not change during the call.

    Examples
    --------
    >>> import vostrel
    >>> s = vostrel.point_statistics([0.5, 1.0, 1.5, 2.0], [0.375, 1.125, 1.25, 2.5])
    >>> print(s)
    4 objects, 0 masked, 0 with NaN
                          delta  delta norm
    bias              -0.0625    -0.0114583
    sigma              0.286411   0.109662
    RMS                0.293151   0.110259
    MAD                0.1875     0.0916667
    NMAD               0.277987   0.135905
    MAD(Delta)         0.1875     0.08125
    outliers >0.15    50%        25%
    outliers >1sigma  25%        25%
    outliers >2sigma   0%         0%
    outliers >3sigma   0%         0%
    outliers >4sigma   0%         0%
    median             0          0.0104167
    sigma_68           0.255      0.104333
    sigma_IQR          0.277984   0.130498
    """
    asked = read_asked(percentiles, outliers)
    columns = prepare(nan_policy, mask, reference=reference, estimate=estimate)
    return statistics_of(columns, nan_policy, asked)


def statistics_of(
    columns: Columns, nan_policy: NanPolicy, asked: Asked = Asked()
) -> PointStatistics:
    """Return the statistics of columns that are read once: some streams can't be read again."""
    n, n_masked, n_nan, numbers = _core.point_statistics(
        columns.values, columns.masks, nan_policy == "omit", *asked
    )
    check_counts(nan_policy, n, n_masked, n_nan, columns)
    return made_of((n, n_masked, n_nan), numbers, asked)


def made_of(
    counts: tuple[int, int, int], numbers: Sequence[Sequence[float]] | None, asked: Asked
) -> PointStatistics:
    """Return the statistics from n, n_masked, n_nan and what the core found: None is NaN."""
    if numbers is None:
        nan = [math.nan] * (len(ROWS) + len(QUANTILES) + sum(map(len, asked)))
        numbers = nan, nan, nan[: len(METRICS)]
    delta, norm, metrics = numbers
    return PointStatistics(
        *counts,
        ResidualStatistics._of(delta, asked),
        ResidualStatistics._of(norm, asked),
        LsstMetrics(*counts, *metrics),
    )
