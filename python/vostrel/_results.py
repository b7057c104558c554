"""The results that the functions return, and how they are printed."""

from __future__ import annotations

import math
import re
from collections.abc import Iterator
from dataclasses import asdict, astuple, dataclass, fields
from typing import TYPE_CHECKING, Any, Generic, TypeVar

import numpy as np

from vostrel import _core

if TYPE_CHECKING:  # importing the package must be quick
    import pandas
    from numpy.typing import NDArray

T = TypeVar("T")


@dataclass(frozen=True, eq=False)
class PerStatistic(Generic[T]):
    """The statistics of one residual, in the order of the program's report."""

    bias: T
    sigma: T
    rms: T
    mad: T
    nmad: T
    mad_delta: T
    outliers_015: T
    outliers_1sigma: T
    outliers_2sigma: T
    outliers_3sigma: T
    outliers_4sigma: T


@dataclass(frozen=True)
class ResidualStatistics(PerStatistic[float]):
    """The statistics of one residual r of n objects.

    Outliers are percentages, 0 to 100. The others have the unit of the
    residual; redshifts are dimensionless.

    Attributes
    ----------
    bias : float
        Mean of r.
    sigma : float
        Standard deviation about the bias, with divisor n.
    rms : float
        Root mean square of r, about zero.
    mad : float
        Median of abs(r): about zero, not about the median.
    nmad : float
        1.4826 * mad.
    mad_delta : float
        Median of abs(r - median(r)).
    outliers_015 : float
        Percentage of objects with abs(r) > 0.15.
    outliers_1sigma, outliers_2sigma, outliers_3sigma, outliers_4sigma : float
        Percentage of objects with abs(r) beyond 1, 2, 3 or 4 sigma. Measured
        from zero, not from the bias.
    """


class BinnedResidualStatistics(PerStatistic["NDArray[np.float64]"]):
    """The statistics of one residual in k bins: `ResidualStatistics`, but arrays of shape (k,)."""


#: The attributes of ResidualStatistics, in the order of the report.
NAMES = tuple(field.name for field in fields(PerStatistic))

#: Attribute, label and unit of each statistic.
ROWS = tuple((name, label, unit) for name, (label, _, _, unit) in zip(NAMES, _core.STATISTICS))


@dataclass(frozen=True)
class PointStatistics:
    """The statistics of n objects.

    Attributes
    ----------
    n : int
        Number of objects in the statistics.
    n_masked : int
        Number of objects left out because they are masked.
    n_nan : int
        Number of objects with NaN: left out with ``nan_policy="omit"``,
        included in ``n`` with ``nan_policy="propagate"``.
    delta : ResidualStatistics
        Statistics of the residual: reference - estimate.
    norm : ResidualStatistics
        Statistics of the normalized residual:
        (reference - estimate) / (1 + reference).
    """

    n: int
    n_masked: int
    n_nan: int
    delta: ResidualStatistics
    norm: ResidualStatistics

    def to_dict(self) -> dict[str, int | float]:
        """Return all numbers under flat names such as ``"norm_nmad"``.

        Returns
        -------
        dict
            ``n``, ``n_masked``, ``n_nan``, the statistics of ``delta``
            and those of ``norm``, in this order.

        Examples
        --------
        >>> import vostrel
        >>> s = vostrel.point_statistics([0.5, 1.0], [0.75, 1.5])
        >>> s.to_dict()["delta_bias"]
        -0.375
        """
        result: dict[str, int | float] = {
            "n": self.n,
            "n_masked": self.n_masked,
            "n_nan": self.n_nan,
        }
        for part in ("delta", "norm"):
            for name, value in zip(NAMES, astuple(getattr(self, part))):
                result[f"{part}_{name}"] = value
        return result

    def to_series(self) -> pandas.Series[Any]:
        """Return `to_dict` as a pandas Series. Needs pandas.

        Returns
        -------
        pandas.Series
            Numbers of type float64 under the names of `to_dict`.

        Raises
        ------
        ImportError
            If pandas is not installed.
        """
        return import_pandas("to_series").Series(self.to_dict(), dtype="float64")

    def __str__(self) -> str:
        label_width = max(len(label) for _, label, _ in ROWS)
        columns = [
            [heading] + aligned([_text(getattr(part, name), unit) for name, _, unit in ROWS])
            for heading, part in (("delta", self.delta), ("delta norm", self.norm))
        ]
        widths = [max(map(len, column)) for column in columns]
        lines = [_counted(self)]
        for label, *cells in zip(["", *(label for _, label, _ in ROWS)], *columns):
            row = "  ".join(cell.rjust(width) for cell, width in zip(cells, widths))
            lines.append(f"{label:<{label_width}}  {row}".rstrip())
        return "\n".join(lines)

    def _repr_html_(self) -> str:
        import html

        rows = "".join(
            f"<tr><th>{html.escape(label)}</th>"
            f"<td>{_text(getattr(self.delta, name), unit)}</td>"
            f"<td>{_text(getattr(self.norm, name), unit)}</td></tr>"
            for name, label, unit in ROWS
        )
        return (
            f"<table><caption>{_counted(self)}</caption>"
            "<thead><tr><th></th><th>delta</th><th>delta norm</th></tr></thead>"
            f"<tbody>{rows}</tbody></table>"
        )


@dataclass(frozen=True, eq=False)
class BinnedStatistics:
    """The statistics of objects in k bins. ``b[i]`` is the PointStatistics of bin i.

    Attributes
    ----------
    edges : ndarray of float64, shape (k + 1,)
        Bin i holds the objects from ``edges[i]`` up to but not including
        ``edges[i + 1]``; the last bin holds its upper edge too.
    counts : ndarray of int64, shape (k,)
        Number of objects in the statistics of each bin.
    nan_counts : ndarray of int64, shape (k,)
        Number of objects in each bin whose reference or estimate is NaN: left
        out with ``nan_policy="omit"``, included in `counts` with
        ``nan_policy="propagate"``.
    n_masked : int
        Number of objects left out because they are masked.
    n_nan : int
        Number of objects with NaN, in the bins or not.
    n_outside : int
        Number of objects without NaN that are in no bin.
    delta : BinnedResidualStatistics
        Statistics of the residual, each an array. NaN for an empty bin.
    norm : BinnedResidualStatistics
        Statistics of the normalized residual.
    uncertainties : tuple of Uncertainties or None
        If asked for: the errors of each bin by formula. NaN for an empty bin.
    """

    edges: NDArray[np.float64]
    counts: NDArray[np.int64]
    nan_counts: NDArray[np.int64]
    n_masked: int
    n_nan: int
    n_outside: int
    delta: BinnedResidualStatistics
    norm: BinnedResidualStatistics
    uncertainties: tuple[Uncertainties, ...] | None = None

    def __len__(self) -> int:
        return len(self.counts)

    def __getitem__(self, index: int) -> PointStatistics:
        delta, norm = (
            ResidualStatistics(*(float(getattr(part, name)[index]) for name in NAMES))
            for part in (self.delta, self.norm)
        )
        return PointStatistics(
            n=int(self.counts[index]),
            n_masked=0,
            n_nan=int(self.nan_counts[index]),
            delta=delta,
            norm=norm,
        )

    def __iter__(self) -> Iterator[PointStatistics]:
        return (self[index] for index in range(len(self)))

    def to_frame(self) -> pandas.DataFrame:
        """Return a pandas DataFrame with a row for each bin. Needs pandas.

        Returns
        -------
        pandas.DataFrame
            Columns ``low`` and ``high`` (the edges), ``n``, ``n_nan``, and
            the numbers under flat names such as ``norm_nmad``. With
            uncertainties also ``norm_nmad_error`` and so on.

        Raises
        ------
        ImportError
            If pandas is not installed.
        """
        columns: dict[str, NDArray[Any]] = {
            "low": self.edges[:-1],
            "high": self.edges[1:],
            "n": self.counts,
            "n_nan": self.nan_counts,
        }
        for part in ("delta", "norm"):
            for name in NAMES:
                columns[f"{part}_{name}"] = getattr(getattr(self, part), name)
        if self.uncertainties is not None:
            rows = [one.to_dict() for one in self.uncertainties]
            for name in rows[0]:
                if name.endswith(("_error", "_low", "_high")):
                    columns[name] = np.array([row[name] for row in rows])
        return import_pandas("to_frame").DataFrame(columns)

    def __str__(self) -> str:
        shown = ("bias", "nmad", "outliers_015")
        labels = {name: (norm, unit) for name, (_, norm, _, unit) in zip(NAMES, _core.STATISTICS)}
        columns = [
            ["from"] + aligned([_text(edge, "") for edge in self.edges[:-1]]),
            ["to"] + aligned([_text(edge, "") for edge in self.edges[1:]]),
            ["n"] + [str(count) for count in self.counts],
        ]
        for name in shown:
            label, unit = labels[name]
            texts = aligned([_text(value, unit) for value in getattr(self.norm, name)])
            columns.append([label] + texts)
        widths = [max(map(len, column)) for column in columns]
        lines = [
            f"{self.counts.sum()} objects in {len(self)} bins, {self.n_outside} outside, "
            f"{self.n_masked} masked, {self.n_nan} with NaN"
        ]
        for cells in zip(*columns):
            row = "  ".join(cell.rjust(width) for cell, width in zip(cells, widths))
            lines.append(row.rstrip())
        return "\n".join(lines)


@dataclass(frozen=True)
class LsstMetrics:
    """The four point metrics of LSST's photometric-redshift pipelines.

    Attributes
    ----------
    n, n_masked, n_nan : int
        As in `PointStatistics`.
    bias : float
        Median of e = (estimate - reference) / (1 + reference).
    sigma_iqr : float
        Interquartile range of e, divided by 1.349.
    sigma_mad : float
        1.4826 * median of abs(e - median(e)).
    outlier_rate : float
        Fraction of objects, 0 to 1, with abs(e) > max(0.06, 3 * sigma_iqr).
    """

    n: int
    n_masked: int
    n_nan: int
    bias: float
    sigma_iqr: float
    sigma_mad: float
    outlier_rate: float

    def to_dict(self) -> dict[str, int | float]:
        """Return all numbers under the names of the attributes."""
        return asdict(self)


@dataclass(frozen=True)
class Uncertain:
    """A statistic, its error and its confidence interval.

    Attributes
    ----------
    value : float
        The statistic of the objects themselves.
    error : float
        Its standard error.
    low, high : float
        The ends of its confidence interval.

    Examples
    --------
    >>> import vostrel
    >>> print(vostrel.Uncertain(0.021234, 0.00035, 0.02094, 0.02163))
    0.0212 +0.0004 -0.0003
    """

    value: float
    error: float
    low: float
    high: float

    def __str__(self) -> str:
        return _rounded(self, "")


@dataclass(frozen=True)
class UncertainResidualStatistics(PerStatistic[Uncertain]):
    """The statistics of one residual: those of `ResidualStatistics`, each as an `Uncertain`."""


@dataclass(frozen=True, eq=False)
class Uncertainties:
    """The statistics of n objects with their errors.

    ``print(u)`` rounds the smaller half of an interval to one significant
    digit, or to two if the first is 1, and gives the other half and the value
    the same number of decimals. If one half is tiny compared with the other,
    the larger half decides.

    Attributes
    ----------
    n, n_masked, n_nan : int
        As those of `PointStatistics`.
    confidence : float
        The confidence of the intervals.
    method : str
        ``"formula"`` or ``"bootstrap"``.
    delta : UncertainResidualStatistics
        Statistics of the residual: reference - estimate.
    norm : UncertainResidualStatistics
        Statistics of the normalized residual.
    seed : int or None
        The seed of a bootstrap, which gives the same resamples again.
    replicates : ndarray of float64, shape (resamples, 2, statistics), or None
        The numbers of every resample of a bootstrap, first those of `delta`,
        then those of `norm`, in the order of `ResidualStatistics`.
    """

    n: int
    n_masked: int
    n_nan: int
    confidence: float
    method: str
    delta: UncertainResidualStatistics
    norm: UncertainResidualStatistics
    seed: int | None = None
    replicates: NDArray[np.float64] | None = None

    def to_dict(self) -> dict[str, int | float]:
        """Return all numbers under flat names.

        Returns
        -------
        dict
            ``n``, ``n_masked``, ``n_nan``, and four numbers for each
            statistic, such as ``norm_nmad``, ``norm_nmad_error``,
            ``norm_nmad_low`` and ``norm_nmad_high``.
        """
        result: dict[str, int | float] = {
            "n": self.n,
            "n_masked": self.n_masked,
            "n_nan": self.n_nan,
        }
        for part in ("delta", "norm"):
            for name in NAMES:
                estimate = getattr(getattr(self, part), name)
                for field in fields(Uncertain):
                    suffix = "" if field.name == "value" else f"_{field.name}"
                    result[f"{part}_{name}{suffix}"] = getattr(estimate, field.name)
        return result

    def to_frame(self) -> pandas.DataFrame:
        """Return a pandas DataFrame with a row for each statistic. Needs pandas.

        Returns
        -------
        pandas.DataFrame
            Columns ``value``, ``error``, ``low`` and ``high``; rows such as
            ``norm_nmad``.

        Raises
        ------
        ImportError
            If pandas is not installed.
        """
        columns = [field.name for field in fields(Uncertain)]
        rows = {
            f"{part}_{name}": [getattr(getattr(getattr(self, part), name), c) for c in columns]
            for part in ("delta", "norm")
            for name in NAMES
        }
        return import_pandas("to_frame").DataFrame.from_dict(rows, orient="index", columns=columns)

    def __str__(self) -> str:
        objects = f"{self.n} object" + ("" if self.n == 1 else "s")
        lines = [
            f"{objects}, {self.n_masked} masked, {self.n_nan} with NaN; "
            f"{100 * self.confidence:.6g}% intervals by {self.method}"
        ]
        columns = [
            [heading] + aligned([_rounded(getattr(part, name), unit) for name, _, unit in ROWS])
            for heading, part in (("delta", self.delta), ("delta norm", self.norm))
        ]
        label_width = max(len(label) for _, label, _ in ROWS)
        widths = [max(map(len, column)) for column in columns]
        for label, *cells in zip(["", *(label for _, label, _ in ROWS)], *columns):
            row = "  ".join(cell.ljust(width) for cell, width in zip(cells, widths))
            lines.append(f"{label:<{label_width}}  {row}".rstrip())
        if self.method == "formula":
            lines.append("?: there is no formula; use vostrel.bootstrap")
        return "\n".join(lines)


def import_pandas(wanted_by: str) -> Any:
    """Return pandas, or raise an ImportError that says who needs it."""
    try:
        import pandas
    except ImportError as error:
        raise ImportError(f"{wanted_by} needs pandas, which is not installed") from error
    return pandas


def _point(text: str) -> int:
    """Return the place of a number's decimal point, or where it would be."""
    return len(re.split("[.e%]", text)[0])


def aligned(texts: list[str]) -> list[str]:
    """Return the texts padded to one width, with the decimal points aligned."""
    points = [_point(text) for text in texts]
    width = max(points)
    padded = [" " * (width - point) + text for text, point in zip(texts, points)]
    return [text.ljust(max(map(len, padded))) for text in padded]


def _text(value: float, unit: str) -> str:
    """Return the value with six significant digits, as in the report."""
    return f"{value:.6g}{unit}"


def _counted(statistics: PointStatistics) -> str:
    objects = f"{statistics.n} object" + ("" if statistics.n == 1 else "s")
    return f"{objects}, {statistics.n_masked} masked, {statistics.n_nan} with NaN"


def _rounded(estimate: Uncertain, unit: str) -> str:
    """Return the estimate rounded to the digits that its interval justifies."""
    up, down = estimate.high - estimate.value, estimate.value - estimate.low
    if not (math.isfinite(up) and math.isfinite(down)):
        text = f"{estimate.value:.6g}{unit}"
        return text if math.isnan(estimate.value) else f"{text} ?"
    least = 1e-12 * abs(estimate.value)  # less is rounding
    digits = [_decimals(half) for half in (abs(up), abs(down)) if half > least]
    if not digits:
        return f"{estimate.value:.6g}{unit} +0 -0"
    # If one half is tiny compared with the other, the larger half decides.
    places = min(max(digits), min(digits) + 1)
    value, up, down = (round(number, places) + 0.0 for number in (estimate.value, up, down))
    places = max(places, 0)
    return f"{value:.{places}f}{unit} {up:+.{places}f} {-down:+.{places}f}"


def _decimals(half: float) -> int:
    """Return the number of decimals for half of an interval."""
    first, exponent = f"{half:.0e}".split("e")
    return -int(exponent) + (1 if first == "1" else 0)
