"""Standard errors and confidence intervals by formula."""

from __future__ import annotations

import math
from collections.abc import Callable, Sequence
from typing import Any

import numpy as np

from vostrel import _core
from vostrel._inputs import Columns, NanPolicy, check_counts, prepare
from vostrel._options import read_confidence
from vostrel._results import (
    NAMES,
    ResidualStatistics,
    Uncertain,
    UncertainResidualStatistics,
    Uncertainties,
)

#: The default confidence of intervals.
CONFIDENCE = 0.683

#: An interval of a fraction can't be trusted with fewer objects beyond the bound, or within it.
FEWEST_BEYOND = 10

#: The confidence of one standard deviation of a normal distribution to both sides.
ONE_SIGMA = math.erf(math.sqrt(0.5))


def uncertainties(
    reference: Any,
    estimate: Any,
    *,
    confidence: float = CONFIDENCE,
    mask: Any | None = None,
    nan_policy: NanPolicy = "raise",
) -> Uncertainties:
    """Judge estimates, with the errors of the statistics by formula.

    Parameters
    ----------
    reference, estimate : array_like, shape (n,)
        Reference and estimated values. Dimensionless.
    confidence : float
        The confidence of the intervals, between 0 and 1.
    mask : array_like of bool, shape (n,), optional
        True leaves an object out, as a masked entry does.
    nan_policy : {"raise", "omit", "propagate"}
        As in `point_statistics`.

    Returns
    -------
    Uncertainties
        Errors and intervals are NaN if there is no honest formula: for
        mad_delta, which depends on an estimated median, and for the outliers
        beyond multiples of the estimated sigma. Use `bootstrap` for those.

    Raises
    ------
    ValueError
        As for `point_statistics`; also if `confidence` is not between 0 and 1.
    TypeError
        As for `point_statistics`.

    See Also
    --------
    bootstrap : errors of all statistics.

    Notes
    -----
    The formulas assume that the objects are independent. Here q is the
    quantile of the standard normal distribution for the confidence, and
    moments have the divisor n.

    bias
        The error is sigma / sqrt(n), the interval bias +- q * error, by the
        central limit theorem [1]_.
    sigma
        The error is sqrt((m4 - sigma**4) / n) / (2 * sigma), where m4 is the
        fourth moment about the bias. This is the delta method, which doesn't
        assume normal residuals [2]_. The interval is symmetric in log(sigma).
    rms
        The same, with moments about zero.
    mad, nmad
        The interval goes from one order statistic of abs(r) to another. Their
        ranks contain the median with at least the confidence, by the binomial
        distribution with p = 1/2, whatever the distribution of the residuals
        [3]_. The error is half of the 68.27% interval.
    outliers_015
        Wilson's interval [4]_. The error is half of the 68.27% interval. Not
        reliable with fewer than ten objects beyond 0.15, or within.

    References
    ----------
    .. [1] M. G. Kendall and A. Stuart, "The Advanced Theory of Statistics",
       vol. 1, 3rd ed., 1969, sections 7.25 and 9.3.
    .. [2] H. Cramer, "Mathematical Methods of Statistics", 1946, sections
       27.4 and 28.4.
    .. [3] W. R. Thompson, "On confidence ranges for the median and other
       expectation distributions for populations of unknown distribution
       form", Annals of Mathematical Statistics 7, 122 (1936).
    .. [4] E. B. Wilson, "Probable inference, the law of succession, and
       statistical inference", Journal of the American Statistical
       Association 22, 209 (1927).

    Examples
    --------
    >>> import numpy as np
    >>> import vostrel
    >>> reference = np.linspace(0, 1, 101)
    >>> estimate = reference + 0.1 * np.sin(100 * reference)
    >>> u = vostrel.uncertainties(reference, estimate, confidence=0.95)
    >>> print(u.delta.rms)
    0.071 +0.005 -0.005
    """
    confidence = read_confidence(confidence)
    columns = prepare(nan_policy, mask, reference=reference, estimate=estimate)
    result = of_columns(columns, confidence, nan_policy)
    check_counts(nan_policy, result.n, result.n_masked, result.n_nan, columns)
    return result


def of_columns(columns: Columns, confidence: float, nan_policy: NanPolicy) -> Uncertainties:
    """Return the uncertainties of columns that are ready for the core: NaN for no objects."""
    omit = nan_policy == "omit"
    sample = _core.Sample(columns.values, columns.masks, omit)
    n, n_masked, n_nan = sample.n, sample.n_masked, sample.n_nan
    _, _, _, *values = _core.point_statistics(columns.values, columns.masks, omit)
    parts = by_formula(0 if n_nan and not omit else n, values, sample.spreads, confidence)
    return Uncertainties(n, n_masked, n_nan, confidence, "formula", *parts)


def by_formula(
    n: int,
    values: Sequence[Any],
    spreads: Callable[[list[int]], Sequence[Any]],
    confidence: float,
) -> tuple[UncertainResidualStatistics, UncertainResidualStatistics]:
    """Return the estimates of both residuals of n objects. They are NaN if n is 0.

    `values` has the statistics of each residual. `spreads` returns what
    `Sample.spreads` of the core does for the ranks it is given.
    """
    if n == 0:
        nothing = UncertainResidualStatistics(*[NO_ESTIMATE] * len(NAMES))
        return nothing, nothing
    wide, narrow = median_ranks(n, confidence), median_ranks(n, ONE_SIGMA)
    found = spreads([rank for ranks in (wide, narrow) if ranks for rank in ranks])
    delta, norm = (
        _of_residual(n, confidence, ResidualStatistics(*part), spread, bool(wide), bool(narrow))
        for part, spread in zip(values, found)
    )
    return delta, norm


NO_ESTIMATE = Uncertain(math.nan, math.nan, math.nan, math.nan)


def _of_residual(
    n: int,
    confidence: float,
    values: ResidualStatistics,
    spread: Any,
    has_wide: bool,
    has_narrow: bool,
) -> UncertainResidualStatistics:
    """Return the estimates of one residual."""
    second, fourth, second_about, fourth_about, absolute = spread
    q = normal_quantile(confidence)
    error = values.sigma / math.sqrt(n) if n > 1 else math.nan
    low, high = absolute[:2] if has_wide else (math.nan, math.nan)
    narrow = absolute[-2:] if has_narrow else (math.nan, math.nan)
    half = (narrow[1] - narrow[0]) / 2
    factor = _core.NMAD_FACTOR
    return UncertainResidualStatistics(
        bias=Uncertain(
            values.bias, error, values.bias - q * error, values.bias + q * error, "normal"
        ),
        sigma=_root(values.sigma, second_about, fourth_about, n, q),
        rms=_root(values.rms, second, fourth, n, q),
        mad=Uncertain(values.mad, half, low, high, "ranks"),
        nmad=Uncertain(values.nmad, factor * half, factor * low, factor * high, "ranks"),
        mad_delta=_without(values.mad_delta),
        outliers_015=_wilson(values.outliers_015, n, q),
        outliers_1sigma=_without(values.outliers_1sigma),
        outliers_2sigma=_without(values.outliers_2sigma),
        outliers_3sigma=_without(values.outliers_3sigma),
        outliers_4sigma=_without(values.outliers_4sigma),
    )


def _without(value: float) -> Uncertain:
    return Uncertain(value, math.nan, math.nan, math.nan)


def _root(value: float, second: float, fourth: float, n: int, q: float) -> Uncertain:
    """Return the estimate of the root of a second moment, by the delta method."""
    if n < 2 or not value > 0:
        return _without(value)
    error = math.sqrt(max(fourth - second * second, 0.0) / n) / (2 * value)
    stretch = math.exp(q * error / value)
    return Uncertain(value, error, value / stretch, value * stretch, "log")


def _wilson(percentage: float, n: int, q: float) -> Uncertain:
    """Return the estimate of a percentage, by Wilson's interval."""
    low, high = wilson(percentage / 100, n, 1)
    ends = wilson(percentage / 100, n, q)
    return Uncertain(percentage, (high - low) / 2, *ends, "wilson", has_many(percentage, n))


def has_many(percentage: float, n: int) -> bool:
    """Return whether enough of n objects are beyond a bound, and within it, to trust an interval.

    With fewer, a fraction takes few values, and no interval of 95% holds for 95% of samples.
    """
    beyond = percentage / 100 * n
    return min(beyond, n - beyond) > FEWEST_BEYOND - 0.5


def wilson(p: float, n: float, q: float) -> tuple[float, float]:
    """Return Wilson's interval of a fraction p of n objects, in percent."""
    scale = 1 + q * q / n
    middle = (p + q * q / (2 * n)) / scale
    half = q * math.sqrt(p * (1 - p) / n + q * q / (4 * n * n)) / scale
    return 100 * max(middle - half, 0), 100 * min(middle + half, 1)


def normal_quantile(confidence: float) -> float:
    """Return the half width of a central interval of the standard normal distribution."""
    from statistics import NormalDist  # imported here: that takes longer than importing vostrel

    return NormalDist().inv_cdf((1 + confidence) / 2)


def median_ranks(n: int, confidence: float) -> tuple[int, int] | None:
    """Return the ranks, from 0 to n - 1, of the ends of the median's interval.

    They are the narrowest symmetric pair that contains the median with at
    least the confidence, or None if even the smallest and the largest value
    don't.
    """
    # Of n values, k are below the median with probability binomial(n, k) / 2^n. The terms are
    # computed from their ratios, from the middle outwards, as far as they matter.
    middle = n // 2
    steps = min(middle, 10 * math.isqrt(n) + 40)
    below = np.arange(middle, middle - steps, -1, dtype=np.float64)
    terms = np.cumprod(np.concatenate([[1.0], below / (n - below + 1)]))  # of k = middle, ...
    # Of an odd n, two terms are in the middle; of an even n, one.
    total = 2 * terms.sum() - (0.0 if n % 2 else 1.0)
    tails = np.cumsum(terms[::-1])[::-1] / total  # of at most k values below the median
    allowed = np.nonzero(tails <= (1 - confidence) / 2 * (1 + 1e-12))[0]
    if len(allowed) == 0:
        return None
    low = middle - int(allowed[0])
    return low, n - 1 - low
