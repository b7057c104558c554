"""The page of --report: one file with everything, which loads nothing from elsewhere."""

from __future__ import annotations

import base64
import io
import os
import pkgutil
from collections.abc import Iterator, Mapping
from contextlib import contextmanager
from dataclasses import dataclass
from typing import Any

import numpy as np

from vostrel._core import VERSION
from vostrel._tables import Grid
from vostrel.evaluate._compute import Results
from vostrel.evaluate._errors import library
from vostrel.evaluate._tables import (
    Task,
    bin_grids,
    difference_grids,
    statistic_grids,
    unpaired,
)

#: How many estimates the figures can tell apart.
MOST = 8


@dataclass(frozen=True)
class Picture:
    """A figure as SVG in base64, also for narrow screens, or the reason why there is none."""

    caption: str
    description: str = ""
    data: str = ""
    narrow: str = ""
    reason: str = ""


def check() -> None:
    """Raise an EvaluateError if a library is missing. Called before the data are read."""
    library("--report", "jinja2")
    os.environ["MPLBACKEND"] = "Agg"  # a window system may be chosen, but not there
    library("--report", "matplotlib")


def page(results: Results, task: Task) -> str:
    """Return the page."""
    jinja2 = library("--report", "jinja2")
    environment = jinja2.Environment(autoescape=True, trim_blocks=True, lstrip_blocks=True)
    environment.filters["transposed"] = lambda columns: list(zip(*columns))
    template = pkgutil.get_data("vostrel.evaluate", "page.html")
    assert template is not None
    has_bins = bool(results.bins)
    sections = ["Data", "Numbers"] + ["Comparison"] * bool(results.differences)
    sections += ["Bins"] * has_bins + ["Figure", "Conventions", "Command"]
    text: str = environment.from_string(template.decode()).render(
        version=VERSION,
        title=f"{', '.join(task.roles.estimates)} against {task.roles.reference}",
        sections=sections,
        task=task,
        columns=_columns(task),
        missing=", ".join(f"{value:g}" for value in task.missing),
        rows=_rows(results),
        entries=_entries(results),
        numbers=list(statistic_grids(results)),
        differences=list(difference_grids(results)),
        bins=list(bin_grids(results, task)),
        bins_figure=_draw_bins(results, task) if has_bins else None,
        figure=_draw(results, task),
        errors=_errors(task),
    )
    return text


def _columns(task: Task) -> Grid:
    roles = task.roles
    pairs = [("reference", roles.reference)] + [("estimate", name) for name in roles.estimates]
    pairs += [("bins by", name) for name in [roles.by] if name is not None]
    pairs += [("groups", name) for name in [roles.groups] if name is not None]
    return Grid([["role", *(role for role, _ in pairs)], ["column", *(name for _, name in pairs)]])


def _rows(results: Results) -> Grid:
    counts = results.counts
    pairs = [
        ("read", counts.read), ("not selected", counts.not_selected), ("masked", counts.masked),
        ("missing", counts.missing), ("with NaN", counts.nan), ("used", counts.used),
    ]
    return Grid([["rows", *(name for name, _ in pairs)],
                 ["number", *(f"{number:,}" for _, number in pairs)]])


def _entries(results: Results) -> Grid | None:
    """Return the counts of the columns that have any."""
    counts = {name: one for name, one in results.counts.columns.items() if any(one.values())}
    if not counts:
        return None
    reasons = {"masked": "masked", "missing": "missing", "nan": "NaN"}
    return Grid([["column", *counts]] + [
        [label, *(f"{one[reason]:,}" for one in counts.values())]
        for reason, label in reasons.items()
    ])


def _errors(task: Task) -> str:
    if task.method == "none":
        return "None were asked for."
    percent = f"{100 * task.confidence:g}%"
    if task.method == "formula":
        return (f"{percent} intervals by formulas for independent objects{unpaired(task)}. The "
                "numbers with signs are the distances to the ends of the interval.")
    groups = task.roles.groups
    drawn = "objects" if groups is None else f"whole groups of equal {groups}"
    return (f"{percent} intervals by the bootstrap, which draws {drawn}. The numbers with signs "
            "are the distances to the ends of the interval.")


# ---- figures -------------------------------------------------------------------------------------


def _svg(figure: Any) -> str:
    """Return a figure as SVG in base64."""
    stream = io.BytesIO()
    figure.savefig(stream, format="svg", metadata={"Date": None, "Creator": f"vostrel {VERSION}"})
    return base64.b64encode(stream.getvalue()).decode()


def literal(name: str) -> str:
    """Return the name of a column as matplotlib writes it, without mathematics."""
    return name.replace("$", r"\$")


def _draw(results: Results, task: Task) -> Picture:
    """Draw the objects, if they are in memory."""
    names = task.roles.estimates
    reference = task.roles.reference
    if len(names) == 1:
        caption = (f"{names[0]} against {reference}; the histogram of delta norm; delta norm "
                   f"against {reference}, with its running median and NMAD.")
    else:
        caption = (f"For each estimate the running median and the running NMAD of delta norm "
                   f"against {reference}, and the histogram of delta norm.")
    if results.columns is None:
        return Picture(caption, reason="the columns are larger than --memory allows, and the "
                                       "figure must have all objects in memory")
    if len(names) > MOST:
        return Picture(caption, reason=f"there are more than {MOST} estimates")
    try:
        columns = {name: np.asarray(values) for name, values in results.columns.items()}
        data, narrow = (_draw_objects(columns, task, form) for form in ("page", "column"))
    except ValueError as error:  # for example, if no object is finite
        return Picture(caption, reason=str(error))
    facts = [
        f"{name}: bias {point.norm.bias:.3g}, NMAD {point.norm.nmad:.3g}, "
        f"outliers {point.norm.outliers_015:.3g}%"
        for name, point in results.points.items()
    ]
    return Picture(caption, f"{caption} {'; '.join(facts)}.", data, narrow)


def _draw_objects(columns: Mapping[str, Any], task: Task, layout: Any) -> str:
    """Return the figure in one of the layouts of vostrel.plot."""
    import vostrel.plot

    names = task.roles.estimates
    reference = columns[task.roles.reference]
    with _settings():
        if len(names) == 1:
            return _svg(vostrel.plot.diagnostic_figure(
                reference, columns[names[0]], layout=layout,
                labels=(literal(task.roles.reference), literal(names[0])),
            ))
        estimates = {literal(name): columns[name] for name in names}
        return _svg(vostrel.plot.compare_figure(reference, estimates, table=False, layout=layout))


@contextmanager
def _settings() -> Iterator[None]:
    """Draw with matplotlib's own settings, not the user's."""
    import matplotlib

    with matplotlib.rc_context():
        matplotlib.rcdefaults()
        matplotlib.rcParams["svg.hashsalt"] = "vostrel"  # the same data give the same bytes
        yield


def _draw_bins(results: Results, task: Task) -> Picture:
    """Draw bias and NMAD of delta norm in the bins."""
    by = task.roles.by or task.roles.reference
    caption = f"Bias and NMAD of delta norm in bins of {by}."
    if len(results.bins) > MOST:
        return Picture(caption, reason=f"there are more than {MOST} estimates")
    from matplotlib.figure import Figure

    with _settings():
        figure = Figure(figsize=(5, 3.6), layout="constrained")
        above, below = figure.subplots(2, 1, sharex=True)
        for i, name in enumerate(results.bins):
            _draw_estimate(above, results, name, "bias", i)
            _draw_estimate(below, results, name, "nmad", i)
        above.axhline(0, color="0.6", linewidth=0.8, zorder=0)
        above.set_ylabel("bias")
        below.set_ylabel("NMAD")
        below.set_xlabel(literal(by))
        if len(results.bins) > 1:
            above.legend(loc="lower left", bbox_to_anchor=(0, 1), ncol=3, frameon=False)
        data = _svg(figure)
    description = caption
    for name, bins in results.bins.items():
        low, high = min(bins.norm.nmad), max(bins.norm.nmad)
        description += f" {name}: NMAD from {low:.3g} to {high:.3g}."
    return Picture(caption, f"{description} The table below has the numbers.", data)


def _draw_estimate(axes: Any, results: Results, name: str, statistic: str, i: int) -> None:
    """Draw one statistic of one estimate: a point for each bin, and its interval."""
    from vostrel.plot._colours import DASHES, LIGHT, MARKERS

    bins = results.bins[name]
    low, high = bins.edges[:-1], bins.edges[1:]
    count = len(results.bins)
    middle = low + (high - low) * (0.5 + (i - (count - 1) / 2) * 0.5 / count)
    colour = LIGHT.estimators[i]
    values = getattr(bins.norm, statistic)
    axes.plot(middle, values, color=colour, linestyle=DASHES[i], marker=MARKERS[i], markersize=4,
              label=" " * name.startswith("_") + literal(name))
    for at, errors in zip(middle, results.bin_errors.get(name, ())):
        if errors is not None:
            one = getattr(errors.norm, statistic)
            axes.plot([at, at], [one.low, one.high], color=colour, linewidth=1)
