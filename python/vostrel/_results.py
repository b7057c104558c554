"""The results that the functions return."""

from __future__ import annotations

import math
import operator
from collections.abc import Iterable, Iterator, Mapping, Sequence
from dataclasses import asdict, dataclass, fields, replace
from typing import TYPE_CHECKING, Any, Generic, TypeVar, overload

import numpy as np

from vostrel import _core
from vostrel._options import Asked, shown
from vostrel._tables import Grid, Result, clipped, interval, number, optional

if TYPE_CHECKING:  # importing the package must be quick
    import pandas
    from numpy.typing import NDArray

T = TypeVar("T")
Part = TypeVar("Part", bound="PerStatistic[Any]")


class ByNumber(Mapping[float, T]):
    """Values by requested number, such as a percentile. Read-only."""

    def __init__(self, option: str = "", values: Iterable[tuple[float, T]] = ()) -> None:
        self._option = option
        self._values = dict(values)

    def __getitem__(self, number: float) -> T:
        if number not in self._values:
            raise KeyError(f"request it with {self._option}=({shown(number)},)")
        return self._values[number]

    def __iter__(self) -> Iterator[float]:
        return iter(self._values)

    def __len__(self) -> int:
        return len(self._values)

    def __hash__(self) -> int:
        return hash(tuple(self._values.items()))

    def __repr__(self) -> str:
        return repr(self._values)


@dataclass(frozen=True, eq=False, repr=False)
class PerStatistic(Result, Generic[T]):
    """The statistics of one residual: those of the program's report in its order, and others."""

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
    median: T = None  # type: ignore[assignment]
    sigma_68: T = None  # type: ignore[assignment]
    sigma_iqr: T = None  # type: ignore[assignment]
    percentiles: Mapping[float, T] = ByNumber()
    outliers: Mapping[float, T] = ByNumber()

    @classmethod
    def _of(cls: type[Part], values: Sequence[Any], asked: Asked) -> Part:
        """Return the statistics from the values of the rows."""
        fixed = len(ROWS) + len(QUANTILES)
        last = fixed + len(asked.percentiles)
        by_number = {
            "percentiles": ByNumber("percentiles", zip(asked.percentiles, values[fixed:last])),
            "outliers": ByNumber("outliers", zip(asked.outliers, values[last:])),
        }
        return cls(*values[:fixed], **by_number)

    def _asked(self) -> Asked:
        return Asked(tuple(self.percentiles), tuple(self.outliers))

    def _rows(self) -> list[Row[T]]:
        """Return all statistics that are known. What is printed and converted comes from here."""
        rows = [
            Row(name, label, unit, getattr(self, name)) for name, label, unit in ROWS + QUANTILES
        ]
        for percent, value in self.percentiles.items():
            name = percentile_name(percent)
            rows.append(Row(name, f"P{name[1:]}", "", value))
        for bound, value in self.outliers.items():
            text = _plain(bound)
            rows.append(Row(f"outliers_{text}", f"outliers >{text}", "%", value))
        return [row for row in rows if row.value is not None]

    def _shown(self) -> list[Row[T]]:
        """Return the statistics that a short table shows."""
        return [row for row in self._rows() if row.name in SHOWN]


@dataclass(frozen=True)
class Row(Generic[T]):
    """A statistic: its flat name, its label in the report, its unit and its value."""

    name: str
    label: str
    unit: str
    value: T

    def text(self) -> str:
        """Return the value as it is printed."""
        if isinstance(self.value, Uncertain):
            return self.value.text(self.unit)
        return number(self.value, self.unit)  # type: ignore[arg-type]


@dataclass(frozen=True, repr=False)
class ResidualStatistics(PerStatistic[float]):
    """The statistics of one residual r of n objects.

    Outliers are percentages, 0 to 100. The others have the unit of the
    residual; redshifts are dimensionless. `to_frame` has a row for each
    statistic.

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
    median : float
        Median of r.
    sigma_68 : float
        Half of the distance from the 16th to the 84th percentile.
    sigma_iqr : float
        Interquartile range, divided by 1.349.
    percentiles : mapping of float to float
        The requested percentiles of r: ``percentiles[16]``. In flat
        names they are ``p16``, ``p97.5`` and so on.
    outliers : mapping of float to float
        Percentage of objects with abs(r) beyond each requested bound:
        ``outliers[0.2]``. In flat names they are ``outliers_0.2`` and so on.
    """

    _INDEX = ("statistic",)

    def to_dict(self) -> dict[str, float]:
        """Return all numbers under the names of the attributes."""
        return {row.name: row.value for row in self._rows()}

    def _table(self) -> dict[str, Any]:
        rows = self._rows()
        return {"statistic": [row.name for row in rows], "value": [row.value for row in rows]}

    def _grid(self) -> Grid:
        return _by_statistic({"value": self._rows()})

    def _summary(self) -> Grid:
        return _by_part({"": self._shown()})


class BinnedResidualStatistics(PerStatistic["NDArray[np.float64]"]):
    """The statistics of one residual in k bins: `ResidualStatistics`, but arrays of shape (k,).

    `to_frame` has a row for each bin.
    """

    def to_dict(self) -> dict[str, list[float]]:
        """Return the numbers of all bins as lists, under the names of the attributes."""
        return {row.name: row.value.tolist() for row in self._rows()}

    def _table(self) -> dict[str, Any]:
        return {row.name: row.value for row in self._rows()}

    def _grid(self) -> Grid:
        bins = [str(i) for i in range(len(self.bias))]
        return Grid([["bin", *bins]] + [_binned(row) for row in self._shown()])


#: The attributes of ResidualStatistics that the report has, in its order.
NAMES = tuple(field.name for field, _ in zip(fields(PerStatistic), _core.STATISTICS))

#: Attribute, label and unit of each of them.
ROWS = tuple((name, label, unit) for name, (label, _, _, unit) in zip(NAMES, _core.STATISTICS))

#: Attribute, label and unit of the others that are always there.
QUANTILES = (
    ("median", "median", ""),
    ("sigma_68", "sigma_68", ""),
    ("sigma_iqr", "sigma_IQR", ""),
)

#: The statistics that short tables show.
SHOWN = ("bias", "nmad", "outliers_015")


@dataclass(frozen=True, repr=False)
class PointStatistics(Result):
    """The statistics of n objects.

    `to_frame` has a row for each statistic, and the columns ``delta`` and
    ``norm``.

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
    lsst : LsstMetrics
        The same objects by LSST's metrics, whose residual has the other sign.
    """

    n: int
    n_masked: int
    n_nan: int
    delta: ResidualStatistics
    norm: ResidualStatistics
    lsst: LsstMetrics = None  # type: ignore[assignment]

    _INDEX = ("statistic",)

    def to_dict(self) -> dict[str, int | float]:
        """Return all numbers under flat names such as ``"norm_nmad"``.

        Returns
        -------
        dict
            ``n``, ``n_masked``, ``n_nan``, the statistics of ``delta``,
            those of ``norm``, and ``lsst_bias`` and so on, in this order.

        Examples
        --------
        >>> import vostrel
        >>> s = vostrel.point_statistics([0.5, 1.0], [0.75, 1.5])
        >>> s.to_dict()["delta_bias"]
        -0.375
        """
        metrics = {} if self.lsst is None else self.lsst._metrics("lsst_")
        return {**_counts(self), **_flat(self), **metrics}

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
        series: pandas.Series[Any] = optional("pandas", "to_series").Series(
            self.to_dict(), dtype="float64"
        )
        return series

    def _caption(self) -> str:
        return _counted(self)

    def _table(self) -> dict[str, Any]:
        delta, norm = self.delta._table(), self.norm._table()
        return {"statistic": delta["statistic"], "delta": delta["value"], "norm": norm["value"]}

    def _grid(self) -> Grid:
        return _by_statistic({"delta": self.delta._rows(), "delta norm": self.norm._rows()})

    def _summary(self) -> Grid:
        return _by_part({"delta": self.delta._shown(), "delta norm": self.norm._shown()})


@dataclass(frozen=True, eq=False, repr=False)
class BinnedStatistics(Result):
    """The statistics of objects in k bins.

    ``b[i]`` is the `PointStatistics` of bin i, ``b[1:3]`` has these bins
    alone, and ``b["norm_nmad"]`` is a column of `to_frame`. That has a row
    for each bin and the columns ``low`` and ``high`` (the edges), ``n``,
    ``n_nan`` and the numbers under flat names such as ``norm_nmad``. With
    uncertainties, ``norm_nmad_error``, ``norm_nmad_low`` and
    ``norm_nmad_high`` follow, and the like.

    Attributes
    ----------
    edges : ndarray of float64, shape (k + 1,)
        Bin i holds the objects from ``edges[i]`` up to but not including
        ``edges[i + 1]``; the last bin holds its upper edge too. A bin keeps
        its objects in ``b[1:3]``.
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
    lsst : BinnedLsstMetrics
        LSST's metrics, each an array.
    uncertainties : tuple of Uncertainties or None
        On request: the errors of each bin by formula. NaN for an empty bin.

    Examples
    --------
    >>> import vostrel
    >>> b = vostrel.binned_statistics([0.5, 1.0, 1.5, 2.0], [0.4, 1.1, 1.4, 2.3], bins=3)
    >>> b
    BinnedStatistics: 4 objects in 3 bins, 0 outside, 0 masked, 0 with NaN
    from   to  n   bias norm  NMAD norm  outliers norm >0.15
     0.5  1    1   0.0666667   0.09884                    0%
     1    1.5  1  -0.05        0.07413                    0%
     1.5  2    2  -0.03        0.103782                   0%
    >>> b["n"], b[1:]["n"], b[-1].n
    (array([1, 1, 2]), array([1, 2]), 2)
    """

    edges: NDArray[np.float64]
    counts: NDArray[np.int64]
    nan_counts: NDArray[np.int64]
    n_masked: int
    n_nan: int
    n_outside: int
    delta: BinnedResidualStatistics
    norm: BinnedResidualStatistics
    lsst: BinnedLsstMetrics
    uncertainties: tuple[Uncertainties, ...] | None = None

    def __len__(self) -> int:
        return len(self.counts)

    @overload
    def __getitem__(self, index: int) -> PointStatistics: ...
    @overload
    def __getitem__(self, index: slice) -> BinnedStatistics: ...
    @overload
    def __getitem__(self, index: str) -> NDArray[Any]: ...

    def __getitem__(
        self, index: int | slice | str
    ) -> PointStatistics | BinnedStatistics | NDArray[Any]:
        if isinstance(index, slice):
            return self._sliced(index)
        if isinstance(index, str):
            columns = self._table()
            if index not in columns:
                raise KeyError(_no_column(index, columns))
            column: NDArray[Any] = columns[index]
            return column
        return self._bin(index)

    def _bin(self, index: Any) -> PointStatistics:
        try:
            i = operator.index(index)
        except TypeError:
            raise TypeError(
                "bins are chosen by a number, a slice or the name of a column, "
                f"not {type(index).__name__}"
            ) from None
        if not -len(self) <= i < len(self):
            raise IndexError(f"there is no bin {i}: there are {len(self)}")
        delta, norm = (
            ResidualStatistics._of([float(row.value[i]) for row in part._rows()], part._asked())
            for part in (self.delta, self.norm)
        )
        counts = int(self.counts[i]), 0, int(self.nan_counts[i])
        metrics = (float(values[i]) for values in self.lsst._metrics().values())
        return PointStatistics(*counts, delta, norm, LsstMetrics(*counts, *metrics))

    def _sliced(self, index: slice) -> BinnedStatistics:
        first, last, step = index.indices(len(self))
        if step != 1:
            raise ValueError(f"the step of a slice of bins must be 1, not {step}")
        part = slice(first, max(first, last))
        # Objects with NaN are counted in bins that are NaN, and then are not outside either.
        with_nan = np.isnan(self.delta.outliers_015) * self.nan_counts
        inside = self.counts - with_nan * (self.counts > 0)
        delta, norm = (
            BinnedResidualStatistics._of(
                [row.value[part] for row in residual._rows()], residual._asked()
            )
            for residual in (self.delta, self.norm)
        )
        return replace(
            self,
            edges=self.edges[part.start : part.stop + 1],
            counts=self.counts[part],
            nan_counts=self.nan_counts[part],
            n_outside=self.n_outside + int(inside.sum() - inside[part].sum()),
            delta=delta,
            norm=norm,
            lsst=BinnedLsstMetrics(*(values[part] for values in self.lsst._metrics().values())),
            uncertainties=None if self.uncertainties is None else self.uncertainties[part],
        )

    def __iter__(self) -> Iterator[PointStatistics]:
        return (self._bin(index) for index in range(len(self)))

    def to_dict(self) -> dict[str, list[int | float]]:
        """Return the columns of `to_frame` as lists."""
        return {name: column.tolist() for name, column in self._table().items()}

    def _table(self) -> dict[str, Any]:
        columns: dict[str, NDArray[Any]] = {
            "low": self.edges[:-1],
            "high": self.edges[1:],
            "n": self.counts,
            "n_nan": self.nan_counts,
        }
        for part in ("delta", "norm"):
            for row in getattr(self, part)._rows():
                columns[f"{part}_{row.name}"] = row.value
        columns.update(self.lsst._metrics("lsst_"))
        if self.uncertainties:
            rows = [one.to_dict() for one in self.uncertainties]
            for name in rows[0]:
                if name.endswith(("_error", "_low", "_high")):
                    columns[name] = np.array([row[name] for row in rows])
        return columns

    def _caption(self) -> str:
        return (
            f"{_objects(int(self.counts.sum()))} in {len(self)} bins, {self.n_outside} outside, "
            f"{self.n_masked} masked, {self.n_nan} with NaN"
        )

    def _grid(self) -> Grid:
        columns = [
            ["from", *map(number, self.edges[:-1])],
            ["to", *map(number, self.edges[1:])],
            ["n", *map(str, self.counts)],
        ]
        if self.uncertainties is None:
            columns += [_binned(row) for row in self.norm._shown()]
            return Grid(columns)
        shown = [one.norm._shown() for one in self.uncertainties]
        for i, row in enumerate(self.norm._shown()):
            columns.append([_norm_label(row), *(rows[i].text() for rows in shown)])
        return Grid(columns, _notes(columns, NO_FORMULA))


#: The attributes of LsstMetrics that are metrics.
METRICS = ("bias", "sigma_iqr", "sigma_mad", "outlier_rate")


@dataclass(frozen=True, repr=False)
class LsstMetrics(Result):
    """The four point metrics of LSST's photometric-redshift pipelines.

    `to_frame` has a row for each metric.

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

    _INDEX = ("metric",)

    def to_dict(self) -> dict[str, int | float]:
        """Return all numbers under the names of the attributes."""
        return asdict(self)

    def _metrics(self, prefix: str = "") -> dict[str, float]:
        return {prefix + name: getattr(self, name) for name in METRICS}

    def _caption(self) -> str:
        return _counted(self)

    def _table(self) -> dict[str, Any]:
        metrics = self._metrics()
        return {"metric": list(metrics), "value": list(metrics.values())}

    def _grid(self) -> Grid:
        return Grid([["", *METRICS], ["value", *map(number, self._metrics().values())]])


@dataclass(frozen=True, eq=False, repr=False)
class BinnedLsstMetrics(Result):
    """The metrics of LSST in k bins: those of `LsstMetrics`, but arrays of shape (k,).

    `to_frame` has a row for each bin.
    """

    bias: NDArray[np.float64]
    sigma_iqr: NDArray[np.float64]
    sigma_mad: NDArray[np.float64]
    outlier_rate: NDArray[np.float64]

    def to_dict(self) -> dict[str, list[float]]:
        """Return the numbers of all bins as lists, under the names of the attributes."""
        return {name: values.tolist() for name, values in self._metrics().items()}

    def _metrics(self, prefix: str = "") -> dict[str, NDArray[np.float64]]:
        return {prefix + name: getattr(self, name) for name in METRICS}

    def _table(self) -> dict[str, Any]:
        return self._metrics()

    def _grid(self) -> Grid:
        bins = [str(i) for i in range(len(self.bias))]
        columns = [[name, *map(number, values)] for name, values in self._metrics().items()]
        return Grid([["bin", *bins], *columns])


@dataclass(frozen=True, repr=False)
class Uncertain(Result):
    """A statistic, its error and its confidence interval.

    ``float(u)`` and ``format(u, ".3f")`` are those of the value. ``print(u)``
    rounds to the digits that the interval justifies.

    Attributes
    ----------
    value : float
        The statistic of the objects themselves.
    error : float
        Its standard error.
    low, high : float
        The ends of its confidence interval.
    method : str
        How the interval was found.
    reliable : bool
        Whether the interval is reliable. If not, ``print`` adds a "!".

    Examples
    --------
    >>> import vostrel
    >>> u = vostrel.Uncertain(0.021234, 0.00035, 0.02094, 0.02163)
    >>> u
    Uncertain(0.0212 +0.0004 -0.0003)
    >>> print(f"{u} or {u:.3f}")
    0.0212 +0.0004 -0.0003 or 0.021
    """

    value: float
    error: float
    low: float
    high: float
    method: str = ""
    reliable: bool = True

    def text(self, unit: str = "") -> str:
        """Return the rounded value and interval with the unit of the value."""
        text = interval(self.value, self.low, self.high, unit)
        return text if self.reliable or math.isnan(self.high - self.low) else f"{text} !"

    def to_dict(self) -> dict[str, Any]:
        """Return all attributes."""
        return asdict(self)

    def __float__(self) -> float:
        return float(self.value)

    def __format__(self, form: str) -> str:
        return format(self.value, form) if form else self.text()

    def __str__(self) -> str:
        return self.text()

    def __repr__(self) -> str:
        return f"Uncertain({self.text()})"

    def _table(self) -> dict[str, Any]:
        return {name: [value] for name, value in asdict(self).items()}

    def _grid(self) -> Grid:
        columns = [["", ""]] + [[name, number(getattr(self, name))] for name in NUMBERS]
        return Grid(columns, _notes([[self.text()]]))


#: What to do about an error that is not known by formula.
NO_FORMULA = "; use vostrel.bootstrap"

#: The numbers of Uncertain.
NUMBERS = ("value", "error", "low", "high")


@dataclass(frozen=True, repr=False)
class UncertainResidualStatistics(PerStatistic[Uncertain]):
    """The statistics of one residual: those of `ResidualStatistics`, each as an `Uncertain`.

    `to_frame` has a row for each statistic, and the columns ``value``,
    ``error``, ``low``, ``high``, ``method`` and ``reliable``.
    """

    _INDEX = ("statistic",)

    def to_dict(self) -> dict[str, float]:
        """Return four numbers for each statistic, such as ``nmad``, ``nmad_error``, ``nmad_low``
        and ``nmad_high``.
        """
        return _four_numbers(self._rows())

    def _table(self) -> dict[str, Any]:
        return _uncertain_columns([("", self)])

    def _grid(self) -> Grid:
        return _by_statistic({"value": self._rows()})

    def _summary(self) -> Grid:
        return _by_part({"": self._shown()})


@dataclass(frozen=True, repr=False)
class UncertainLsstMetrics(Result):
    """The metrics of LSST: those of `LsstMetrics`, each as an `Uncertain`.

    `to_frame` has a row for each metric, and the columns ``value``,
    ``error``, ``low``, ``high``, ``method`` and ``reliable``.
    """

    bias: Uncertain
    sigma_iqr: Uncertain
    sigma_mad: Uncertain
    outlier_rate: Uncertain

    _INDEX = ("statistic",)

    def to_dict(self) -> dict[str, float]:
        """Return four numbers for each metric, such as ``bias``, ``bias_error``, ``bias_low`` and
        ``bias_high``.
        """
        return _four_numbers(self._rows())

    def _rows(self) -> list[Row[Uncertain]]:
        return [Row(name, name, "", getattr(self, name)) for name in METRICS]

    def _table(self) -> dict[str, Any]:
        return _uncertain_columns([("", self)])

    def _grid(self) -> Grid:
        return _by_statistic({"value": self._rows()})


@dataclass(frozen=True, eq=False, repr=False)
class Uncertainties(Result):
    """The statistics of n objects with their errors.

    ``print(u)`` rounds the smaller half of an interval to one significant
    digit, or to two if the first is 1, and gives the other half and the value
    the same number of decimals. If one half is tiny compared with the other,
    the larger half decides. A "?" marks an unknown error, and a "!" an
    unreliable interval.

    `to_frame` has rows such as ``norm_nmad``, and the columns ``value``,
    ``error``, ``low``, ``high``, ``method`` and ``reliable``.

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
        then those of `norm`, in the order of the rows of `ResidualStatistics`.
    lsst : UncertainLsstMetrics
        LSST's metrics.
    lsst_replicates : ndarray of float64, shape (resamples, 4), or None
        LSST's metrics of every resample.
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
    lsst: UncertainLsstMetrics = None  # type: ignore[assignment]
    lsst_replicates: NDArray[np.float64] | None = None

    _INDEX = ("statistic",)

    def to_dict(self) -> dict[str, int | float]:
        """Return all numbers under flat names.

        Returns
        -------
        dict
            ``n``, ``n_masked``, ``n_nan``, and four numbers for each
            statistic, such as ``norm_nmad``, ``norm_nmad_error``,
            ``norm_nmad_low`` and ``norm_nmad_high``; those of LSST's metrics
            begin with ``lsst_``.
        """
        metrics = {f"lsst_{name}": value for name, value in self.lsst.to_dict().items()}
        return {**_counts(self), **_flat(self), **metrics}

    def _caption(self) -> str:
        return f"{_counted(self)}; {100 * self.confidence:.6g}% intervals by {self.method}"

    def _table(self) -> dict[str, Any]:
        return _uncertain_columns(
            [("delta_", self.delta), ("norm_", self.norm), ("lsst_", self.lsst)]
        )

    def _grid(self) -> Grid:
        parts = {"delta": self.delta._rows(), "delta norm": self.norm._rows()}
        return _by_statistic(parts, NO_FORMULA if self.method == "formula" else "")

    def _summary(self) -> Grid:
        return _by_part({"delta": self.delta._shown(), "delta norm": self.norm._shown()})


def _no_column(name: str, columns: Iterable[str]) -> str:
    """Return the message for a column that there isn't."""
    from difflib import get_close_matches  # imported here: importing the package must be quick

    close = " or ".join(map(repr, get_close_matches(name, columns)))
    hint = f"did you mean {close}?" if close else "to_frame().columns has the names"
    return f"there is no column {shown(name)}: {hint}"


def _counts(result: Any) -> dict[str, int]:
    return {"n": result.n, "n_masked": result.n_masked, "n_nan": result.n_nan}


def _flat(result: Any) -> dict[str, float]:
    """Return the numbers of both residuals, under names that begin with the residual."""
    return {
        f"{part}_{name}": value
        for part in ("delta", "norm")
        for name, value in getattr(result, part).to_dict().items()
    }


def percentile_name(percent: float) -> str:
    """Return the name of a percentile in flat names."""
    return f"p{_plain(percent)}"


def _plain(value: float) -> str:
    """Return a requested number in the form that names have."""
    return repr(value).removesuffix(".0")


def _objects(n: int) -> str:
    return f"{n} object" + ("" if n == 1 else "s")


def _counted(result: Any) -> str:
    return f"{_objects(result.n)}, {result.n_masked} masked, {result.n_nan} with NaN"


def _by_statistic(parts: dict[str, list[Row[Any]]], hint: str = "") -> Grid:
    """Return a grid with a row for each statistic, and a column for each part."""
    first = next(iter(parts.values()))
    columns = [["", *(row.label for row in first)]]
    columns += [[heading, *(row.text() for row in rows)] for heading, rows in parts.items()]
    return Grid(columns, _notes(columns, hint))


def _by_part(parts: dict[str, list[Row[Any]]]) -> Grid:
    """Return a grid with a row for each part, and a column for each statistic."""
    columns = [["", *parts]] if len(parts) > 1 else []
    for rows in zip(*parts.values()):
        columns.append([rows[0].label, *(row.text() for row in rows)])
    return Grid(columns, _notes(columns))


def compared(results: dict[str, Uncertainties]) -> Grid:
    """Return a grid with a row for each result, of its normalized residual."""
    columns = [["", *(clipped(str(name), 30) for name in results)]]
    for rows in zip(*(one.norm._shown() for one in results.values())):
        columns.append([_norm_label(rows[0]), *(row.text() for row in rows)])
    return Grid(columns, _notes(columns))


def _binned(row: Row[NDArray[np.float64]]) -> list[str]:
    """Return a column with a cell for each bin."""
    return [_norm_label(row), *(number(value, row.unit) for value in row.value)]


def _norm_label(row: Row[Any]) -> str:
    """Return the label of the statistic of the normalized residual."""
    return dict(zip(NAMES, (norm for _, norm, _, _ in _core.STATISTICS)))[row.name]


def _four_numbers(rows: Iterable[Row[Uncertain]]) -> dict[str, float]:
    """Return the numbers of each estimate under flat names."""
    return {
        row.name + ("" if name == "value" else f"_{name}"): getattr(row.value, name)
        for row in rows
        for name in NUMBERS
    }


def _uncertain_columns(
    parts: Sequence[tuple[str, UncertainResidualStatistics | UncertainLsstMetrics]]
) -> dict[str, Any]:
    rows = [(prefix + row.name, row.value) for prefix, part in parts for row in part._rows()]
    columns: dict[str, Any] = {"statistic": [name for name, _ in rows]}
    for field in fields(Uncertain):
        columns[field.name] = [getattr(uncertain, field.name) for _, uncertain in rows]
    return columns


def _notes(columns: list[list[str]], hint: str = "") -> tuple[str, ...]:
    """Return what the marks in the cells mean."""
    cells = [cell for column in columns for cell in column]
    notes = {
        " ?": f"?: the error is not known{hint}",
        " !": "!: this interval can't be trusted",
    }
    return tuple(note for mark, note in notes.items() if any(mark in cell for cell in cells))
