"""Standard errors and confidence intervals by the bootstrap."""

from __future__ import annotations

import os
from dataclasses import dataclass, replace
from typing import TYPE_CHECKING, Any, Callable, Never, get_args

import numpy as np

from vostrel import _core
from vostrel._groups import read_groups
from vostrel._inputs import NanPolicy, check_counts, prepare, read_estimates
from vostrel._intervals import (
    ERRORS,
    LSST_NAMES,
    Interval,
    Parts,
    Resampled,
    differences,
    estimates,
    exact_ranks,
    lsst_neighbours,
    neighbours,
)
from vostrel._options import (
    Asked,
    Numbers,
    check_choice,
    read_asked,
    read_confidence,
    read_integer,
)
from vostrel._point import point_statistics, statistics_of
from vostrel._progress import Progress, Report, check_progress
from vostrel._resampling import Draws, Workers, draw
from vostrel._results import (
    METRICS,
    PointStatistics,
    UncertainLsstMetrics,
    UncertainResidualStatistics,
    Uncertainties,
    compared,
)
from vostrel._tables import Grid, Result, clipped
from vostrel._tails import ENOUGH, are_endless

if TYPE_CHECKING:
    from numpy.typing import NDArray

    from vostrel._resampling import Groups


def bootstrap(
    reference: Any,
    estimate: Any,
    *,
    resamples: int = 1000,
    confidence: float = 0.683,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    groups: Any | None = None,
    seed: int | None = None,
    mask: Any | None = None,
    nan_policy: NanPolicy = "raise",
    workers: Workers = 1,
    interval: Interval = "auto",
    progress: Progress = False,
) -> Uncertainties:
    """Compute error statistics of estimates, and their uncertainties by resampling.

    Parameters
    ----------
    reference, estimate : array_like, shape (n,)
        Reference and estimated values. Dimensionless.
    resamples : int
        The number of resamples, at least 2. Each draws n objects with
        replacement.
    confidence : float
        The confidence of the intervals, between 0 and 1.
    percentiles, outliers : float or array_like of float, optional
        As in `point_statistics`.
    groups : array_like, shape (n,), optional
        A label for each object, such as its field of the sky. Whole groups
        are then drawn, as many as there are. Use this if the objects of a
        group are not independent. Have fifty groups, or at least thirty.
    seed : int, optional
        From 0 to 2**64 - 1. The same seed gives the same bits on every
        machine and for any number of workers. By default the operating system
        draws a seed, which is stored in the result.
    mask : array_like of bool, shape (n,), optional
        True leaves an object out, as a masked entry does.
    nan_policy : {"raise", "omit", "propagate"}
        As in `point_statistics`.
    workers : int or map-like callable
        The number of threads, -1 for all processors; or a function like map,
        such as the map method of a pool of threads or processes.
    interval : {"auto", "percentile", "basic", "bca", "studentized"}
        How intervals are found. "auto" takes the method that holds best for
        each number: see Notes. "studentized" is "percentile" for medians and
        fractions.
    progress : bool or function
        True shows a bar of tqdm. A function is called from time to time as
        ``progress(done, total)``, with numbers of resamples.

    Returns
    -------
    Uncertainties
        The error is the standard deviation over the resamples, with divisor
        resamples - 1. Each number names the method of its interval, and says
        whether it can be trusted, as in ``u.norm.sigma.reliable``.

    Raises
    ------
    ValueError
        As for `point_statistics`; also if there is only one group, a label is
        missing, or an option is out of range.
    RuntimeError
        If the workers lose some of the resamples.
    TypeError
        As for `point_statistics`; also if an option has the wrong type.

    See Also
    --------
    uncertainties : errors by formula, at once, for some of the statistics.
    bootstrap_difference : compares estimators.

    Notes
    -----
    B. Efron, "Bootstrap methods: another look at the jackknife", Annals of
    Statistics 7, 1 (1979); A. C. Davison and D. V. Hinkley, "Bootstrap Methods
    and their Application", 1997, section 3.8 for groups.

    With ``interval="auto"`` the methods are:

    bias, mad_delta; all differences of `bootstrap_difference`
        "t": value +- q * error * sqrt(G / (G - 1)), where q is the quantile of
        Student's t with G - 1 degrees, and G is the number of objects or
        groups.
    with groups, all numbers except sigma and rms
        "hall": the same, as skew as the resamples (P. Hall, "On the removal of
        skewness by transformation", Journal of the Royal Statistical Society B
        54, 221, 1992). Fractions beyond multiples of sigma have the normal
        quantile, without the factor.
    mad, nmad
        "percentile": from the quantile (1 - confidence) / 2 of the resamples
        to their quantile (1 + confidence) / 2.
    sigma, rms
        "studentized": the logarithm of each resample is divided by its own
        error by moments, and the quantiles of the ratios are multiplied by the
        error of the objects (Davison and Hinkley, section 5.2; T. J. DiCiccio
        and B. Efron, "Bootstrap confidence intervals", Statistical Science 11,
        189, 1996). The error of log(sigma) is sqrt((m4 / sigma**4 - 1) / (4 *
        n)), where m4 is the fourth moment about the bias; that of log(rms) has
        moments about zero. With groups, their sums give the moments.
    outliers_1sigma
        "studentized": how far a resample's difference follows that of
        log(sigma) is found by regression. That part is studentized, and the
        rest is added.
    outliers_015, outliers_2sigma, ...; outliers_1sigma of fewer than ten
        "wilson": Wilson's interval of p = value / 100 for p * (1 - p) /
        error**2 objects (L. D. Brown, T. T. Cai and A. DasGupta, "Interval
        estimation for a binomial proportion", Statistical Science 16, 101,
        2001). At most n objects beyond 0.15, and if fewer than ten are beyond
        or within; with groups only then.
    median, sigma_68, sigma_iqr, LSST's bias and sigma_iqr
        As mad. LSST's sigma_mad as mad_delta.
    percentiles
        "ranks": the interval of `uncertainties`, if there is one.
    outliers; LSST's outlier rate
        As outliers_015; as outliers_2sigma.

    If no resample differs because most objects are equal, the interval goes
    half way to the nearest different object. ``reliable`` is False then; for
    sigma, rms and the fractions beyond multiples of sigma if a few objects
    make up the fourth moment, or the residuals look like those of an infinite
    one; for a fraction with fewer than ten objects beyond or within, and for a
    percentile with fewer expected beyond it; with fewer than 20 groups, or 30
    for what depends on sigma.

    Every resample equals `point_statistics` of its objects: medians and
    outlier percentages bit for bit; bias, sigma and RMS to about 1e-14 of the
    RMS, and in the worst case 2e-11 + 1e-15 * n. The random numbers are those
    of Philox4x64-10 (J. K. Salmon et al., "Parallel random numbers: as easy as
    1, 2, 3", 2011), with a stream for each resample.

    Examples
    --------
    >>> import numpy as np
    >>> import vostrel
    >>> reference = np.linspace(0, 1, 101)
    >>> estimate = reference + 0.1 * np.sin(100 * reference)
    >>> u = vostrel.bootstrap(reference, estimate, confidence=0.95, seed=1)
    >>> u.replicates.shape
    (1000, 2, 14)
    """
    confidence = read_confidence(confidence)
    check_choice("interval", interval, get_args(Interval))
    check_progress(progress)
    resamples = read_integer("resamples", resamples, 2)
    seed = _read_seed(seed)
    asked = read_asked(percentiles, outliers)
    columns = prepare(nan_policy, mask, reference=reference, estimate=estimate)
    sample = _core.Sample(columns.values, columns.masks, nan_policy == "omit")
    check_counts(nan_policy, sample.n, sample.n_masked, sample.n_nan, columns)
    labels = read_groups(groups, sample, len(columns.values[0]))
    values = statistics_of(columns, nan_policy, asked)
    options = _Options(resamples, confidence, interval, seed, workers, asked)
    with Report(progress, resamples, "bootstrap", "resample") as report:
        return options.summary(values, options.resample(sample, 1, values, labels, report))


@dataclass(frozen=True, eq=False, repr=False)
class BootstrapDifference(Result):
    """Estimators compared on the same resamples.

    ``d["A"]`` has the statistics of estimator A, and ``d["A", "B"]`` those of
    A minus those of B, both as `Uncertainties`. If there are two estimators,
    ``d.delta``, ``d.norm`` and ``d.lsst`` are those of the first minus the
    second.
    `to_frame` has the rows of `Uncertainties` for each estimator and each
    difference.

    Attributes
    ----------
    estimates : dict of str to Uncertainties
        Each estimator by itself.
    confidence : float
        That of the intervals.
    interval : str
        Their method, as it was chosen.
    """

    estimates: dict[str, Uncertainties]
    confidence: float
    interval: str
    _resampled: dict[str, Parts]

    _INDEX = ("estimates", "statistic")

    def __getitem__(self, names: str | tuple[str, str]) -> Uncertainties:
        chosen = names if isinstance(names, tuple) else (names,)
        if len(chosen) > 2 or any(name not in self.estimates for name in chosen):
            known = clipped(", ".join(map(repr, self.estimates)), 150)
            raise KeyError(f"choose one estimate, as in d['A'], or two, among {known}")
        if len(chosen) == 1:
            return self.estimates[chosen[0]]
        a, b = (self.estimates[name] for name in chosen)
        assert a.replicates is not None and b.replicates is not None
        assert a.lsst_replicates is not None and b.lsst_replicates is not None
        with np.errstate(invalid="ignore"):
            replicates = a.replicates - b.replicates
            metrics = a.lsst_replicates - b.lsst_replicates
            delta, norm, lsst = (
                differences(one, other, self.interval, self.confidence)
                for one, other in zip(*(self._resampled[name] for name in chosen))
            )
        return Uncertainties(
            a.n, a.n_masked, a.n_nan, self.confidence, "bootstrap", delta, norm, a.seed,
            replicates, lsst, metrics,
        )

    def _only(self) -> Uncertainties:
        if len(self.estimates) != 2:
            names = clipped(", ".join(map(repr, self.estimates)), 150)
            raise AttributeError(f"choose two estimates, as in d['A', 'B'], among {names}")
        first, second = self.estimates
        return self[first, second]

    @property
    def delta(self) -> UncertainResidualStatistics:
        """The differences for the residual, of two estimators."""
        return self._only().delta

    @property
    def norm(self) -> UncertainResidualStatistics:
        """The differences for the normalized residual, of two estimators."""
        return self._only().norm

    @property
    def lsst(self) -> UncertainLsstMetrics:
        """The differences for LSST's metrics, of two estimators."""
        return self._only().lsst

    def to_dict(self) -> dict[str, dict[str, int | float]]:
        """Return `Uncertainties.to_dict` of each estimator and of each difference, by name."""
        alone = {name: one.to_dict() for name, one in self.estimates.items()}
        return {**alone, **{name: pair.to_dict() for name, pair in self._pairs().items()}}

    def _pairs(self) -> dict[str, Uncertainties]:
        """Return all differences."""
        names = list(self.estimates)
        pairs = [(a, b) for i, a in enumerate(names) for b in names[i + 1 :]]
        return {f"{a} - {b}": self[a, b] for a, b in pairs}

    def _caption(self) -> str:
        return f"{len(self.estimates)} estimates, {next(iter(self.estimates.values()))._caption()}"

    def _table(self) -> dict[str, Any]:
        columns: dict[str, Any] = {"estimates": []}
        for name, one in {**self.estimates, **self._pairs()}.items():
            table = one._table()
            columns["estimates"] += [name] * len(table["value"])
            for column, values in table.items():
                columns[column] = columns.get(column, []) + values
        return columns

    def _grid(self) -> Grid:
        return compared({**self.estimates, **self._pairs()})

    def __str__(self) -> str:
        return "\n\n".join(f"{name}: {pair}" for name, pair in self._pairs().items())


def bootstrap_difference(
    reference: Any,
    estimates: Any,
    *more: Never,
    resamples: int = 1000,
    confidence: float = 0.683,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    groups: Any | None = None,
    seed: int | None = None,
    mask: Any | None = None,
    nan_policy: NanPolicy = "raise",
    workers: Workers = 1,
    interval: Interval = "auto",
    progress: Progress = False,
) -> BootstrapDifference:
    """Compare estimators by resampling, with the same resamples for each.

    Parameters
    ----------
    reference : array_like, shape (n,)
        Reference values. Dimensionless.
    estimates : mapping of str to array_like, shape (n,)
        Two or more estimates by name; or the columns of a pandas DataFrame
        or of an astropy Table. An object that is masked in one of them
        is left out of all. With ``nan_policy="omit"``, so is an object with
        NaN in one of them.
    *more
        Nothing: all estimates go into one mapping.
    resamples, confidence, percentiles, outliers, groups, seed, mask, nan_policy, workers, \
interval, progress
        As in `bootstrap`.

    Returns
    -------
    BootstrapDifference
        Errors that the estimators share cancel. So the error of a difference
        may be far smaller than the errors of the two.

    Raises
    ------
    ValueError, TypeError
        As for `bootstrap`; also if there are fewer than two estimates.

    Examples
    --------
    >>> import numpy as np
    >>> import vostrel
    >>> reference = np.linspace(0, 1, 101)
    >>> a = reference + 0.1 * np.sin(100 * reference)
    >>> d = vostrel.bootstrap_difference(reference, {"A": a, "B": a + 0.01}, seed=1)
    >>> print(d.delta.bias)
    0.01 +0 -0
    """
    confidence = read_confidence(confidence)
    check_choice("interval", interval, get_args(Interval))
    check_progress(progress)
    resamples = read_integer("resamples", resamples, 2)
    seed = _read_seed(seed)
    asked = read_asked(percentiles, outliers)
    if more:
        raise TypeError(
            "bootstrap_difference takes all estimates in one mapping, as in "
            "bootstrap_difference(reference, {'A': a, 'B': b})"
        )
    estimates = read_estimates(estimates)
    if len(estimates) < 2:
        raise ValueError(f"a comparison needs two estimates or more, not {len(estimates)}")
    named = {"reference": reference}
    for number, (name, values) in enumerate(estimates.items(), 1):
        clear = f"estimate {clipped(name, 30)!r}"
        named[clear if clear not in named else f"{clear} (number {number})"] = values
    columns = prepare(nan_policy, mask, **named)
    sample = _core.Sample(columns.values, columns.masks, nan_policy == "omit")
    check_counts(nan_policy, sample.n, sample.n_masked, sample.n_nan, columns)
    labels = read_groups(groups, sample, len(columns.values[0]))
    options = _Options(resamples, confidence, interval, seed, workers, asked)
    kept = sample.kept()
    left_out = None if kept is None else ~kept
    results, resampled = {}, {}
    with Report(progress, resamples, "bootstrap", "resample") as report:
        for i, (name, values) in enumerate(zip(estimates, columns.values[1:])):
            s = point_statistics(
                columns.values[0], values, mask=left_out, nan_policy="propagate",
                percentiles=asked.percentiles, outliers=asked.outliers,
            )
            s = replace(s, n=sample.n, n_masked=sample.n_masked, n_nan=sample.n_nan)

            def report_progress(done: int, before: int = i * resamples) -> None:
                report((before + done) // len(estimates))

            resampled[name] = options.resample(sample, i + 1, s, labels, report_progress)
            results[name] = options.summary(s, resampled[name])
    return BootstrapDifference(results, confidence, interval, resampled)


def _read_seed(seed: int | None) -> int:
    if seed is None:
        return int.from_bytes(os.urandom(8), "little")
    return read_integer("seed", seed, 0, 2**64 - 1)


@dataclass(frozen=True)
class _Options:
    """How to draw resamples and what to make of them."""

    resamples: int
    confidence: float
    interval: str
    seed: int
    workers: Workers
    asked: Asked = Asked()

    def resample(
        self,
        sample: _core.Sample,
        estimate: int,
        values: PointStatistics,
        groups: Groups | None,
        report_progress: Callable[[int], None],
    ) -> Parts:
        """Return both residuals and LSST's error of one estimate, with its resamples."""
        parts = values.delta._rows(), values.norm._rows()
        names = tuple(row.name for row in parts[0])
        numbers = np.array([[row.value for row in rows] for rows in parts])
        metrics = np.array(list(values.lsst._metrics().values()))
        with_errors = self.interval in ("auto", "studentized")
        draws = Draws(sample, estimate, self.seed, groups, self.asked, with_errors)
        if _has_nan(sample, estimate):
            replicates = np.full((self.resamples, *numbers.shape), np.nan)
            replicate_errors = np.full((self.resamples, 2, 3), np.nan)
            lsst_replicates = np.full((self.resamples, len(METRICS)), np.nan)
            errors, effective = replicate_errors[0], np.full((2, 2), np.nan)
        else:
            replicates, replicate_errors, lsst_replicates = draw(
                draws, self.resamples, self.workers, report_progress
            )
            errors, effective = draws.engine.whole(numbers[:, : len(ERRORS)])
        replicates.flags.writeable = lsst_replicates.flags.writeable = False
        left_out = draws.left_out() if self.interval == "bca" else None

        def part(i: int) -> Resampled:
            def residuals() -> NDArray[np.float64]:
                reference, estimated = sample.column(0), sample.column(estimate)
                return (reference - estimated) / (1 + reference if i else 1)

            with np.errstate(invalid="ignore"):
                ranks = {}
                if self.asked.percentiles and not groups:
                    ranks = exact_ranks(self.asked.percentiles, self.confidence, residuals())
                endless = bool(np.min(effective[i]) < ENOUGH) and are_endless(residuals())
                found = Resampled(
                    names, self.asked, sample.n, groups[1] if groups else None, numbers[i],
                    replicates[:, i], errors[i], replicate_errors[:, i], effective[i], {}, ranks,
                    endless, None if left_out is None else left_out[0][:, i],
                )
                found.neighbours.update(neighbours(found, self.confidence, residuals))
            return found

        delta, norm = part(0), part(1)
        lsst: dict[str, Any] = {
            "names": LSST_NAMES, "asked": None, "values": metrics, "replicates": lsst_replicates,
            "neighbours": lsst_neighbours(norm.neighbours), "ranks": {},
            "left_out": None if left_out is None else left_out[1],
        }
        return delta, norm, replace(norm, **lsst)

    def summary(self, values: PointStatistics, resampled: Parts) -> Uncertainties:
        """Return the estimates that follow from the resamples."""
        delta, norm, lsst = (
            estimates(one, self.interval, self.confidence) for one in resampled
        )
        replicates = resampled[0].replicates.base  # of both residuals, of which each has a view
        return Uncertainties(
            values.n, values.n_masked, values.n_nan, self.confidence, "bootstrap", delta, norm,
            self.seed, replicates, lsst, resampled[2].replicates,
        )


def _has_nan(sample: _core.Sample, estimate: int) -> bool:
    """Return whether an object has NaN that `nan_policy="propagate"` keeps."""
    if not sample.n_nan:
        return False
    return any(bool(np.isnan(sample.column(i)).any()) for i in (0, estimate))
