"""The objects that can be drawn, and their statistics."""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

import numpy as np
from numpy.typing import NDArray

from vostrel._inputs import NanPolicy, check_counts, prepare
from vostrel._point import point_statistics
from vostrel._results import PointStatistics
from vostrel.plot._errors import NothingToDraw

Floats = NDArray[np.float64]


@dataclass(frozen=True)
class Objects:
    """Objects whose values and residuals are finite.

    Attributes
    ----------
    reference, estimate, norm : ndarray of float64, shape (n,)
        The values and the normalized residual.
    total : int
        The number of objects before any is left out.
    nans, infinite : int
        How many of them are left out because a value is NaN, or because a
        value or a residual is infinite.
    statistics : PointStatistics
        The statistics that the figure shows.
    """

    reference: Floats
    estimate: Floats
    norm: Floats
    total: int
    nans: int
    infinite: int
    statistics: PointStatistics


def objects_of(
    reference: Any,
    estimate: Any,
    statistics: PointStatistics | None = None,
    *,
    mask: Any = None,
    nan_policy: NanPolicy = "omit",
    name: str = "estimate",
) -> Objects:
    """Return the objects that can be drawn; compute their statistics unless the caller has.

    Errors call the estimates by their `name`.

    Raises
    ------
    ValueError, TypeError
        As for `vostrel.point_statistics`; also if no object is finite.
    """
    if not isinstance(statistics, (PointStatistics, type(None))):
        raise TypeError(
            "statistics must be what vostrel.point_statistics returns, not "
            f"{type(statistics).__name__}"
        )
    columns = prepare(nan_policy, mask, **{"reference": reference, name: estimate})
    values = [np.ascontiguousarray(array, dtype=np.float64) for array in columns.values]
    if columns.masks:
        kept = ~np.logical_or.reduce(columns.masks)
        values = [array[kept] for array in values]
    first, second = values
    total = first.size
    nans = infinite = 0
    with np.errstate(all="ignore"):
        norm = first - second
        norm /= 1 + first
    good = np.isfinite(norm)  # and so are the values that it is made of
    if not good.all():
        nans = int(np.count_nonzero(np.isnan(first) | np.isnan(second)))
        infinite = total - int(np.count_nonzero(good)) - nans
        first, second, norm = first[good], second[good], norm[good]
        check_counts(nan_policy, total, 0, nans, columns)
    del good
    if first.size == 0:
        raise NothingToDraw("there are no objects with finite values")
    if statistics is None and nan_policy == "propagate":  # the numbers are of all, NaN or not
        statistics = point_statistics(reference, estimate, mask=mask, nan_policy=nan_policy)
    elif statistics is None:
        statistics = point_statistics(first, second)
    return Objects(first, second, norm, total, nans, infinite, statistics)
