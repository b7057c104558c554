"""The figure of several estimators of the same references."""

from __future__ import annotations

import math
from collections.abc import Mapping
from typing import Any

import numpy as np
from matplotlib.patches import Patch

from vostrel._inputs import NanPolicy, read_estimates
from vostrel._tables import clipped
from vostrel.plot._colours import DASHES, MARKERS, colours_of
from vostrel.plot._figure import check_options, new_figure, size_of
from vostrel.plot._layout import (
    BELOW,
    LEFT,
    LINE,
    NAME_LINE,
    NAMES,
    RIGHT,
    SIZES,
    SMALL,
    TITLE_LINE,
    Box,
    Layout,
    Sheet,
)
from vostrel.plot._limits import BOUND, residual_limit, spread_of, tail_limit, widened
from vostrel.plot._objects import Objects, objects_of
from vostrel.plot._panels import BANDS, histogram, label_axis, label_counts, write_outside
from vostrel.plot._running import running
from vostrel.plot._format import (
    Labels,
    labels_of,
    percent,
    shown,
    three_digits,
    title_lines,
    width_of,
    wrapped,
)

#: Inches between the decimal points of the table, and for the sample of a line in the legend.
STEP, SAMPLE = 0.55, 0.6

#: The most markers on a line.
MARKS = 8


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
        The new figure, or the one passed as `figure`.

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
    check_options(layout, table, log)
    sets = _sets_of(reference, estimates, mask, nan_policy)
    width = SIZES[layout][0] if figure is None else size_of(figure)[0]
    words = labels_of(labels)
    heading = title_lines(title, width)
    names = [wrapped(name, width - 2 * SAMPLE, SMALL) for name in sets] + [BANDS]
    widest = max(width_of(line, SMALL) for name in names for line in name.split("\n"))
    across = max(1, min(4, int((width - LEFT) / (widest + SAMPLE))))
    entries = math.ceil(len(names) / across) * max(1 + name.count("\n") for name in names)
    top = 0.12 + TITLE_LINE * len(heading) + 0.14 * entries
    rows = _table(sets, words, width) if table else []
    bottom = LINE * (sum(1 + row[0].count("\n") for row in rows) + 1.2) if table else 0.02
    left = LEFT + 0.06 + NAME_LINE
    below = BELOW + NAME_LINE * wrapped(words.reference, 2.5, NAMES).count("\n")
    if figure is None:
        number = 2 if layout == "page" else 3
        height = top + bottom + number * (below + 0.08) + 1.25 * number
        figure = new_figure(width, min(height, SIZES[layout][1]))
    height = size_of(figure)[1]
    sheet = Sheet(figure, width, height, left, below)
    sheet.write_title(heading)

    axes = [sheet.add_axes(box) for box in _places(layout, sheet, top, height - bottom)]
    handles = _draw_running(axes[0], axes[1], sets, words)
    _draw_histograms(axes[2], sets, f"{words.short_norm},  {words.difference}", log)
    _write_legend(sheet, handles, names, across, 0.05 + TITLE_LINE * len(heading))
    figure.align_ylabels(axes if layout == "column" else axes[:2])
    if table:
        _write_table(sheet, rows, height - bottom + LINE)
    return figure


def _sets_of(
    reference: Any, estimates: Any, mask: Any, nan_policy: NanPolicy
) -> dict[str, Objects]:
    """Return the objects of each estimator by its name."""
    named = read_estimates(estimates)
    if not 1 <= len(named) <= len(MARKERS):
        raise ValueError(f"there must be 1 to {len(MARKERS)} estimators, not {len(named)}")
    sets = {}
    for name, values in named.items():
        clear = f"estimate {clipped(name, 30)!r}"
        sets[shown(name)] = objects_of(
            reference, values, mask=mask, nan_policy=nan_policy, name=clear
        )
    if len(sets) < len(named):
        raise ValueError("two estimators have the same name")
    return sets


def _write_legend(
    sheet: Sheet, handles: list[Any], names: list[str], across: int, top: float
) -> None:
    """Write the legend of the estimators and the bands."""
    sheet.figure.legend(
        [*handles, Patch(color="0.5", alpha=0.4, linewidth=0)],
        names,
        loc="upper left",
        bbox_to_anchor=(0.12 / sheet.width, 1 - top / sheet.height),
        ncol=across,
        frameon=False,
        fontsize=SMALL,
        borderpad=0,
        borderaxespad=0,
        labelspacing=0.25,
        handlelength=3.4,
        columnspacing=1.2,
    )


def _places(layout: Layout, sheet: Sheet, top: float, end: float) -> list[Box]:
    """Return the boxes of running medians, running NMAD and histograms."""
    gap = 0.08
    number = 2 if layout == "page" else 3
    part = (end - top - number * (gap + sheet.below)) / number
    tops = [top + gap + i * (part + gap + sheet.below) for i in range(number)]
    left = sheet.left
    if layout == "column":
        return [Box(left, at, sheet.width - left - RIGHT, part) for at in tops]
    half = (sheet.width - left - LEFT - 2 * RIGHT) / 2
    whole = tops[1] + part - tops[0]
    return [Box(left, at, half, part) for at in tops] + [
        Box(left + RIGHT + half + LEFT, tops[0], half, whole)
    ]


def _draw_running(
    medians: Any, nmads: Any, sets: Mapping[str, Objects], labels: Labels
) -> list[Any]:
    """Draw the running lines of all estimators. Return those of the medians."""
    handles: list[Any] = []
    reach, highest = 0.0, 0.0
    starts, ends = [], []
    for i, objects in enumerate(sets.values()):
        lines = running(objects)
        style = _style(medians, i, lines.counts.size)
        for axes, values, (low, high) in (
            (medians, lines.median, lines.median_band),
            (nmads, lines.nmad, lines.nmad_band),
        ):
            (line,) = axes.plot(lines.reference, values, gid="running", zorder=3, **style)
            handles += [line] * (axes is medians)
            known = np.isfinite(low)
            axes.fill_between(
                lines.reference, low, high, where=known, step="mid", color=style["color"],
                alpha=0.18, linewidth=0, gid="band",
            )
            if lines.counts.size <= 15:
                axes.vlines(lines.reference[known], low[known], high[known],
                            color=style["color"], linewidth=0.7)
        starts.append(float(lines.reference[0]))
        ends.append(float(lines.reference[-1]))
        reach = max(reach, float(np.nanmax(np.abs([lines.median, *lines.median_band]))))
        highest = max(highest, float(np.nanmax([lines.nmad, *lines.nmad_band])))
    medians.axhline(0, color="0.5", linewidth=0.6, zorder=1)
    xlim = widened((min(starts), max(ends)), 0.08)
    reach = 1.1 * min(reach, 1e300) or 0.1
    for axes in (medians, nmads):
        label_axis(axes.xaxis, labels.reference, xlim)
    label_axis(medians.yaxis, f"running median of\n{labels.short_norm}", (-reach, reach))
    highest = 1.1 * min(highest, 1e300) or 0.1
    label_axis(nmads.yaxis, f"running NMAD of\n{labels.short_norm}", (0, highest))
    return handles


def _style(axes: Any, i: int, points: int) -> dict[str, Any]:
    """Return the colour, dashes and marker of an estimator. Markers of two lie side by side."""
    step = math.ceil(points / MARKS)
    return {
        "color": colours_of(axes).estimators[i],
        "linestyle": DASHES[i],
        "linewidth": 1.1,
        "marker": MARKERS[i],
        "markersize": 3,
        "markeredgewidth": 0,
        "markevery": (i % step, step),
    }


def _draw_histograms(
    axes: Any, sets: Mapping[str, Objects], name: str, log: bool | None
) -> None:
    """Draw all histograms as lines through the middles of the bins of the narrowest."""
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
    for i, objects in enumerate(sets.values()):
        counts, edges = histogram(objects.norm, narrowest, limit, most=61)
        axes.plot(
            (edges[1:] + edges[:-1]) / 2,
            np.where(log & (counts == 0), np.nan, counts),  # no logarithm of zero
            gid="histogram",
            **{**_style(axes, i, counts.size), "markevery": 1, "markersize": 2},
        )
        top = max(top, int(counts.max()))
        outside += objects.norm.size - int(counts.sum())
    axes.axvline(0, color="0.5", linewidth=0.6, zorder=1)
    if log:
        axes.set_yscale("log")
    label_axis(axes.xaxis, name, (-limit, limit))
    label_counts(axes, "objects per bin", (0.5, 2 * top) if log else (0, 1.08 * top), log)
    write_outside(axes, outside, SMALL)


def _table(sets: Mapping[str, Objects], labels: Labels, width: float) -> list[list[str]]:
    """Return the rows of numbers of the estimators, and what they are."""
    rows = [["estimator", "$n$", "NMAD", "bias", "outliers"]]
    for name, objects in sets.items():
        norm = objects.statistics.norm
        rows.append(
            [
                wrapped(name, width - 0.4 - 4 * STEP, SMALL),
                f"{objects.statistics.n:,}",
                three_digits(norm.nmad),
                three_digits(norm.bias),
                percent(norm.outliers_015),
            ]
        )
    what = (
        f"{labels.difference};  NMAD, bias, and outliers beyond ±{BOUND}, of {labels.short_norm}"
    )
    return [[wrapped(what, width - 0.2, SMALL)], *rows]


def _write_table(sheet: Sheet, rows: list[list[str]], top: float) -> None:
    """Write the rows below each other."""
    widest = max(width_of(line, SMALL) for row in rows[1:] for line in row[0].split("\n"))
    for name, *numbers in rows:
        more = name.count("\n")  # the baseline of a text is that of its last line
        sheet.write_cell(0.12, top + more * LINE, name, va="baseline", linespacing=1.35)
        for i, number in enumerate(numbers):
            point = 0.6 + widest + i * STEP
            if number.isalpha() or "$" in number:
                sheet.write_cell(point, top, number, ha="center" if i else "right", va="baseline")
            else:
                sheet.write_number(point, top, number)
        top += LINE * (1 + more)
