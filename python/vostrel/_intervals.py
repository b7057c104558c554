"""Confidence intervals from the numbers of resamples, and whether they can be trusted."""

from __future__ import annotations

import math
from collections.abc import Callable
from dataclasses import dataclass
from functools import lru_cache
from typing import TYPE_CHECKING, Literal, get_args

import numpy as np

from vostrel import _core
from vostrel._options import Asked
from vostrel._results import NAMES, Uncertain, UncertainResidualStatistics
from vostrel._uncertainties import has_many, normal_quantile, wilson

if TYPE_CHECKING:  # importing the package must be quick
    from numpy.typing import NDArray

Interval = Literal["auto", "percentile", "basic", "bca", "studentized"]

#: The ends of an interval.
Ends = tuple[float, float]

#: An interval can't be trusted with fewer groups; that of sigma or RMS needs more. Measured by
#: bench/coverage.
FEWEST_GROUPS = 20
FEWEST_GROUPS_OF_SIGMA = 30

#: Which of the errors by moments belongs to a number.
ERRORS = {"bias": 0, "sigma": 1, "rms": 2}

#: Numbers that depend on sigma.
OF_SIGMA = ("outliers_1sigma", "outliers_2sigma", "outliers_3sigma", "outliers_4sigma")


@dataclass(frozen=True)
class Resampled:
    """One residual: its statistics, and those of its resamples.

    Attributes
    ----------
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
    endless : bool
        Whether the residuals look like those of an infinite fourth moment.
    left_out : ndarray, shape (objects or groups, statistics), or None
        The statistics without one object or group.
    """

    n: int
    groups: int | None
    values: NDArray[np.float64]
    replicates: NDArray[np.float64]
    errors: NDArray[np.float64]
    replicate_errors: NDArray[np.float64]
    effective: NDArray[np.float64]
    neighbours: dict[str, tuple[float, float]]
    endless: bool = False
    left_out: NDArray[np.float64] | None = None


def check_interval(interval: str) -> None:
    """Raise a ValueError unless the method of intervals is known."""
    if interval not in get_args(Interval):
        names = ", ".join(map(repr, get_args(Interval)))
        raise ValueError(f"interval must be one of {names}, not {interval!r}")


def estimates(r: Resampled, interval: str, confidence: float) -> UncertainResidualStatistics:
    """Return the estimates of one residual, with intervals by the chosen method."""
    return UncertainResidualStatistics._of(
        [_estimate(r, name, interval, confidence) for name in NAMES], Asked()
    )


def _estimate(r: Resampled, name: str, interval: str, confidence: float) -> Uncertain:
    """Return the estimate of one number."""
    value, error, finite = _error(r, name)
    if not finite:
        return Uncertain(value, error, math.nan, math.nan, "", False)
    method, (low, high) = _interval(r, name, _method(r, name, interval), confidence)
    if method == "t" and name != "bias":
        low = max(low, 0.0)
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
    value, replicates = float(r.values[NAMES.index(name)]), r.replicates[:, NAMES.index(name)]
    if r.n == 1:  # nothing scatters
        return value, math.nan, False
    with np.errstate(invalid="ignore", over="ignore"):
        error = float(np.std(replicates, ddof=1))
    return value, error, math.isfinite(value) and bool(np.isfinite(replicates).all())


def differences(
    first: Resampled, second: Resampled, interval: str, confidence: float
) -> UncertainResidualStatistics:
    """Return the estimates of the first minus the second, from the same resamples."""
    r = Resampled(
        first.n, first.groups, first.values - second.values,
        first.replicates - second.replicates, first.errors, first.replicate_errors,
        first.effective, {}, False,
        None if first.left_out is None or second.left_out is None
        else first.left_out - second.left_out,
    )
    equal = not np.any(r.replicates[:, NAMES.index("bias")])
    return UncertainResidualStatistics._of(
        [_difference(r, (first, second), name, interval, confidence, equal) for name in NAMES],
        Asked(),
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
    method = interval if interval in ("basic", "bca") else "percentile"
    if interval == "auto" and (name == "bias" or r.groups):
        method = "t"
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
    value = r.values[NAMES.index(name)]
    return (
        value - math.hypot(one.value - one.low, other.high - other.value),
        value + math.hypot(one.high - one.value, other.value - other.low),
    )


def neighbours(
    values: NDArray[np.float64],
    replicates: NDArray[np.float64],
    confidence: float,
    residuals: Callable[[], NDArray[np.float64]],
) -> dict[str, tuple[float, float]]:
    """Return for medians that hardly scatter the ends half way to the nearest different object.

    That much the rounding of the objects may hide.
    """
    ends = np.quantile(replicates, [(1 - confidence) / 2, (1 + confidence) / 2], axis=0)
    names = ("mad", "nmad", "mad_delta")
    still = [name for name in names if np.ptp(ends[:, NAMES.index(name)]) == 0]
    r = residuals() if still else np.empty(0)
    result = {}
    for name in still:
        value = float(values[NAMES.index(name)])
        keys = abs(r - np.median(r) if name == "mad_delta" else r)
        keys = keys * (_core.NMAD_FACTOR if name == "nmad" else 1)
        low = float(np.max(keys, where=keys < value, initial=-math.inf))
        high = float(np.min(keys, where=keys > value, initial=math.inf))
        result[name] = (
            (low + value) / 2 if math.isfinite(low) else value,
            (high + value) / 2 if math.isfinite(high) else value,
        )
    return result


def _method(r: Resampled, name: str, interval: str) -> str:
    """Return the method for a number."""
    if interval in ("percentile", "basic", "bca"):
        return interval
    many = has_many(r.values[NAMES.index(name)], r.n)
    if name in ("sigma", "rms") or (name == "outliers_1sigma" and many):
        return "studentized"
    if interval == "studentized":
        return "studentized" if name == "bias" else "percentile"
    if name.startswith("outliers"):
        return "wilson"
    return "t" if name in ("bias", "mad_delta") or r.groups else "percentile"


def _is_reliable(r: Resampled, name: str) -> bool:
    """Return whether the interval of a number can be trusted."""
    of_sigma = name in ("sigma", "rms") or name in OF_SIGMA
    if r.groups and r.groups < (FEWEST_GROUPS_OF_SIGMA if of_sigma else FEWEST_GROUPS):
        return False
    few = not r.effective[1 if name == "rms" else 0] >= _fewest_effective(r)
    if of_sigma and (few or r.endless):
        return False
    return not name.startswith("outliers") or has_many(r.values[NAMES.index(name)], r.n)


def _fewest_effective(r: Resampled) -> float:
    """Return how many objects or groups must make up the fourth moment at least.

    With fewer, the error of sigma and RMS can't be trusted. A small sample may
    lack the tail, so it needs more.
    """
    return 2.0 if r.groups else 2.8 + 400 / r.n


def percentile(r: Resampled, name: str, confidence: float) -> Ends:
    """Return two quantiles of the resamples."""
    replicates = r.replicates[:, NAMES.index(name)]
    low, high = np.quantile(replicates, [(1 - confidence) / 2, (1 + confidence) / 2])
    return float(low), float(high)


def basic(r: Resampled, name: str, confidence: float) -> Ends:
    """Return the percentile interval reflected about the value."""
    low, high = percentile(r, name, confidence)
    value = r.values[NAMES.index(name)]
    return 2 * value - high, 2 * value - low


def bca(r: Resampled, name: str, confidence: float) -> Ends | None:
    """Return the bias-corrected and accelerated interval, or None if all resamples are on one side.

    B. Efron, "Better bootstrap confidence intervals", Journal of the American
    Statistical Association 82, 171 (1987).
    """
    from statistics import NormalDist

    i = NAMES.index(name)
    value, replicates = r.values[i], r.replicates[:, i]
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

    For sigma and RMS of the logarithms, so that no end is negative.
    """
    if name not in ERRORS:
        return beyond_sigma(r, name, confidence)
    i, e = NAMES.index(name), ERRORS[name]
    value, replicates, error = r.values[i], r.replicates[:, i], r.errors[e]
    with np.errstate(divide="ignore", invalid="ignore"):
        if name == "bias":
            ratios = (replicates - value) / r.replicate_errors[:, e]
        else:
            ratios = np.log(replicates / value) / r.replicate_errors[:, e]
    ratios = ratios[np.isfinite(ratios)]
    if len(ratios) < 2 or not error > 0:
        return None
    upper, lower = np.quantile(ratios, [(1 - confidence) / 2, (1 + confidence) / 2])
    if name == "bias":
        return value - lower * error, value - upper * error
    return value * np.exp(-lower * error), value * np.exp(-upper * error)


def beyond_sigma(r: Resampled, name: str, confidence: float) -> Ends | None:
    """Return the interval of a fraction beyond a multiple of sigma.

    How far it follows the logarithm of sigma is found by regression. That part
    of each difference is studentized. The rest is that of a fixed bound.
    """
    value, sigma, error = r.values[NAMES.index(name)], r.values[NAMES.index("sigma")], r.errors[1]
    with np.errstate(divide="ignore", invalid="ignore"):
        logs = np.log(r.replicates[:, NAMES.index("sigma")] / sigma)
        ratios = logs / r.replicate_errors[:, 1]
    found = np.isfinite(ratios)
    logs, ratios = logs[found], ratios[found]
    differences = r.replicates[found, NAMES.index(name)] - value
    if len(ratios) < 2 or not error > 0 or not np.ptp(logs) > 0:
        return None
    slope = np.mean((logs - np.mean(logs)) * differences) / np.var(logs)
    differences -= slope * (logs + error * ratios)
    low, high = value + np.quantile(differences, [(1 - confidence) / 2, (1 + confidence) / 2])
    return max(float(low), 0.0), min(float(high), 100.0)


def student_t(r: Resampled, name: str, confidence: float) -> Ends:
    """Return value +- error * quantile, by Student's t with one degree less than objects or groups.

    Resamples show only (units - 1) / units of the variance.
    """
    units = r.groups or r.n
    value = r.values[NAMES.index(name)]
    error = np.std(r.replicates[:, NAMES.index(name)], ddof=1) * math.sqrt(units / (units - 1))
    half = t_quantile(confidence, units - 1) * error
    return value - half, value + half


def wilson_interval(r: Resampled, name: str, confidence: float) -> Ends:
    """Return Wilson's interval with the number of objects that the scatter implies.

    A fraction beyond a multiple of sigma scatters less than one beyond a fixed
    bound, since sigma moves with it. Other fractions are worth at most n objects.
    """
    i = NAMES.index(name)
    p = r.values[i] / 100
    variance = np.var(r.replicates[:, i] / 100, ddof=1)
    q = normal_quantile(confidence)
    if name in OF_SIGMA and has_many(r.values[i], r.n) and 0 < variance < p * (1 - p) / r.n:
        return wilson(p, p * (1 - p) / variance, q)
    most = float(r.n)
    if r.groups:
        q = t_quantile(confidence, r.groups - 1)
        variance *= r.groups / (r.groups - 1)
        most = float(r.groups) if variance == 0 else most
    effective = min(p * (1 - p) / variance, most) if variance > 0 else most
    return wilson(p, max(effective, 1.0), q)


METHODS: dict[str, Callable[[Resampled, str, float], Ends | None]] = {
    "percentile": percentile,
    "basic": basic,
    "bca": bca,
    "studentized": studentized,
    "t": student_t,
    "wilson": wilson_interval,
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
