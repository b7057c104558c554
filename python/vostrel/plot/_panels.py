"""The panels of the figures, each on the caller's Axes.

The functions return the artists by name, as matplotlib's boxplot does. They
read matplotlib's settings and change none.
"""

from __future__ import annotations

import math
from typing import Any

import numpy as np
from matplotlib.axes import Axes
from matplotlib.axis import Axis
from matplotlib.colors import LogNorm
from matplotlib.patheffects import withStroke
from matplotlib.ticker import FuncFormatter, LogLocator, MaxNLocator, NullFormatter
from numpy.typing import NDArray

from vostrel import _core
from vostrel._inputs import NanPolicy
from vostrel._results import PointStatistics
from vostrel.plot._limits import (
    BOUND,
    Limits,
    Spread,
    histogram_bins,
    reference_limits,
    residual_limit,
    spread_of,
    square_limits,
    tail_limit,
)
from vostrel.plot._objects import Objects, objects_of
from vostrel.plot._running import Running, running
from vostrel.plot._words import MINUS, Labels, labels_of, percent, three_digits

Artists = dict[str, list[Any]]

#: More objects than this are drawn as a density: points would run together.
MANY = 5000

#: Cells along the reference axis of a density, if there are many different values, and if few.
CELLS = (110, 27)

# Colours that colour-blind readers tell apart; the dashes tell the lines apart in grey.
BLACK, RED, BLUE, GREEN, GREY = "black", "#d55e00", "#0072b2", "#009e73", "0.45"
DENSITY_MAP = "cividis"
DASHED, DOTTED = (0, (4, 1.5)), (0, (1.2, 1))

#: White edges, which make a line visible on dark cells.
EDGES = [withStroke(linewidth=1.8, foreground="white")]


def plot_estimates(
    axes: Axes,
    reference: Any,
    estimate: Any,
    *,
    mask: Any = None,
    nan_policy: NanPolicy = "omit",
    statistics: PointStatistics | None = None,
    labels: tuple[str, str] | None = None,
    note: bool = True,
    legend: bool = True,
    fontsize: float | None = None,
    **style: Any,
) -> Artists:
    """Draw estimates against references.

    Up to 5000 objects are points, more are a density on a logarithmic scale.
    Lines show where both are equal and where the normalized residual is 0.15
    either way.

    Parameters
    ----------
    axes : matplotlib.axes.Axes
        What to draw on. Both axes get the same limits.
    reference, estimate : array_like, shape (n,)
        As in `vostrel.point_statistics`. Objects with NaN or infinities are
        left out.
    mask, nan_policy
        As in `diagnostic_figure`.
    statistics : PointStatistics, optional
        The numbers to write into the panel. By default they are computed.
    labels : (str, str), optional
        Names of reference and estimate; by default redshifts.
    note : bool
        Write the number of objects, and NMAD, bias and outlier fraction of
        the normalized residual into the panel.
    legend : bool
        Put a legend above the panel.
    fontsize : float, optional
        Font size of legend and notes, in points; by default that of legends.
    **style
        Style of the objects: of Line2D, or for a density of AxesImage.

    Returns
    -------
    dict of str to list of Artist
        "objects", "one-to-one", "bound".

    Raises
    ------
    ValueError, TypeError
        As for `vostrel.point_statistics`; also if no object is finite.
    """
    check_axes(axes)
    objects = objects_of(reference, estimate, statistics, mask=mask, nan_policy=nan_policy)
    return draw_estimates(
        axes,
        objects,
        reference_limits(objects),
        labels_of(labels),
        note=note,
        legend=legend,
        fontsize=fontsize,
        **style,
    )


def plot_residual_histogram(
    axes: Axes,
    reference: Any,
    estimate: Any,
    *,
    mask: Any = None,
    nan_policy: NanPolicy = "omit",
    statistics: PointStatistics | None = None,
    labels: tuple[str, str] | None = None,
    log: bool | None = None,
    legend: bool = True,
    fontsize: float | None = None,
    **style: Any,
) -> Artists:
    """Draw the histogram of the normalized residual.

    Bins follow the rule of Freedman and Diaconis. Zero, the bias, sigma and
    the NMAD are marked, the last two from zero, because the outliers and the
    NMAD are measured from zero. A normal curve has the NMAD as its width.

    Parameters
    ----------
    axes : matplotlib.axes.Axes
        What to draw on.
    reference, estimate, mask, nan_policy, statistics, labels, legend, fontsize
        As in `plot_estimates`.
    log : bool, optional
        Logarithmic counts, over a range that shows the tail. By default if
        there are 50 objects or more, and more than 1 % of them lie outside
        the core. The core ends five standard deviations from the median, as
        estimated from the interquartile range.
    **style
        Style of the histogram: of StepPatch.

    Returns
    -------
    dict of str to list of Artist
        "histogram", "zero", "bias", "sigma", "nmad", "normal".

    Raises
    ------
    ValueError, TypeError
        As `plot_estimates`.
    """
    check_axes(axes)
    objects = objects_of(reference, estimate, statistics, mask=mask, nan_policy=nan_policy)
    return draw_histogram(
        axes,
        objects,
        spread_of(objects.norm),
        labels_of(labels),
        log=log,
        legend=legend,
        fontsize=fontsize,
        **style,
    )


def plot_residuals(
    axes: Axes,
    reference: Any,
    estimate: Any,
    *,
    mask: Any = None,
    nan_policy: NanPolicy = "omit",
    labels: tuple[str, str] | None = None,
    legend: bool = True,
    fontsize: float | None = None,
    **style: Any,
) -> Artists:
    """Draw the normalized residual against the reference.

    Objects are drawn as by `plot_estimates`. Over them lie the running median
    and the running NMAD, on both sides of zero, in bins of equal counts.
    There are half the square root of n bins, at least 1 and at most 100. The
    bands are 68.3 % confidence intervals, as those of `vostrel.uncertainties`.

    Parameters
    ----------
    axes : matplotlib.axes.Axes
        What to draw on.
    reference, estimate, mask, nan_policy, labels, legend, fontsize, **style
        As in `plot_estimates`.

    Returns
    -------
    dict of str to list of Artist
        "objects", "zero", "running median", "running NMAD", "band", "bound".

    Raises
    ------
    ValueError, TypeError
        As `plot_estimates`.
    """
    check_axes(axes)
    objects = objects_of(reference, estimate, mask=mask, nan_policy=nan_policy)
    return draw_residuals(
        axes,
        objects,
        reference_limits(objects),
        spread_of(objects.norm),
        running(objects),
        labels_of(labels),
        legend=legend,
        fontsize=fontsize,
        **style,
    )


def check_axes(axes: Any) -> None:
    """Raise a TypeError unless these are Axes."""
    if not isinstance(axes, Axes):
        raise TypeError(f"axes must be Axes of matplotlib, not {type(axes).__name__}")


# ---- the same, from objects and limits that are already computed ---------------------------------


def draw_estimates(
    axes: Axes,
    objects: Objects,
    xlim: Limits,
    labels: Labels,
    *,
    note: bool,
    legend: bool,
    fontsize: float | None,
    **style: Any,
) -> Artists:
    """Draw as `plot_estimates` does."""
    limits = square_limits(objects, xlim)
    ends = np.array(limits)
    artists = draw_objects(
        axes, objects.reference, objects.estimate, limits, limits, fontsize, style
    )
    artists["one-to-one"] = axes.plot(
        ends, ends, color=BLACK, linewidth=0.7, label="one to one", gid="one-to-one"
    )
    artists["bound"] = []
    for sign in (1, -1):
        artists["bound"] += axes.plot(
            ends,
            ends + sign * BOUND * (1 + ends),
            color=RED,
            linestyle=DASHED,
            linewidth=0.8,
            label=f"{labels.norm} = ±{BOUND}" if sign == 1 else None,
            gid="bound",
        )
    label_axis(axes.xaxis, labels.reference, limits)
    label_axis(axes.yaxis, labels.estimate, limits)
    if note:
        artists["note"] = [draw_note(axes, objects, limits, fontsize)]
    if legend:
        legend_above(axes, 2, fontsize)
    return artists


def draw_histogram(
    axes: Axes,
    objects: Objects,
    spread: Spread,
    labels: Labels,
    *,
    log: bool | None,
    legend: bool,
    fontsize: float | None,
    **style: Any,
) -> Artists:
    """Draw as `plot_residual_histogram` does."""
    log = spread.has_tail if log is None else log
    norm = objects.statistics.norm
    limit = residual_limit(spread, norm.nmad, (norm.bias, norm.sigma, norm.nmad))
    if log:
        limit = tail_limit(spread, limit)
    counts, edges = histogram(objects.norm, spread, limit)
    look = {"fill": True, "facecolor": "0.8", "edgecolor": GREY, "linewidth": 0.6, **style}
    floor = 0.5 if log else 0
    artists: Artists = {
        "histogram": [axes.stairs(counts, edges, baseline=floor, gid="histogram", **look)],
        "zero": [axes.axvline(0, color=BLACK, linewidth=0.6, zorder=2, gid="zero")],
    }
    for name, value, sign, colour, dashes in (
        ("bias", norm.bias, "", RED, "-"),
        ("sigma", norm.sigma, "±σ", BLUE, DASHED),
        ("nmad", norm.nmad, "±NMAD", GREEN, DOTTED),
    ):
        label = sign or name
        if not abs(value) <= limit:  # not in view, or NaN
            label += f" = {three_digits(value)}"
        artists[name] = [
            axes.axvline(
                place,
                color=colour,
                linewidth=1.1,
                zorder=3,
                linestyle=dashes,
                label=None if i else label,
                gid=name,
            )
            for i, place in enumerate((value, -value) if sign else (value,))
        ]
    artists["normal"] = draw_normal(axes, norm.nmad, objects.norm.size, edges, floor)
    if log:
        axes.set_yscale("log")
    most = max(1, int(counts.max()))
    peaks = [float(np.nan_to_num(line.get_ydata()).max()) for line in artists["normal"]]
    top = max([most, *(min(1.5 * most, peak) for peak in peaks)])
    label_axis(axes.xaxis, labels.norm, (-limit, limit))
    label_counts(axes, "objects per bin", (floor, 2 * top if log else 1.08 * top), log)
    note_outside(axes, objects.norm.size - int(counts.sum()), fontsize)
    if legend:
        legend_above(axes, 4, fontsize)
    return artists


def draw_residuals(
    axes: Axes,
    objects: Objects,
    xlim: Limits,
    spread: Spread,
    lines: Running,
    labels: Labels,
    *,
    legend: bool,
    fontsize: float | None,
    **style: Any,
) -> Artists:
    """Draw as `plot_residuals` does."""
    limit = residual_limit(
        spread,
        objects.statistics.norm.nmad,
        (BOUND, float(np.abs(np.r_[lines.median, lines.nmad]).max())),
    )
    ylim = (-limit, limit)
    artists = draw_objects(axes, objects.reference, objects.norm, xlim, ylim, fontsize, style)
    artists["zero"] = [axes.axhline(0, color="0.5", linewidth=0.6, zorder=2, gid="zero")]
    on_density = objects.norm.size > MANY
    artists["running median"], artists["band"] = draw_line(
        axes, lines, lines.median, lines.median_band, BLACK, "-", "o", "running median",
        on_density=on_density,
    )
    artists["running NMAD"] = []
    for sign in (1, -1):
        drawn, band = draw_line(
            axes,
            lines,
            sign * lines.nmad,
            sign * lines.nmad_band,
            GREEN,
            "--",
            "s",
            "running NMAD",
            "±NMAD" if sign == 1 else None,
            on_density,
        )
        artists["running NMAD"] += drawn
        artists["band"] += band
    artists["bound"] = []
    if BOUND < limit:
        artists["bound"] = [
            axes.axhline(
                sign * BOUND,
                color=RED,
                linestyle=DASHED,
                linewidth=0.8,
                zorder=2,
                label=f"±{BOUND}" if sign == 1 else None,
                gid="bound",
            )
            for sign in (1, -1)
        ]
    label_axis(axes.xaxis, labels.reference, xlim)
    label_axis(axes.yaxis, labels.norm, ylim)
    if legend:
        legend_above(axes, 3, fontsize)
    return artists


# ---- what they are made of -----------------------------------------------------------------------


def draw_objects(
    axes: Axes,
    x: NDArray[np.float64],
    y: NDArray[np.float64],
    xlim: Limits,
    ylim: Limits,
    fontsize: float | None,
    style: dict[str, Any],
) -> Artists:
    """Draw the objects as points, or as a density if there are many. Say how many lie outside."""
    if x.size <= MANY:
        size = 2.2 if x.size > 300 else 5 if x.size > 30 else 8
        look = {"color": GREY, "marker": ".", "markersize": size, "markeredgewidth": 0, **style}
        counts = _core.count_in_cells(x, y, xlim, ylim)
        objects: list[Any] = axes.plot(x, y, linestyle="", zorder=1, gid="objects", **look)
    else:
        counts = density(x, y, xlim, ylim)
        shade = LogNorm(1, max(10, int(counts.max())))
        look = {"cmap": DENSITY_MAP, "norm": shade, "interpolation": "nearest", **style}
        image = axes.imshow(
            np.where(counts == 0, np.nan, counts),
            origin="lower",
            extent=(*xlim, *ylim),
            aspect="auto",
            zorder=1,
            gid="objects",
            **look,
        )
        objects = [image]
    note_outside(axes, x.size - int(counts.sum()), fontsize)
    return {"objects": objects}


def density(
    x: NDArray[np.float64], y: NDArray[np.float64], xlim: Limits, ylim: Limits
) -> NDArray[np.uint64]:
    """Return the counts of objects in fine cells, or in coarse ones if few cells hold objects."""
    square = xlim == ylim
    for columns in CELLS:
        rows = columns if square else columns // 2
        x_edges, y_edges = np.linspace(*xlim, columns + 1), np.linspace(*ylim, rows + 1)
        counts = _core.count_in_cells(x, y, x_edges.tolist(), y_edges.tolist())
        if np.count_nonzero(counts) > 30:
            break
    return counts


def histogram(
    norm: NDArray[np.float64], spread: Spread, limit: float, most: int = 199
) -> tuple[NDArray[np.uint64], NDArray[np.float64]]:
    """Return the counts and edges of the histogram from -limit to limit."""
    edges = np.linspace(-limit, limit, histogram_bins(spread, norm.size, limit, most) + 1)
    return _core.count_in_bins(norm, edges.tolist()), edges


def draw_normal(
    axes: Axes, nmad: float, n: int, edges: NDArray[np.float64], floor: float
) -> list[Any]:
    """Draw the normal curve of n objects about zero whose standard deviation is the NMAD."""
    if not (math.isfinite(nmad) and nmad > 0 and edges[-1] - edges[-2] < 6 * nmad):
        return []
    x = np.linspace(edges[0], edges[-1], 1001)
    with np.errstate(under="ignore"):
        y = (n * (edges[1] - edges[0]) / (nmad * math.sqrt(2 * math.pi))) * np.exp(
            -((x / nmad) ** 2) / 2
        )
    y[y < floor] = np.nan
    return list(
        axes.plot(x, y, color=BLACK, linewidth=0.8, zorder=4, label="normal",
                  gid="normal", scaley=False)
    )


def draw_line(
    axes: Axes,
    lines: Running,
    values: NDArray[np.float64],
    band: NDArray[np.float64],
    colour: str,
    dashes: Any,
    marker: str,
    name: str,
    label: str | None = "",
    on_density: bool = False,
) -> tuple[list[Any], list[Any]]:
    """Draw a running statistic with its band; return the line and the band."""
    x = lines.reference
    few = x.size <= 15  # more markers would run into each other
    look: dict[str, Any] = {"markersize": 3.5, "markerfacecolor": "white", "marker": marker}
    if not few:
        look = {"path_effects": EDGES} if on_density else {}
    drawn = axes.plot(
        x,
        values,
        color=colour,
        linestyle=dashes,
        linewidth=1.0,
        zorder=5,
        label=name if label == "" else label,
        gid=name,
        **look,
    )
    low, high = band
    shade = axes.fill_between(
        x, low, high, color=colour, alpha=0.35, linewidth=0, zorder=3, gid=f"{name} band"
    )
    bars = [shade]
    if few:  # a band is hard to see between few points, and there may be only one
        bars.append(axes.vlines(x, low, high, color=colour, linewidth=0.8, zorder=4))
    return drawn, bars


def draw_note(axes: Axes, objects: Objects, limits: Limits, fontsize: float | None) -> Any:
    """Write the numbers into the emptier of two corners."""
    norm = objects.statistics.norm
    lines = [
        f"$n$ = {objects.statistics.n:,}",
        f"NMAD = {three_digits(norm.nmad)}",
        f"bias = {three_digits(norm.bias)}",
        f"outliers = {percent(norm.outliers_015)}",
    ]
    left_out = objects.nans + objects.infinite
    if left_out:
        lines.insert(1, f"({left_out:,} left out)")
    (low, high), span = limits, limits[1] - limits[0]
    x_edges = [low, low + 0.4 * span, high - 0.4 * span, high]
    y_edges = [low, low + 0.25 * span, high - 0.25 * span, high]
    parts = _core.count_in_cells(objects.reference, objects.estimate, x_edges, y_edges)
    if parts[2, 0] <= parts[0, 2]:
        place, ha, va = (0.03, 0.97), "left", "top"
    else:
        place, ha, va = (0.97, 0.03), "right", "bottom"
    return axes.text(
        *place,
        "\n".join(lines),
        transform=axes.transAxes,
        ha=ha,
        va=va,
        linespacing=1.3,
        fontsize=fontsize,
        zorder=6,
        gid="note",
        bbox={"facecolor": "white", "alpha": 0.8, "edgecolor": "none", "pad": 1.5},
    )


def label_axis(axis: Axis, name: str, limits: Limits) -> None:
    """Name the axis and set its limits. A power of ten moves from the ticks into the name."""
    power = math.floor(math.log10(max(abs(limits[0]), abs(limits[1]))))
    power = 0 if -2 <= power < 4 else power
    axis.set_major_locator(MaxNLocator(6, steps=[1, 2, 5, 10]))
    axis.set_major_formatter(
        FuncFormatter(lambda value, _: f"{value / 10.0**power:.6g}".replace("-", MINUS))
    )
    axis.set_label_text(name + (rf" / $10^{{{power}}}$" if power else ""))
    axis.labelpad = 2
    (axis.axes.set_xlim if axis.axis_name == "x" else axis.axes.set_ylim)(limits)


def label_counts(axes: Axes, name: str, limits: Limits, log: bool) -> None:
    """Name a vertical axis of counts and set its limits."""
    if not log:
        label_axis(axes.yaxis, name, limits)
        if limits[1] < 1e4:
            axes.yaxis.set_major_locator(MaxNLocator(6, steps=[1, 2, 5, 10], integer=True))
        return
    axes.yaxis.set_major_locator(LogLocator(10, numticks=6))
    axes.yaxis.set_minor_formatter(NullFormatter())
    axes.set_ylabel(name, labelpad=2)
    axes.set_ylim(limits)


def note_outside(axes: Axes, outside: int, fontsize: float | None) -> None:
    """Say how many objects lie outside, beside the name of the horizontal axis."""
    if outside:
        axes.annotate(
            f"{outside:,} outside",
            (1, 0),
            (0, -14),
            fontsize=fontsize,
            xycoords="axes fraction",
            textcoords="offset points",
            ha="right",
            va="top",
            gid="outside",
        )


def legend_above(axes: Axes, columns: int, fontsize: float | None) -> None:
    """Put the legend above the frame, where it hides no object."""
    axes.legend(
        loc="lower left",
        bbox_to_anchor=(0, 1),
        ncol=columns,
        fontsize=fontsize,
        frameon=False,
        borderpad=0.3,
        borderaxespad=0,
        labelspacing=0.25,
        handlelength=1.6,
        handletextpad=0.4,
        columnspacing=0.9,
    )
