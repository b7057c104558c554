"""The limits of axes and the width of bins. They follow the bulk of the data, not wild outliers."""

from __future__ import annotations

import math
from collections.abc import Iterable, Sequence
from dataclasses import dataclass

import numpy as np
from numpy.typing import NDArray

from vostrel import _core
from vostrel.plot._objects import Objects

Floats = NDArray[np.float64]
Limits = tuple[float, float]

#: The fixed outlier bound on the normalized residual.
BOUND = _core.OUTLIER_BOUND

#: A value is wild if it is more than this many interquartile ranges away from the quartiles.
FENCE = 8

#: Beyond this an axis would overflow.
LARGEST = 1e300

#: The standard deviation of normally distributed values over their interquartile range.
IQR_TO_SIGMA = 1 / 1.349

#: Standard deviations from the median at which the core of the residual ends.
CORE = 5

#: Counts are logarithmic if more than the share TAIL of the objects lies outside the core, and
#: there are at least ENOUGH objects: fewer don't need a scale of decades.
TAIL, ENOUGH = 0.01, 50

#: Fewer objects outside the core are not worth a wider histogram.
FEW = 10


@dataclass(frozen=True)
class Spread:
    """Quartiles of the normalized residual, and what lies far from them.

    Attributes
    ----------
    low, median, high : float
        The quartiles.
    n : int
        Number of objects.
    outside : float
        Share of objects, 0 to 1, more than five standard deviations away from
        the median, as estimated from the interquartile range.
    far : float
        The larger absolute value of the 0.5th and 99.5th percentile.
    """

    low: float
    median: float
    high: float
    n: int
    outside: float
    far: float

    @property
    def sigma(self) -> float:
        """The standard deviation as estimated from the interquartile range."""
        return IQR_TO_SIGMA * (self.high - self.low)

    @property
    def has_tail(self) -> bool:
        """Whether enough objects lie outside the core to be shown."""
        return self.n >= ENOUGH and self.outside > TAIL


def spread_of(norm: Floats) -> Spread:
    """Return the spread of the normalized residual."""
    tail, low, median, high, head = quantiles(norm, (0.005, 0.25, 0.5, 0.75, 0.995))
    reach = max(CORE * IQR_TO_SIGMA * (high - low), 1e-12)
    (inside,) = _core.count_in_bins(norm, [median - reach, median + reach])
    far = max(abs(tail), abs(head))
    return Spread(low, median, high, norm.size, 1 - int(inside) / norm.size, far)


def quantiles(values: Floats, shares: Sequence[float]) -> list[float]:
    """Return the values of the ranks nearest to these shares of n, 0 to 1."""
    ranks = [round(share * (values.size - 1)) for share in shares]
    found: list[float] = _core.order_values([values], [], values.size, ranks).tolist()
    return found


def robust_range(values: Floats) -> Limits:
    """Return the smallest and largest value, without the wild ones."""
    low, high = quantiles(values, (0.25, 0.75))
    # Values within the outlier bound are never wild, even where most values are the same.
    reach = max(FENCE * (high - low), BOUND * (1 + abs(low)))
    least, greatest = float(values.min()), float(values.max())
    if least < low - reach or greatest > high + reach:
        tame = values[(values >= low - reach) & (values <= high + reach)]
        least, greatest = float(tame.min()), float(tame.max())
    return max(-LARGEST, least), min(LARGEST, greatest)


def widened(limits: Limits, margin: float) -> Limits:
    """Return the limits with a margin. If they are nearly equal, return a range about them."""
    low, high = limits
    middle, half = low / 2 + high / 2, high / 2 - low / 2
    if half < 1e-4 * (1 + abs(middle)):
        half = 0.25 * (1 + abs(middle))
    return middle - (1 + margin) * half, middle + (1 + margin) * half


def reference_limits(objects: Objects) -> Limits:
    """Return the limits of an axis of references."""
    return widened(robust_range(objects.reference), _margin(objects))


def square_limits(objects: Objects, reference: Limits) -> Limits:
    """Return the limits of both axes of estimates against references.

    `reference` are those of the references.
    """
    estimate = widened(robust_range(objects.estimate), _margin(objects))
    return min(reference[0], estimate[0]), max(reference[1], estimate[1])


def _margin(objects: Objects) -> float:
    return 0.05 if objects.reference.size > 30 else 0.15  # few objects have large points


def residual_limit(spread: Spread, nmad: float, marks: Iterable[float]) -> float:
    """Return the half-width about zero that shows the core of the residual.

    It includes the marks, unless that makes it more than three times as wide:
    wild outliers can move a mark far away.
    """
    marks = [abs(mark) for mark in marks if math.isfinite(mark)]
    limit = abs(spread.median) + 6 * spread.sigma
    if math.isfinite(nmad):
        limit = max(limit, 1.15 * abs(nmad))
    most = 3 * limit
    for mark in marks:
        if limit < 1.15 * mark <= most:
            limit = 1.15 * mark
    if limit == 0:  # more than half of the estimates are exact
        limit = 1.15 * max((mark for mark in marks if mark < 1), default=0)
    return min(limit, LARGEST) or 0.1


def tail_limit(spread: Spread, limit: float) -> float:
    """Return the half-width of a histogram that shows the tail, up to five times the core's.

    A few outliers are no tail: a range that includes them would flatten the core.
    """
    if spread.outside * spread.n < FEW:
        return limit
    return max(limit, min(1.05 * spread.far, 5 * limit))


def histogram_bins(spread: Spread, n: int, limit: float, most: int = 199) -> int:
    """Return the number of bins between -limit and limit, which is odd: one lies about zero.

    The rule of Freedman and Diaconis (1981): bins are 2 IQR / n^(1/3) wide.
    There are 9 bins at least, and `most`, an odd number, at most.
    """
    width = 2 * (spread.high - spread.low) / n ** (1 / 3)
    number = 2 * limit / width if width > 0 else math.sqrt(n)
    return int(min(most, max(9, math.ceil(number)))) | 1
