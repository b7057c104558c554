"""All statistics of objects in bins."""

from __future__ import annotations

import math
from contextlib import suppress
from dataclasses import replace
from functools import partial
from typing import TYPE_CHECKING, Any

import numpy as np

from vostrel import _core
from vostrel._exchange import has
from vostrel._inputs import Columns, NanPolicy, check_counts, prepare
from vostrel._options import Numbers, check_flag, read_asked, read_integer, shown
from vostrel._results import (
    BinnedLsstMetrics,
    BinnedResidualStatistics,
    BinnedStatistics,
    Uncertainties,
)
from vostrel._uncertainties import CONFIDENCE, by_formula

if TYPE_CHECKING:
    from numpy.typing import NDArray

#: More bins would need more memory than most machines have.
MOST_BINS = 100_000


def binned_statistics(
    reference: Any,
    estimate: Any,
    by: Any | None = None,
    *,
    bins: int | tuple[str, int] | Any = 10,
    range: tuple[float, float] | None = None,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    mask: Any | None = None,
    nan_policy: NanPolicy = "raise",
    uncertainties: bool = False,
) -> BinnedStatistics:
    """Compute error statistics of estimates in bins of a quantity.

    Parameters
    ----------
    reference, estimate : array_like, shape (n,)
        Reference and estimated values. Dimensionless.
    by : array_like, shape (n,), optional
        The quantity to bin by, such as a magnitude; by default the
        reference. A unit is ignored. Masked entries and NaN are treated like
        those of the other columns.
    bins : int, array_like of float or ("count", int)
        The number of bins of equal width; or their edges, shape (k + 1,),
        none less than the one before; or ``("count", k)`` for k bins of
        equal counts. At most 100,000 bins. Edges with a unit are converted
        into that of `by`.
    range : (float, float), optional
        The lower and upper end of a number of bins. By default the smallest
        and the largest value. Objects outside are counted and left out. A
        unit is converted into that of `by`.
    percentiles, outliers : float or array_like of float, optional
        As in `point_statistics`.
    mask : array_like of bool, shape (n,), optional
        True leaves an object out, as a masked entry does.
    nan_policy : {"raise", "omit", "propagate"}
        What to do with objects that have NaN: raise a ValueError, leave them
        out, or make the results of their bin NaN. An object whose `by` is NaN
        is in no bin.
    uncertainties : bool
        Also compute the errors and 68.3% intervals of each bin by formula.
        They are those of the function `uncertainties` for the objects of the
        bin. Takes 16 bytes an object in a bin.

    Returns
    -------
    BinnedStatistics
        The numbers of `point_statistics`, each as an array over the bins.
        Each bin has the same bits as `point_statistics` of its objects in
        their order. An empty bin has NaN and the count 0.

    Raises
    ------
    ValueError
        As for `point_statistics`; also if edges decrease, if a range is
        not finite or its ends are in the wrong order, or if `by` is infinite
        and there is no range.
    TypeError
        As for `point_statistics`; also if `bins` is something else.

    Notes
    -----
    A bin holds its lower edge but not its upper edge. The last bin holds
    both. Each bin has the same objects as in `numpy.histogram`. So a bin
    between two equal edges is empty, unless it is the last.

    The edges of bins of equal counts are the values of the ranks 0, n / k,
    2 n / k, ..., rounded down, and the largest value. Without repeated values
    the counts differ by at most one. Equal values are always in one bin: if
    they repeat often enough, two edges are equal.

    Examples
    --------
    >>> import vostrel
    >>> b = vostrel.binned_statistics([0.5, 1.0, 1.5, 2.0], [0.4, 1.1, 1.4, 2.3],
    ...                               bins=[0, 1, 2])
    >>> b.counts
    array([1, 3])
    >>> round(b[1].delta.mad, 6)
    0.1
    """
    asked = read_asked(percentiles, outliers)
    given = {"reference": reference, "estimate": estimate}
    if by is not None:
        given["by"] = by
    columns = prepare(nan_policy, mask, **given)
    check_flag("uncertainties", uncertainties)
    kind, value = _read_bins(_without_unit("bins", bins, by))
    if range is not None and kind != "width":
        raise ValueError("range needs a number of bins; edges and equal counts define their own")
    if range is not None:
        value = _equal_widths(*_read_range(_without_unit("range", range, by)), value)
        kind = "edges"
    omit = nan_policy == "omit"

    def compute(looks_for_nan: bool) -> tuple[Any, ...]:
        edges = value
        if kind != "edges":
            edges = _find_edges(columns, nan_policy, kind, value, looks_for_nan)
        return edges, *_core.binned_statistics(
            columns.values, columns.masks, omit, edges.tolist(), *asked, looks_for_nan
        )

    # To look for NaN takes a tenth of the time. The sums of the first pass tell if it is needed.
    found: tuple[Any, ...] = ()
    with suppress(ValueError):  # perhaps because of objects with NaN
        found = compute(looks_for_nan=False)
    if not found:
        found = compute(looks_for_nan=True)
    edges, n, n_masked, n_nan, *unsigned, n_outside, numbers, metrics = found
    check_counts(nan_policy, n, n_masked, n_nan, columns)
    counts, nan_counts = (array.astype(np.int64) for array in unsigned)
    for array in (edges, counts, nan_counts, numbers, metrics):
        array.flags.writeable = False
    result = BinnedStatistics(
        edges=edges,
        counts=counts,
        nan_counts=nan_counts,
        n_masked=n_masked,
        n_nan=n_nan,
        n_outside=n_outside,
        delta=BinnedResidualStatistics._of(numbers[0], asked),
        norm=BinnedResidualStatistics._of(numbers[1], asked),
        lsst=BinnedLsstMetrics(*metrics),
    )
    if uncertainties:
        result = replace(result, uncertainties=_by_formula(columns, result, omit))
    return result


def _find_edges(
    columns: Columns, nan_policy: NanPolicy, kind: str, number: int, looks_for_nan: bool
) -> NDArray[np.float64]:
    """Return the edges that depend on the values."""
    omit = nan_policy == "omit"
    if not looks_for_nan:
        columns = Columns(columns.values[2:] or columns.values[:1], columns.masks)
    # Ranks need the number of objects without NaN.
    n, n_masked, n_nan, low, high = _core.survey(
        columns.values, columns.masks, omit, looks_for_nan or kind == "count"
    )
    check_counts(nan_policy, n, n_masked, n_nan, columns)
    if kind == "count":
        return equal_counts(columns, n if omit else n - n_nan, number, n_nan != 0)
    if low > high:
        raise ValueError("there are no values to find the range of the bins; pass range")
    if not (math.isfinite(low) and math.isfinite(high)):
        raise ValueError("infinite values have no bins of equal width; pass range or edges")
    return _equal_widths(low, high, number)


def _by_formula(columns: Columns, bins: BinnedStatistics, omit: bool) -> tuple[Uncertainties, ...]:
    """Return the uncertainties of each bin."""
    objects = _core.ObjectsInBins(columns.values, columns.masks, bins.edges.tolist())
    result = []
    for i, known in enumerate(bins):
        n = 0 if known.n_nan and not omit else known.n
        delta, norm, lsst = by_formula(
            n, bins.delta._asked(), partial(objects.statistics, i), CONFIDENCE
        )
        result.append(
            Uncertainties(known.n, 0, known.n_nan, CONFIDENCE, "formula", delta, norm, lsst=lsst)
        )
    return tuple(result)


def fixed_edges(bins: Any, range: tuple[float, float] | None) -> NDArray[np.float64]:
    """Return the edges of bins that don't depend on the data."""
    kind, value = _read_bins(bins)
    if kind == "edges" and range is not None:
        raise ValueError("range needs a number of bins; edges define their own")
    if kind == "edges":
        edges: NDArray[np.float64] = value
        return edges
    if kind == "width" and range is not None:
        return _equal_widths(*_read_range(range), value)
    raise ValueError("chunks need fixed bins: pass edges as bins, or a number of bins and range")


def _without_unit(name: str, value: Any, by: Any) -> Any:
    """Return edges or a range of astropy as numbers in the unit of `by`."""
    unit, wanted = getattr(value, "unit", None), getattr(by, "unit", None)
    if unit is None or wanted is None:
        return value  # a unit of the edges alone is refused where they are read
    try:
        return value.to(wanted).value
    except Exception:
        raise TypeError(
            f"{name} has the unit '{unit}', which can't be converted into that of by, '{wanted}'"
        ) from None


def _read_bins(bins: Any) -> tuple[str, Any]:
    """Return "width" or "count" and the number of bins, or "edges" and the edges."""
    wanted = "bins must be a number, edges or ('count', k)"
    if isinstance(bins, tuple) and len(bins) == 2 and isinstance(bins[0], str):
        if bins[0] != "count":
            raise ValueError(f"{wanted}, not {shown(bins)}")
        return "count", read_integer("k of bins=('count', k)", bins[1], 1, MOST_BINS)
    if isinstance(bins, (str, bytes, dict, set)) or bins is None:
        raise TypeError(f"{wanted}, not {shown(bins)}")
    if not has(bins, "__arrow_c_stream__") and np.ndim(bins) == 0:
        return "width", read_integer("bins", bins, 1, MOST_BINS)
    columns = prepare("raise", None, bins=bins)
    edges: NDArray[np.float64] = np.array(columns.values[0], np.float64)
    if any(mask.any() for mask in columns.masks) or np.isnan(edges).any():
        raise ValueError("bins must have no masked edges and no NaN")
    if len(edges) < 2:
        raise ValueError(f"bins must have two edges or more, not {len(edges)}")
    if len(edges) > MOST_BINS + 1:
        raise ValueError(f"bins must be at most {MOST_BINS}, not {len(edges) - 1}")
    falls = np.flatnonzero(edges[1:] < edges[:-1])
    if len(falls):
        i = int(falls[0])
        raise ValueError(
            f"bins must not decrease, but edge {i} is {edges[i]:g}, and the next {edges[i + 1]:g}"
        )
    return "edges", edges


def _equal_widths(low: float, high: float, number: int) -> NDArray[np.float64]:
    """Return the edges that numpy.histogram would use."""
    if low == high:
        low, high = low - 0.5, high + 0.5
    with np.errstate(over="ignore", invalid="ignore"):
        edges: NDArray[np.float64] = np.linspace(low, high, number + 1)
    if not np.isfinite(edges).all():
        raise ValueError(f"the range from {low} to {high} is too wide for bins of equal width")
    return edges


def _read_range(limits: Any) -> tuple[float, float]:
    """Return the lower and the upper end."""
    try:
        if isinstance(limits, (str, bytes, dict, set)):
            raise TypeError
        low, high = (float(limit) for limit in limits)
    except (TypeError, ValueError):
        raise TypeError(f"range must be a pair of numbers, not {shown(limits)}") from None
    if not (math.isfinite(low) and math.isfinite(high)):
        raise ValueError(f"range must be finite, not from {low} to {high}")
    if low > high:
        raise ValueError(f"range must go from the lower to the upper end, not from {low} to {high}")
    return low, high


def equal_counts(
    columns: Columns, n: int, number: int, has_nan: bool = True
) -> NDArray[np.float64]:
    """Return edges of bins with as nearly equal counts as possible."""
    if n == 0:
        raise ValueError("there are no values to find bins of equal counts")
    ranks = [i * n // number for i in np.arange(number).tolist()] + [n - 1]
    return _core.order_values(columns.values, columns.masks, n, ranks, has_nan)
