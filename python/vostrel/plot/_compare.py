"""The figure of several estimators of the same references."""

from __future__ import annotations

import math
from collections.abc import Mapping
from typing import Any

import numpy as np

from vostrel._inputs import NanPolicy
from vostrel.plot._figure import check_layout, new_figure, size_of
from vostrel.plot._layout import (
    BELOW,
    LEFT,
    LINE,
    RIGHT,
    SIZES,
    SMALL,
    TITLE_LINE,
    Box,
    Layout,
    Sheet,
)
from vostrel.plot._limits import residual_limit, spread_of, tail_limit, widened
from vostrel.plot._objects import Objects, estimators, objects_of
from vostrel.plot._panels import BLUE, GREEN, RED, histogram, label_axis, label_counts, note_outside
from vostrel.plot._running import running
from vostrel.plot._words import clean, labels_of, percent, shown, three_digits, title_lines

#: Colours and dashes of the estimators. Each pair differs in grey, too.
LOOKS: tuple[tuple[str, Any], ...] = (
    (BLUE, "-"),
    (RED, (0, (4, 1.5))),
    (GREEN, (0, (1.2, 1))),
    ("black", (0, (6, 1.5, 1, 1.5))),
    ("#cc79a7", (0, (2.5, 1))),
    ("0.45", "-"),
    ("#56b4e9", (0, (6, 1, 1, 1, 1, 1))),
    ("#a08000", (0, (8, 2))),
)


def compare_figure(
    reference: Any,
    estimates: Any,
    *,
    mask: Any = None,
    nan_policy: NanPolicy = "omit",
    title: str | None = None,
    layout: Layout = "page",
    figure: Any = None,
    labels: tuple[str, str] | None = None,
    table: bool = True,
    log: bool | None = None,
) -> Any:
    """Draw several estimators of one reference, for comparison.

    The figure shows for each estimator the running median, the running NMAD
    and the outline of the histogram of the normalized residual, and has a
    small table. The bands are the 68.3 % confidence intervals of the running
    lines.

    Parameters
    ----------
    reference : array_like, shape (n,)
        The reference values.
    estimates : mapping of str to array_like, shape (n,)
        One to eight estimators by name. A pandas DataFrame or an astropy
        Table of estimates will do.
    mask, nan_policy, title, layout, figure, labels, log
        As in `diagnostic_figure`. By default the counts are logarithmic if
        they would be for one of the estimators.
    table : bool
        Put the table below the panels.

    Returns
    -------
    matplotlib.figure.Figure
        The figure, or what was given as `figure`.

    Raises
    ------
    ValueError, TypeError
        As for `diagnostic_figure`; also if there are no estimators or too
        many.

    Notes
    -----
    For each estimator, objects with NaN or infinities are left out. So n may
    differ between the rows of the table.

    Examples
    --------
    >>> import vostrel.plot
    >>> figure = vostrel.plot.compare_figure(
    ...     [0.5, 1.0, 1.5], {"one": [0.4, 1.1, 1.4], "two": [0.5, 1.2, 1.4]})
    """
    check_layout(layout)
    named = estimators(estimates)
    if not 1 <= len(named) <= len(LOOKS):
        raise ValueError(f"there must be 1 to {len(LOOKS)} estimators, not {len(named)}")
    sets = {
        shown(clean(name)): objects_of(reference, values, mask=mask, nan_policy=nan_policy)
        for name, values in named.items()
    }
    if len(sets) < len(named):
        raise ValueError("two estimators have the same name")
    width = SIZES[layout][0] if figure is None else size_of(figure)[0]
    heading = title_lines(title, width)
    across = 4 if layout == "page" else 2
    top = 0.08 + TITLE_LINE * len(heading) + 0.14 * math.ceil(len(sets) / across)
    bottom = LINE * (len(sets) + 1.6) + 0.03 if table else 0.02
    if figure is None:
        rows = 2 if layout == "page" else 3
        height = top + bottom + rows * (BELOW + 0.08) + 1.25 * rows
        figure = new_figure(width, min(height, SIZES[layout][1]))
    height = size_of(figure)[1]
    sheet = Sheet(figure, width, height)
    sheet.write_title(heading)

    boxes = _places(layout, width, top, height - bottom)
    axes = [sheet.add_axes(box) for box in boxes]
    _draw_running(axes[0], axes[1], sets, labels_of(labels))
    _draw_histograms(axes[2], sets, labels_of(labels).norm, log)
    handles, names = axes[0].get_legend_handles_labels()
    figure.legend(
        handles,
        names,
        loc="upper left",
        bbox_to_anchor=(LEFT / width, 1 - (0.05 + TITLE_LINE * len(heading)) / height),
        ncol=across,
        frameon=False,
        fontsize=SMALL,
        borderpad=0,
        borderaxespad=0,
        labelspacing=0.25,
        handlelength=2.6,
        columnspacing=1.2,
    )
    figure.align_ylabels(axes if layout == "column" else axes[:2])
    if table:
        _write_table(sheet, sets, height - bottom + 1.3 * LINE)
    return figure


def _places(layout: Layout, width: float, top: float, below: float) -> list[Box]:
    """Return the boxes of running medians, running NMAD and histograms."""
    gap = 0.08
    number = 2 if layout == "page" else 3
    part = (below - top - number * (gap + BELOW)) / number
    tops = [top + gap + i * (part + gap + BELOW) for i in range(number)]
    if layout == "column":
        return [Box(LEFT, at, width - LEFT - RIGHT, part) for at in tops]
    half = (width - 2 * (LEFT + RIGHT)) / 2
    whole = tops[1] + part - tops[0]
    return [Box(LEFT, at, half, part) for at in tops] + [
        Box(2 * LEFT + RIGHT + half, tops[0], half, whole)
    ]


def _draw_running(medians: Any, nmads: Any, sets: Mapping[str, Objects], labels: Any) -> None:
    """Draw the running lines of all estimators."""
    reach, highest = 0.0, 0.0
    starts, ends = [], []
    for (name, objects), (colour, dashes) in zip(sets.items(), LOOKS):
        lines = running(objects)
        for axes, values, band in (
            (medians, lines.median, lines.median_band),
            (nmads, lines.nmad, lines.nmad_band),
        ):
            marker = {"marker": "o", "markersize": 2.5} if lines.counts.size <= 15 else {}
            axes.plot(
                lines.reference, values, color=colour, linestyle=dashes, linewidth=1.1,
                label=name, gid="running", zorder=3, **marker,
            )
            low, high = band
            axes.fill_between(
                lines.reference, low, high, color=colour, alpha=0.18, linewidth=0, gid="band"
            )
            if lines.counts.size <= 15:
                axes.vlines(lines.reference, low, high, color=colour, linewidth=0.7)
        starts.append(float(lines.reference[0]))
        ends.append(float(lines.reference[-1]))
        reach = max(reach, float(np.nanmax(np.abs([lines.median, *lines.median_band]))))
        highest = max(highest, float(np.nanmax([lines.nmad, *lines.nmad_band])))
    medians.axhline(0, color="0.5", linewidth=0.6, zorder=1)
    xlim = widened((min(starts), max(ends)), 0.08)
    reach = 1.1 * min(reach, 1e300) or 0.1
    for axes in (medians, nmads):
        label_axis(axes.xaxis, labels.reference, xlim)
    label_axis(medians.yaxis, "running median", (-reach, reach))
    label_axis(nmads.yaxis, "running NMAD", (0, 1.1 * min(highest, 1e300) or 0.1))


def _draw_histograms(
    axes: Any, sets: Mapping[str, Objects], name: str, log: bool | None
) -> None:
    """Draw the outlines of all histograms, in the bins of the narrowest."""
    spreads = [spread_of(objects.norm) for objects in sets.values()]
    log = any(spread.has_tail for spread in spreads) if log is None else log
    limits = [
        residual_limit(spread, objects.statistics.norm.nmad, (objects.statistics.norm.nmad,))
        for spread, objects in zip(spreads, sets.values())
    ]
    if log:
        limits = [tail_limit(spread, limit) for spread, limit in zip(spreads, limits)]
    limit = max(limits)
    narrowest = min(spreads, key=lambda spread: spread.high - spread.low)
    top, outside = 1, 0
    for objects, (colour, dashes) in zip(sets.values(), LOOKS):
        counts, edges = histogram(objects.norm, narrowest, limit, most=61)
        axes.stairs(
            counts, edges, baseline=0.5 if log else 0, color=colour, linestyle=dashes,
            linewidth=1.0, gid="histogram",
        )
        top = max(top, int(counts.max()))
        outside += objects.norm.size - int(counts.sum())
    axes.axvline(0, color="0.5", linewidth=0.6, zorder=1)
    if log:
        axes.set_yscale("log")
    label_axis(axes.xaxis, name, (-limit, limit))
    label_counts(axes, "objects per bin", (0.5, 2 * top) if log else (0, 1.08 * top), log)
    note_outside(axes, outside, SMALL)


def _write_table(sheet: Sheet, sets: Mapping[str, Objects], top: float) -> None:
    """Write a row of numbers for each estimator."""
    span = min(sheet.width, 4.2) - LEFT
    points = [LEFT + share * span for share in (0.36, 0.53, 0.7, 0.87)]
    for point, heading in zip(points, ("$n$", "NMAD", "bias", "outliers")):
        sheet.write_cell(point, top, heading, ha="center")
    for i, (name, objects) in enumerate(sets.items(), 1):
        at = top + i * LINE
        norm = objects.statistics.norm
        sheet.write_cell(LEFT, at, name if len(name) <= 20 else name[:19] + "…")
        numbers = (
            f"{objects.statistics.n:,}",
            three_digits(norm.nmad),
            three_digits(norm.bias),
            percent(norm.outliers_015),
        )
        sheet.write_cell(points[0] + 0.15, at, numbers[0], ha="right")
        for point, number in zip(points[1:], numbers[1:]):
            sheet.write_number(point - 0.05, at, number)
