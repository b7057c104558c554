"""Confidence intervals from the statistics of resamples, and whether they can be trusted."""

from __future__ import annotations

import math
from collections.abc import Callable, Sequence
from dataclasses import dataclass, field, replace
from functools import cached_property, lru_cache
from typing import TYPE_CHECKING, Any, Literal

import numpy as np

from vostrel import _core
from vostrel._options import Asked
from vostrel._results import (
    METRICS,
    Uncertain,
    UncertainLsstMetrics,
    UncertainResidualStatistics,
    percentile_name,
)
from vostrel._uncertainties import has_many, normal_quantile, quantile_ranks, wilson

if TYPE_CHECKING:  # importing the package must be quick
    from numpy.typing import NDArray

Interval = Literal["auto", "percentile", "basic", "bca", "studentized"]

#: The ends of an interval.
Ends = tuple[float, float]

#: An interval can't be trusted with fewer groups; that of sigma or RMS needs more. Measured by
#: bench/coverage.
FEWEST_GROUPS = 20
FEWEST_GROUPS_OF_SIGMA = 30

#: In smaller groups, on average, few objects decide how skew medians and percentiles are.
FEWEST_IN_GROUP = 10

#: Which of the errors by moments belongs to a number.
ERRORS = {"bias": 0, "sigma": 1, "rms": 2}

#: Numbers that depend on sigma.
OF_SIGMA = ("outliers_1sigma", "outliers_2sigma", "outliers_3sigma", "outliers_4sigma")

#: The fraction beyond LSST's bound. It goes from 0 to 1; the others are percentages.
LSST_OUTLIERS = "lsst_outlier_rate"

#: The names of LSST's metrics here, where no other number has them.
LSST_NAMES = tuple(f"lsst_{name}" for name in METRICS)


@dataclass(frozen=True)
class Resampled:
    """One residual, or LSST's error: its statistics, and those of its resamples.

    Attributes
    ----------
    names : tuple of str
        The names of the statistics, as in flat names.
    asked : Asked or None
        The percentiles and outliers that were asked for, or None for LSST's error.
    n : int
        Number of objects.
    groups : int or None
        Number of groups, if groups were drawn.
    values : ndarray, shape (statistics,)
        The statistics of the objects.
    replicates : ndarray, shape (resamples, statistics)
        Those of the resamples: a view of those of both residuals.
    errors, replicate_errors : ndarray, shape (3,) and (resamples, 3)
        Errors by moments of bias, log(sigma) and log(rms).
    effective : ndarray, shape (2,)
        How many objects or groups make up the fourth moment of sigma and rms.
    neighbours : dict of str to tuple of float
        For medians that hardly scatter: the ends half way to the nearest
        different objects.
    ranks : dict of str to tuple of float
        The exact intervals of percentiles, unless groups were drawn.
    endless : bool
        Whether the residuals look like those of an infinite fourth moment.
    left_out : ndarray, shape (objects or groups, statistics), or None
        The statistics without one object or group.
    """

    names: tuple[str, ...]
    asked: Asked | None
    n: int
    groups: int | None
    values: NDArray[np.float64]
    replicates: NDArray[np.float64]
    errors: NDArray[np.float64]
    replicate_errors: NDArray[np.float64]
    effective: NDArray[np.float64]
    neighbours: dict[str, tuple[float, float]]
    ranks: dict[str, Ends]
    endless: bool = False
    left_out: NDArray[np.float64] | None = None
    _quantiles: dict[float, NDArray[np.float64]] = field(
        init=False, repr=False, compare=False, default_factory=dict
    )

    @cached_property
    def scatter(self) -> NDArray[np.float64]:
        """The standard deviation of each statistic, shape (statistics,)."""
        with np.errstate(invalid="ignore", over="ignore"):  # all at once: many times as fast
            found: NDArray[np.float64] = np.std(
                np.ascontiguousarray(self.replicates.T), axis=1, ddof=1
            )
        return found

    def quantiles(self, confidence: float) -> NDArray[np.float64]:
        """Return two quantiles of each statistic, shape (2, statistics)."""
        if confidence not in self._quantiles:
            with np.errstate(invalid="ignore"):
                self._quantiles[confidence] = two_quantiles(self.replicates.T, confidence)
        return self._quantiles[confidence]

    def results(
        self, values: Sequence[Uncertain]
    ) -> UncertainResidualStatistics | UncertainLsstMetrics:
        """Return the estimates of all statistics under their names."""
        if self.asked is None:
            return UncertainLsstMetrics(*values)
        return UncertainResidualStatistics._of(values, self.asked)

    def value(self, name: str) -> float:
        """Return a statistic of the objects."""
        return float(self.values[self.names.index(name)])

    def drawn(self, name: str) -> NDArray[np.float64]:
        """Return a statistic of the resamples."""
        return self.replicates[:, self.names.index(name)]


#: Both residuals and LSST's error.
Parts = tuple[Resampled, Resampled, Resampled]


def estimates(r: Resampled, interval: str, confidence: float) -> Any:
    """Return the estimates of all statistics, with intervals by the chosen method."""
    return r.results([_estimate(r, name, interval, confidence) for name in r.names])


def _estimate(r: Resampled, name: str, interval: str, confidence: float) -> Uncertain:
    """Return the estimate of one number."""
    value, error, finite = _error(r, name)
    if not finite:
        return Uncertain(value, error, math.nan, math.nan, "", False)
    method, (low, high) = _interval(r, name, _method(r, name, interval), confidence)
    if method in ("t", "hall") and not is_signed(name):
        low, high = max(low, 0.0), min(high, _scale(name)) if is_fraction(name) else high
    reliable = _is_reliable(r, name)
    if interval == "auto" and (low == high or name in r.neighbours):
        low, high = r.neighbours.get(name, (low, high))  # most objects are equal
        reliable = False
    return Uncertain(value, error, float(low), float(high), method, reliable)


def _interval(r: Resampled, name: str, method: str, confidence: float) -> tuple[str, Ends]:
    """Return a method and its interval. If it has none, that is the percentile interval."""
    ends = METHODS[method](r, name, confidence)
    return (method, ends) if ends is not None else ("percentile", percentile(r, name, confidence))


def _error(r: Resampled, name: str) -> tuple[float, float, bool]:
    """Return a number, its error, and whether it and those of all resamples are finite."""
    value = r.value(name)
    if r.n == 1:  # nothing scatters
        return value, math.nan, False
    error = float(r.scatter[r.names.index(name)])
    return value, error, math.isfinite(value) and bool(np.isfinite(r.drawn(name)).all())


def differences(first: Resampled, second: Resampled, interval: str, confidence: float) -> Any:
    """Return the estimates of the first minus the second, from the same resamples."""
    r = replace(
        first, values=first.values - second.values,
        replicates=first.replicates - second.replicates, neighbours={},
        left_out=None if first.left_out is None or second.left_out is None
        else first.left_out - second.left_out,
    )
    equal = not np.any(r.replicates)
    return r.results(
        [_difference(r, (first, second), name, interval, confidence, equal) for name in r.names]
    )


def _difference(
    r: Resampled,
    both: tuple[Resampled, Resampled],
    name: str,
    interval: str,
    confidence: float,
    equal: bool,
) -> Uncertain:
    """Return the estimate of the difference of a number."""
    value, error, finite = _error(r, name)
    if not finite:
        return Uncertain(value, error, math.nan, math.nan, "", False)
    reliable = all(_is_reliable(one, name) for one in both)
    method = {"auto": "t", "studentized": "percentile"}.get(interval, interval)
    method, (low, high) = _interval(r, name, method, confidence)
    if interval == "auto" and low == high and not equal:
        method, reliable = "newcombe", False
        low, high = newcombe(r, both, name, confidence)
    return Uncertain(value, error, float(low), float(high), method, reliable)


def newcombe(
    r: Resampled, both: tuple[Resampled, Resampled], name: str, confidence: float
) -> tuple[float, float]:
    """Return the interval of a difference from those of both numbers.

    R. G. Newcombe, "Interval estimation for the difference between independent
    proportions", Statistics in Medicine 17, 873 (1998), method 10.
    """
    one, other = (_estimate(each, name, "auto", confidence) for each in both)
    value = r.value(name)
    return (
        value - math.hypot(one.value - one.low, other.high - other.value),
        value + math.hypot(one.high - one.value, other.value - other.low),
    )


def neighbours(
    resampled: Resampled, confidence: float, residuals: Callable[[], NDArray[np.float64]]
) -> dict[str, Ends]:
    """Return the ends half way to other objects, for order statistics that hardly scatter.

    Rounding of the objects may hide that much.
    """
    still = [
        name for name, (low, high) in zip(resampled.names, resampled.quantiles(confidence).T)
        if low == high and name not in ERRORS and not is_fraction(name)
    ]
    r = residuals() if still else np.empty(0)
    result = {}
    for name in still:
        if name in WIDTHS:
            *percents, factor = WIDTHS[name]
            lower, upper = (_half_way(r, float(np.percentile(r, p))) for p in percents)
            result[name] = max((upper[0] - lower[1]) / factor, 0.0), (upper[1] - lower[0]) / factor
            continue
        keys = r if is_signed(name) else abs(r - np.median(r) if name == "mad_delta" else r)
        keys = keys * (_core.NMAD_FACTOR if name == "nmad" else 1)
        result[name] = _half_way(keys, resampled.value(name))
    return result


#: The two percentiles of a width, and the divisor of their distance.
WIDTHS = {"sigma_68": (16, 84, 2), "sigma_iqr": (25, 75, 1.349)}


def _half_way(keys: NDArray[np.float64], value: float) -> Ends:
    """Return the ends half way from a value to the next keys below and above."""
    low = float(np.max(keys, where=keys < value, initial=-math.inf))
    high = float(np.min(keys, where=keys > value, initial=math.inf))
    return (
        (low + value) / 2 if math.isfinite(low) else value,
        (high + value) / 2 if math.isfinite(high) else value,
    )


def lsst_neighbours(norm: dict[str, Ends]) -> dict[str, Ends]:
    """Return the ends for LSST's metrics, which are numbers of the normalized residual."""
    result = {}
    if "median" in norm:
        low, high = norm["median"]
        result["lsst_bias"] = -high, -low
    if "sigma_iqr" in norm:
        result["lsst_sigma_iqr"] = norm["sigma_iqr"]
    if "mad_delta" in norm:
        low, high = norm["mad_delta"]
        result["lsst_sigma_mad"] = low * _core.NMAD_FACTOR, high * _core.NMAD_FACTOR
    return result


def exact_ranks(
    percentiles: Sequence[float], confidence: float, r: NDArray[np.float64]
) -> dict[str, Ends]:
    """Return the intervals of percentiles that `uncertainties` gives, by name."""
    result = {}
    for percent in percentiles:
        ranks = quantile_ranks(len(r), percent / 100, confidence)
        if ranks is not None:
            low, high = np.partition(r, ranks)[list(ranks)]
            result[percentile_name(percent)] = float(low), float(high)
    return result


def is_fraction(name: str) -> bool:
    """Return whether a number is a fraction of the objects."""
    return name.startswith("outliers") or name == LSST_OUTLIERS


def is_signed(name: str) -> bool:
    """Return whether a number may be negative."""
    return name in ("bias", "median", "lsst_bias") or is_percentile(name)


def is_percentile(name: str) -> bool:
    """Return whether a number is a percentile that was asked for."""
    return name[0] == "p" and name[1:2].isdigit()


def _method(r: Resampled, name: str, interval: str) -> str:
    """Return the method for a number."""
    if interval in ("percentile", "basic", "bca"):
        return interval
    many = has_many(_percentage(r, name), r.n)
    if interval == "studentized":
        has_error = name in ERRORS or (name == "outliers_1sigma" and many)
        return "studentized" if has_error else "percentile"
    if name in r.ranks:
        return "ranks"
    if name in ("sigma", "rms"):
        return "studentized"
    if is_fraction(name) and not (many and r.groups):
        return "studentized" if many and name == "outliers_1sigma" else "wilson"
    if r.groups:
        is_order = not is_fraction(name) and name != "bias"
        return "t" if is_order and r.n < FEWEST_IN_GROUP * r.groups else "hall"
    return "t" if name in ("bias", "mad_delta", "lsst_sigma_mad") else "percentile"


def _is_reliable(r: Resampled, name: str) -> bool:
    """Return whether the interval of a number can be trusted."""
    of_sigma = name in ("sigma", "rms") or name in OF_SIGMA
    if r.groups and r.groups < (FEWEST_GROUPS_OF_SIGMA if of_sigma else FEWEST_GROUPS):
        return False
    few = not r.effective[1 if name == "rms" else 0] >= _fewest_effective(r)
    if of_sigma and (few or r.endless):
        return False
    if is_percentile(name):
        return has_many(float(name[1:]), r.n)
    return not is_fraction(name) or has_many(_percentage(r, name), r.n)


def _percentage(r: Resampled, name: str) -> float:
    """Return a fraction in percent."""
    return r.value(name) * (100 / _scale(name))


def _scale(name: str) -> float:
    """Return the value of a fraction if all objects are beyond the bound."""
    return 1 if name == LSST_OUTLIERS else 100


def _fewest_effective(r: Resampled) -> float:
    """Return the least number of objects or groups that must make up the fourth moment.

    With fewer, the error of sigma and RMS can't be trusted. A small sample may
    lack the tail, so it needs more.
    """
    return 2.0 if r.groups else 2.8 + 400 / r.n


def two_quantiles(numbers: NDArray[np.float64], confidence: float) -> NDArray[np.float64]:
    """Return the quantiles (1 -+ confidence) / 2 along the last axis, in shape (2, ...).

    The bits are those of np.quantile, which takes twice as long.
    """
    last = numbers.shape[-1] - 1
    places = last * np.array([(1 - confidence) / 2, (1 + confidence) / 2])
    below = places.astype(int)
    above = np.minimum(below + 1, last)
    ordered = np.partition(np.ascontiguousarray(numbers), [*below, *above, last])
    low, high, part = ordered[..., below], ordered[..., above], places - below
    step = high - low
    found = np.where(part < 0.5, low + step * part, high - step * (1 - part))
    found[np.isnan(ordered[..., last])] = np.nan
    return np.moveaxis(found, -1, 0)


def percentile(r: Resampled, name: str, confidence: float) -> Ends:
    """Return two quantiles of the resamples."""
    low, high = r.quantiles(confidence)[:, r.names.index(name)]
    return float(low), float(high)


def basic(r: Resampled, name: str, confidence: float) -> Ends:
    """Return the percentile interval reflected about the value."""
    low, high = percentile(r, name, confidence)
    value = r.value(name)
    return 2 * value - high, 2 * value - low


def bca(r: Resampled, name: str, confidence: float) -> Ends | None:
    """Return the bias-corrected and accelerated interval, or None if all resamples are on one side.

    B. Efron, "Better bootstrap confidence intervals", Journal of the American
    Statistical Association 82, 171 (1987).
    """
    from statistics import NormalDist

    i = r.names.index(name)
    value, replicates = r.value(name), r.drawn(name)
    assert r.left_out is not None
    below = (np.mean(replicates < value) + np.mean(replicates <= value)) / 2
    differences = np.mean(r.left_out[:, i]) - r.left_out[:, i]
    squares = np.sum(differences**2)
    if not 0 < below < 1 or not squares > 0:
        return None
    normal = NormalDist()
    shift = normal.inv_cdf(float(below))
    acceleration = float(np.sum(differences**3) / squares**1.5 / 6)

    def quantile(z: float) -> float:
        moved = shift + (shift + z) / (1 - acceleration * (shift + z))
        return float(np.quantile(replicates, normal.cdf(moved)))

    q = normal_quantile(confidence)
    return quantile(-q), quantile(q)


def studentized(r: Resampled, name: str, confidence: float) -> Ends | None:
    """Return the interval of (resample - value) / error of the resample.

    For sigma and RMS of the logarithms: no end is negative.
    """
    if name not in ERRORS:
        return beyond_sigma(r, name, confidence)
    e = ERRORS[name]
    value, replicates, error = r.value(name), r.drawn(name), r.errors[e]
    with np.errstate(divide="ignore", invalid="ignore"):
        if name == "bias":
            ratios = (replicates - value) / r.replicate_errors[:, e]
        else:
            ratios = np.log(replicates / value) / r.replicate_errors[:, e]
    ratios = ratios[np.isfinite(ratios)]
    if len(ratios) < 2 or not error > 0:
        return None
    upper, lower = two_quantiles(ratios, confidence)
    if name == "bias":
        return value - lower * error, value - upper * error
    with np.errstate(over="ignore"):  # of a few objects
        return float(value * np.exp(-lower * error)), float(value * np.exp(-upper * error))


def beyond_sigma(r: Resampled, name: str, confidence: float) -> Ends | None:
    """Return the interval of a fraction beyond a multiple of sigma.

    How far it follows the logarithm of sigma is found by regression. That part
    of each difference is studentized. The rest is that of a fixed bound.
    """
    value, error = r.value(name), r.errors[1]
    with np.errstate(divide="ignore", invalid="ignore"):
        logs = np.log(r.drawn("sigma") / r.value("sigma"))
        ratios = logs / r.replicate_errors[:, 1]
    found = np.isfinite(ratios)
    logs, ratios = logs[found], ratios[found]
    differences = r.drawn(name)[found] - value
    if len(ratios) < 2 or not error > 0 or not np.ptp(logs) > 0:
        return None
    slope = np.mean((logs - np.mean(logs)) * differences) / np.var(logs)
    differences -= slope * (logs + error * ratios)
    low, high = value + two_quantiles(differences, confidence)
    return max(float(low), 0.0), min(float(high), 100.0)


def student_t(r: Resampled, name: str, confidence: float) -> Ends:
    """Return value +- error * quantile, by Student's t."""
    quantile, error = _quantile_and_error(r, name, confidence)
    return r.value(name) - quantile * error, r.value(name) + quantile * error


def _quantile_and_error(r: Resampled, name: str, confidence: float) -> tuple[float, float]:
    """Return the quantile of Student's t, and the error.

    It has one degree less than objects or groups. Resamples show only (units -
    1) / units of the variance.
    """
    units = r.groups or r.n
    error = float(r.scatter[r.names.index(name)]) * math.sqrt(units / (units - 1))
    return t_quantile(confidence, units - 1), error


def hall(r: Resampled, name: str, confidence: float) -> Ends:
    """Return the interval of Student's t for groups, as skew as the resamples.

    P. Hall, "On the removal of skewness by transformation", Journal of the
    Royal Statistical Society B 54, 221 (1992). A fraction beyond a multiple of
    sigma takes the normal quantile: its resamples scatter too much, which makes
    up for the few groups. An end is no farther than both Student's t and all
    resamples: Hall's grows without bound.
    """
    quantile, error = _quantile_and_error(r, name, confidence)
    if name in OF_SIGMA:
        quantile, error = normal_quantile(confidence), float(r.scatter[r.names.index(name)])
    value, drawn = r.value(name), r.drawn(name)
    moved = drawn - np.mean(drawn)
    variance = np.mean(moved**2)
    skewness = float(np.mean(moved**3) / variance**1.5) if variance > 0 else 0.0
    upper, lower = with_skewness(quantile, skewness), with_skewness(-quantile, skewness)
    reach = quantile * error
    return (
        max(value - upper * error, min(value - reach, float(np.min(drawn)))),
        min(value - lower * error, max(value + reach, float(np.max(drawn)))),
    )


def with_skewness(quantile: float, skewness: float) -> float:
    """Return the t for which Hall's t + k t^2 / 3 + k^2 t^3 / 27 + k / 6 is the quantile."""
    if abs(skewness) < 1e-6:
        return quantile
    return 3 / skewness * (math.cbrt(1 + skewness * (quantile - skewness / 6)) - 1)


def wilson_interval(r: Resampled, name: str, confidence: float) -> Ends:
    """Return Wilson's interval with the number of objects that the scatter implies.

    That is at most n. But a fraction of many objects beyond a multiple of
    sigma may scatter less than one beyond a fixed bound, since sigma moves
    with it.
    """
    scale = _scale(name)
    p = r.value(name) / scale
    variance = np.var(r.drawn(name) / scale, ddof=1)
    q = normal_quantile(confidence)
    follows = name in (*OF_SIGMA, LSST_OUTLIERS) and has_many(_percentage(r, name), r.n)
    most = math.inf if follows else float(r.n)
    if r.groups:
        q = t_quantile(confidence, r.groups - 1)
        variance *= r.groups / (r.groups - 1)
        most = float(r.n if variance > 0 else r.groups)
    known = variance > 0 and 0 < p < 1
    effective = min(p * (1 - p) / variance, most) if known else min(most, r.n)
    low, high = wilson(p, max(effective, 1.0), q)
    return low * (scale / 100), high * (scale / 100)


METHODS: dict[str, Callable[[Resampled, str, float], Ends | None]] = {
    "percentile": percentile,
    "basic": basic,
    "bca": bca,
    "studentized": studentized,
    "t": student_t,
    "hall": hall,
    "wilson": wilson_interval,
    "ranks": lambda r, name, confidence: r.ranks[name],
}


@lru_cache
def t_quantile(confidence: float, degrees: int) -> float:
    """Return the half width of a central interval of Student's t distribution.

    By Cornish and Fisher's expansion (M. Abramowitz and I. A. Stegun, "Handbook
    of Mathematical Functions", 1964, 26.7.5), or by bisection for few degrees.
    """
    if degrees > 1000:
        z = normal_quantile(confidence)
        return z + (z**3 + z) / (4 * degrees) + (5 * z**5 + 16 * z**3 + 3 * z) / (96 * degrees**2)
    low, high = 0.0, 1.0
    while t_central(high, degrees) < confidence:
        low, high = high, 2 * high
    for _ in range(100):
        middle = (low + high) / 2
        low, high = (middle, high) if t_central(middle, degrees) < confidence else (low, middle)
    return (low + high) / 2


def t_central(t: float, degrees: int) -> float:
    """Return the probability of -t to t by Student's t distribution.

    A finite sum: Abramowitz and Stegun, 26.7.3 and 26.7.4.
    """
    angle = math.atan2(t, math.sqrt(degrees))
    cosine, sine = math.cos(angle), math.sin(angle)
    odd = degrees % 2
    term = (cosine if degrees > 1 else 0.0) if odd else 1.0
    total = term
    for k in range(2 + odd, degrees - 1, 2):
        term *= cosine * cosine * (k - 1) / k
        total += term
    return 2 / math.pi * (angle + sine * total) if odd else sine * total
