"""Standard errors and confidence intervals by formula."""

from __future__ import annotations

import math
from collections.abc import Callable, Iterator, Sequence
from typing import TYPE_CHECKING, Any

import numpy as np

from vostrel import _core
from vostrel._inputs import Columns, NanPolicy, check_counts, prepare
from vostrel._options import Asked, Numbers, read_asked, read_confidence
from vostrel._results import (
    METRICS,
    QUANTILES,
    ROWS,
    ResidualStatistics,
    Uncertain,
    UncertainLsstMetrics,
    UncertainResidualStatistics,
    Uncertainties,
)

if TYPE_CHECKING:  # importing the package must be quick
    from numpy.typing import NDArray

#: The default confidence of intervals.
CONFIDENCE = 0.683

#: An interval of a fraction can't be trusted with fewer objects beyond the bound, or within it.
FEWEST_BEYOND = 10

#: The error of sigma or RMS can't be trusted if it is a larger part of the value: then few objects
#: make up the fourth moment. Measured by bench/coverage.
LARGEST_ERROR = 0.1

#: The confidence of one standard deviation of a normal distribution to both sides.
ONE_SIGMA = math.erf(math.sqrt(0.5))


def uncertainties(
    reference: Any,
    estimate: Any,
    *,
    confidence: float = CONFIDENCE,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    mask: Any | None = None,
    nan_policy: NanPolicy = "raise",
) -> Uncertainties:
    """Compute error statistics of estimates, and their uncertainties by formula.

    Parameters
    ----------
    reference, estimate : array_like, shape (n,)
        Reference and estimated values. Dimensionless.
    confidence : float
        The confidence of the intervals, between 0 and 1.
    percentiles, outliers : float or array_like of float, optional
        As in `point_statistics`.
    mask : array_like of bool, shape (n,), optional
        True leaves an object out, as a masked entry does.
    nan_policy : {"raise", "omit", "propagate"}
        As in `point_statistics`.

    Returns
    -------
    Uncertainties
        Errors and intervals are NaN if no reliable closed form exists: for
        mad_delta, which depends on an estimated median, for the outliers
        beyond multiples of the estimated sigma, for sigma_68, for sigma_iqr,
        and for LSST's metrics except the bias. Use `bootstrap` for those.

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
        Not reliable if the error is a tenth of sigma or more.
    rms
        The same, with moments about zero.
    mad, nmad
        The interval goes from one order statistic of abs(r) to another. Their
        ranks contain the median with at least the confidence, by the binomial
        distribution with p = 1/2, for any distribution of the residuals
        [3]_. The error is half of the 68.27% interval.
    median, percentiles
        The same for r, with the p of the percentile. The percentiles 0 and
        100 have no interval, nor have others near them of few objects. LSST's
        bias is the median with the other sign, and has its interval.
    outliers_015, outliers
        Wilson's interval [4]_. The error is half of the 68.27% interval. Not
        reliable with fewer than ten objects beyond the bound, or within.

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
    asked = read_asked(percentiles, outliers)
    columns = prepare(nan_policy, mask, reference=reference, estimate=estimate)
    result = of_columns(columns, confidence, nan_policy, asked)
    check_counts(nan_policy, result.n, result.n_masked, result.n_nan, columns)
    return result


def of_columns(
    columns: Columns, confidence: float, nan_policy: NanPolicy, asked: Asked = Asked()
) -> Uncertainties:
    """Return the uncertainties of columns that are ready for the core: NaN for no objects."""
    omit = nan_policy == "omit"
    sample = _core.Sample(columns.values, columns.masks, omit)
    n, n_masked, n_nan = sample.n, sample.n_masked, sample.n_nan
    delta, norm, lsst = by_formula(
        0 if n_nan and not omit else n, asked, sample.statistics, confidence
    )
    return Uncertainties(n, n_masked, n_nan, confidence, "formula", delta, norm, lsst=lsst)


def by_formula(
    n: int, asked: Asked, statistics: Callable[..., Sequence[Any]], confidence: float
) -> tuple[UncertainResidualStatistics, UncertainResidualStatistics, UncertainLsstMetrics]:
    """Return the estimates of both residuals of n objects, and LSST's. They are NaN if n is 0.

    `statistics` is `Sample.statistics` of the core, or a function like it.
    """
    if n == 0:
        count = len(ROWS) + len(QUANTILES) + sum(map(len, asked))
        nothing = UncertainResidualStatistics._of([NO_ESTIMATE] * count, asked)
        return nothing, nothing, UncertainLsstMetrics(*[NO_ESTIMATE] * len(METRICS))
    ranks = [
        quantile_ranks(n, percent / 100, of)
        for percent in (50, *asked.percentiles)
        for of in (confidence, ONE_SIGMA)
    ]
    absolute, values = (
        [rank for pair in pairs if pair for rank in pair] for pairs in (ranks[:2], ranks)
    )
    delta, norm, metrics, *spreads = statistics(*asked, absolute, values)
    first, second = (
        _of_residual(n, confidence, ResidualStatistics._of(part, asked), spread, ranks)
        for part, spread in zip((delta, norm), spreads)
    )
    return first, second, _lsst(metrics, second.median)


def _lsst(metrics: Sequence[float], median: Uncertain) -> UncertainLsstMetrics:
    """Return the estimates of LSST's metrics. Their bias is the median with the other sign."""
    bias, *others = metrics
    return UncertainLsstMetrics(
        Uncertain(bias, median.error, -median.high, -median.low, median.method),
        *map(_without, others),
    )


NO_ESTIMATE = Uncertain(math.nan, math.nan, math.nan, math.nan)

#: The ranks of the ends of an interval, or None if there are none.
Ranks = tuple[int, int] | None


def _of_residual(
    n: int,
    confidence: float,
    values: ResidualStatistics,
    spread: Any,
    ranks: Sequence[Ranks],
) -> UncertainResidualStatistics:
    """Return the estimates of one residual.

    `ranks` are those of the median and of the percentiles, of the wanted
    confidence and of one sigma.
    """
    second, fourth, second_about, fourth_about, absolute, ordered = spread
    q = normal_quantile(confidence)
    error = values.sigma / math.sqrt(n) if n > 1 else math.nan
    ((half, low, high),) = _of_ranks(ranks[:2], absolute)
    factor = _core.NMAD_FACTOR
    median, *percentiles = (
        Uncertain(value, *ends, "ranks")
        for value, ends in zip(
            (values.median, *values.percentiles.values()), _of_ranks(ranks, ordered)
        )
    )
    known = {
        "bias": Uncertain(
            values.bias, error, values.bias - q * error, values.bias + q * error, "normal"
        ),
        "sigma": _root(values.sigma, second_about, fourth_about, n, q),
        "rms": _root(values.rms, second, fourth, n, q),
        "mad": Uncertain(values.mad, half, low, high, "ranks"),
        "nmad": Uncertain(values.nmad, factor * half, factor * low, factor * high, "ranks"),
        "outliers_015": _wilson(values.outliers_015, n, q),
        "median": median,
    }
    names = [name for name, _, _ in ROWS + QUANTILES]
    return UncertainResidualStatistics._of(
        [known.get(name) or _without(getattr(values, name)) for name in names]
        + percentiles
        + [_wilson(value, n, q) for value in values.outliers.values()],
        values._asked(),
    )


def _of_ranks(
    ranks: Sequence[Ranks], found: Sequence[float]
) -> Iterator[tuple[float, float, float]]:
    """Yield the error and the ends of the interval for each two pairs of ranks.

    `found` has the values of those that there are.
    """
    values = iter(found)
    ends = [(next(values), next(values)) if pair else (math.nan, math.nan) for pair in ranks]
    for (low, high), (narrow_low, narrow_high) in zip(ends[::2], ends[1::2]):
        yield (narrow_high - narrow_low) / 2, low, high


def _without(value: float) -> Uncertain:
    return Uncertain(value, math.nan, math.nan, math.nan)


def _root(value: float, second: float, fourth: float, n: int, q: float) -> Uncertain:
    """Return the estimate of the root of a second moment, by the delta method."""
    if n < 2 or not value > 0:
        return _without(value)
    error = math.sqrt(max(fourth - second * second, 0.0) / n) / (2 * value)
    stretch = math.exp(q * error / value)
    reliable = error < LARGEST_ERROR * value
    return Uncertain(value, error, value / stretch, value * stretch, "log", reliable)


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


def quantile_ranks(n: int, p: float, confidence: float) -> Ranks:
    """Return the ranks, from 0 to n - 1, of the ends of the interval of a quantile.

    They are the narrowest pair that leaves out the quantile p of the
    population with at most (1 - confidence) / 2 on each side, or None if even
    the smallest or the largest value doesn't.
    """
    if not 0 < p < 1:
        return None
    # Of n values, k are below the quantile with the binomial probability. The terms are computed
    # from their ratios, from the likeliest k outwards, as far as they matter.
    likeliest = min(int((n + 1) * p), n)
    steps = 10 * math.isqrt(math.ceil(4 * n * p * (1 - p))) + 40
    down = np.arange(likeliest, max(likeliest - steps, 0), -1, dtype=np.float64)
    up = np.arange(likeliest, min(likeliest + steps, n), dtype=np.float64)
    below = np.cumprod(down / (n - down + 1) * ((1 - p) / p))  # of k = likeliest - 1, ...
    above = np.cumprod((n - up) / (up + 1) * (p / (1 - p)))  # of k = likeliest + 1, ...
    most = (1 - confidence) / 2 * (1 + 1e-12) * (1 + below.sum() + above.sum())
    lower = _steps_to_tail(np.concatenate([[1.0], below]), most)
    upper = _steps_to_tail(np.concatenate([[1.0], above]), most)
    if lower is None or upper is None:
        return None
    return likeliest - lower, likeliest + upper - 1


def _steps_to_tail(terms: NDArray[np.float64], most: float) -> int | None:
    """Return the first place from which on the terms add up to at most this."""
    tails = np.cumsum(terms[::-1])[::-1]
    allowed = np.nonzero(tails <= most)[0]
    return int(allowed[0]) if len(allowed) else None
