"""The results as records with all digits, and as tables for people."""

from __future__ import annotations

from collections.abc import Iterator
from dataclasses import dataclass
from typing import Any

from vostrel._core import VERSION
from vostrel._results import (
    QUANTILES,
    ROWS,
    PointStatistics,
    Row,
    Uncertain,
    Uncertainties,
    _by_statistic,
    _notes,
)
from vostrel._tables import Grid, number
from vostrel.evaluate._compute import Results
from vostrel.evaluate._rows import Roles

#: The two residuals: how the results call them, and how tables do.
PARTS = (("delta", "delta"), ("norm", "delta norm"))

#: The statistics in tables of bins, beside the requested percentiles and outliers.
IN_BINS = ("bias", "sigma", "nmad", "outliers_015")


@dataclass(frozen=True)
class Task:
    """The options of the run, as tables and reports print them."""

    table: str
    command: str
    roles: Roles
    where: str | None
    missing: tuple[float, ...]
    method: str  # of the errors
    confidence: float


@dataclass(frozen=True)
class Record:
    """One number, with all its digits."""

    estimate: str  # or the difference of two
    bin: tuple[float, float] | None
    residual: str
    statistic: str
    unit: str
    value: float | int
    error: float | None = None
    low: float | None = None
    high: float | None = None
    method: str = ""  # of the interval
    reliable: bool | None = None


def heading(task: Task) -> list[str]:
    """Return what the columns are, and the sign of the residuals."""
    roles = task.roles
    columns = [f"reference {roles.reference}"]
    columns += [f"estimate {name}" for name in roles.estimates]
    columns += [f"by {roles.by}"] * (roles.by is not None)
    columns += [f"groups {roles.groups}"] * (roles.groups is not None)
    lines = [
        f"vostrel {VERSION}: {task.table}",
        f"columns: {', '.join(columns)}",
        "delta = reference - estimate, delta norm = delta / (1 + reference)",
    ]
    if task.where is not None:
        lines.append(f"selected: {task.where}")
    if task.missing:
        lines.append(f"missing: {', '.join(f'{value:g}' for value in task.missing)}")
    if task.method != "none":
        intervals = f"{100 * task.confidence:g}% intervals by {task.method}"
        lines.append(f"errors: {intervals}{unpaired(task)}")
    return lines


def unpaired(task: Task) -> str:
    """Return why estimates are not compared, if they are not."""
    if task.method == "formula" and len(task.roles.estimates) > 1:
        return "; differences of estimates have none: --errors bootstrap compares them"
    return ""


def column_counts(results: Results) -> list[str]:
    """Return a line for each column in which entries are masked, missing or NaN."""
    return [
        f"{name}: {counts['masked']} masked, {counts['missing']} missing, {counts['nan']} with NaN"
        for name, counts in results.counts.columns.items()
        if any(counts.values())
    ]


# ---- records -------------------------------------------------------------------------------------


def records(results: Results) -> Iterator[Record]:
    """Yield all numbers."""
    for name, point in results.points.items():
        yield Record(name, None, "", "n", "", point.n)
        yield from _of(name, None, point, results.errors.get(name))
    for names, difference in results.differences.items():
        yield from _of(" - ".join(names), None, difference)
    for name, bins in results.bins.items():
        edges = [float(edge) for edge in bins.edges]
        for i, point in enumerate(bins):
            limits = (edges[i], edges[i + 1])
            yield Record(name, limits, "", "n", "", point.n)
            yield from _of(name, limits, point, _bin_errors(results, name, i))


def _bin_errors(results: Results, name: str, i: int) -> Uncertainties | None:
    return results.bin_errors[name][i] if name in results.bin_errors else None


def _of(
    name: str, limits: tuple[float, float] | None, numbers_of: PointStatistics | Uncertainties,
    errors: Uncertainties | None = None,
) -> Iterator[Record]:
    """Yield the numbers of one estimate, or of one difference."""
    for part in ("delta", "norm"):
        for row in _rows(part, numbers_of, errors):
            one = row.value
            numbers = (
                (one.value, one.error, one.low, one.high, one.method, one.reliable)
                if isinstance(one, Uncertain)
                else (one,)
            )
            yield Record(name, limits, part, row.name, row.unit, *numbers)
    if isinstance(numbers_of, PointStatistics):
        for metric, value in numbers_of.lsst._metrics().items():
            yield Record(name, limits, "lsst", metric, "", value)


def _rows(
    part: str, numbers_of: PointStatistics | Uncertainties, errors: Uncertainties | None
) -> list[Row[Any]]:
    """Return the statistics of one residual, with their errors if there are any."""
    rows: list[Row[Any]] = getattr(errors or numbers_of, part)._rows()
    return rows


# ---- tables for people ---------------------------------------------------------------------------


def grids(results: Results, task: Task) -> Iterator[tuple[str, Grid]]:
    """Yield all tables with their titles."""
    yield from statistic_grids(results)
    yield from difference_grids(results)
    yield from bin_grids(results, task)


def hint(results: Results) -> str:
    """Return the hint about unknown errors."""
    by_formula = any(one.method == "formula" for one in results.errors.values())
    return "; --errors bootstrap knows them" if by_formula else ""


def statistic_grids(results: Results) -> Iterator[tuple[str, Grid]]:
    """Yield the statistics of all objects: one table, or one for each residual."""
    shown = {
        label: {
            name: _rows(part, point, results.errors.get(name))
            for name, point in results.points.items()
        }
        for part, label in PARTS
    }
    names = list(results.points)
    n = results.points[names[0]].n
    if len(names) == 1:
        yield f"{names[0]}: {n} objects", _by_statistic(
            {label: rows[names[0]] for label, rows in shown.items()}, hint(results)
        )
        return
    for label, rows in shown.items():
        yield f"{label}, {n} objects", _by_statistic(rows, hint(results))


def difference_grids(results: Results) -> Iterator[tuple[str, Grid]]:
    """Yield the differences of estimates."""
    for part, label in PARTS:
        if results.differences:
            yield f"differences of {label}", _by_statistic({
                " - ".join(names): getattr(one, part)._rows()
                for names, one in results.differences.items()
            })


def bin_grids(results: Results, task: Task) -> Iterator[tuple[str, Grid]]:
    """Yield the bins of each estimate."""
    by = task.roles.by or task.roles.reference
    for name, bins in results.bins.items():
        title = f"{name}: delta norm in bins of {by}"
        if bins.n_outside:
            title += f", {bins.n_outside} objects outside"
        yield title, _bins(results, name, by)


def _bins(results: Results, name: str, by: str) -> Grid:
    """Return a table with a row for each bin."""
    bins = results.bins[name]
    always = {name for name, _, _ in ROWS + QUANTILES}
    columns = [
        [f"{by} from", *map(number, bins.edges[:-1])],
        ["to", *map(number, bins.edges[1:])],
        ["n", *map(str, bins.counts)],
    ]
    rows = [
        [row for row in _rows("norm", point, _bin_errors(results, name, i))
         if row.name in IN_BINS or row.name not in always]
        for i, point in enumerate(bins)
    ]
    columns += [[cells[0].label, *(cell.text() for cell in cells)] for cells in zip(*rows)]
    return Grid(columns, _notes(columns, hint(results)))
