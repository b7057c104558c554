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
from matplotlib.font_manager import FontProperties
from matplotlib.ticker import FuncFormatter, LogLocator, MaxNLocator, NullFormatter
from numpy.typing import NDArray

from vostrel import _core
from vostrel._inputs import NanPolicy
from vostrel._results import PointStatistics
from vostrel._uncertainties import CONFIDENCE
from vostrel.plot._colours import DASHED, DOTTED, colours_of
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
from vostrel.plot._format import (
    LONGEST,
    MINUS,
    Labels,
    labels_of,
    percent,
    three_digits,
    width_of,
    wrapped,
)

Artists = dict[str, list[Any]]
Floats = NDArray[np.float64]

#: More objects than this are drawn as a density: points would run together.
MANY = 5000

#: Cells along the reference axis of a density, if there are many different values, and if few.
CELLS = (110, 27)

#: Columns into which the markers of objects beyond an axis are gathered: more would run together.
COLUMNS = 200

#: What the bands of the running lines are.
BANDS = f"{100 * CONFIDENCE:.1f} % confidence"


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
    NMAD are measured from zero. A normal curve shows the shape of the core:
    its centre is the median, its standard deviation 1.4826 MAD(Delta).

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
    Triangles at the edges stand for the objects beyond the vertical axis.

    Parameters
    ----------
    axes : matplotlib.axes.Axes
        What to draw on.
    reference, estimate, mask, nan_policy, labels, legend, fontsize, **style
        As in `plot_estimates`.

    Returns
    -------
    dict of str to list of Artist
        "objects", "beyond", "zero", "running median", "running NMAD", "band",
        "bound".

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
    look = colours_of(axes)
    limits = square_limits(objects, xlim)
    ends = np.array(limits)
    artists = draw_objects(axes, objects.reference, objects.estimate, limits, limits, style)
    artists["one-to-one"] = axes.plot(  # below the objects: it would hide the densest
        ends, ends, color=look.ink, linewidth=0.7, zorder=0.9, label="one to one", gid="one-to-one"
    )
    artists["bound"] = []
    for sign in (1, -1):
        artists["bound"] += axes.plot(
            ends,
            ends + sign * BOUND * (1 + ends),
            color=look.red,
            linestyle=DASHED,
            linewidth=0.8,
            label=f"{labels.norm} = ±{BOUND}" if sign == 1 else None,
            gid="bound",
        )
    label_axis(axes.xaxis, labels.reference, limits)
    label_axis(axes.yaxis, labels.estimate, limits)
    note_outside(axes, objects.reference, objects.estimate, fontsize)
    if note:
        artists["note"] = [draw_note(axes, objects, limits, labels, fontsize)]
    if legend:
        legend_above(axes, 1, fontsize)
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
    look = colours_of(axes)
    log = spread.has_tail if log is None else log
    norm = objects.statistics.norm
    limit = residual_limit(spread, norm.nmad, (norm.bias, norm.sigma, norm.nmad))
    if log:
        limit = tail_limit(spread, limit)
    counts, edges = histogram(objects.norm, spread, limit)
    style = {
        "fill": True, "facecolor": look.fill, "edgecolor": look.grey, "linewidth": 0.6, **style
    }
    floor = 0.5 if log else 0
    artists: Artists = {
        "histogram": [axes.stairs(counts, edges, baseline=floor, gid="histogram", **style)],
        "zero": [axes.axvline(0, color=look.ink, linewidth=0.6, zorder=2, gid="zero")],
    }
    for name, value, sign, colour, dashes in (
        ("bias", norm.bias, "", look.red, "-"),
        ("sigma", norm.sigma, "±σ", look.blue, DASHED),
        ("nmad", norm.nmad, "±NMAD about 0", look.green, DOTTED),
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
    artists["normal"] = draw_normal(
        axes, spread.median, 1.4826 * norm.mad_delta, objects.norm.size, edges, floor
    )
    if log:
        axes.set_yscale("log")
    most = max(1, int(counts.max()))
    peaks = [float(np.nan_to_num(line.get_ydata()).max()) for line in artists["normal"]]
    top = max([most, *(min(1.5 * most, peak) for peak in peaks)])
    label_axis(axes.xaxis, labels.norm, (-limit, limit))
    label_counts(axes, "objects per bin", (floor, 2 * top if log else 1.08 * top), log)
    write_outside(axes, objects.norm.size - int(counts.sum()), fontsize)
    if legend:
        legend_above(axes, 2, fontsize)
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
    look = colours_of(axes)
    limit = residual_limit(
        spread,
        objects.statistics.norm.nmad,
        (BOUND, float(np.abs(np.r_[lines.median, lines.nmad]).max())),
    )
    ylim = (-limit, limit)
    artists = draw_objects(axes, objects.reference, objects.norm, xlim, ylim, style)
    artists["zero"] = [axes.axhline(0, color="0.5", linewidth=0.6, zorder=2, gid="zero")]
    halo = look.edges if objects.norm.size > MANY else []
    artists["running median"], artists["running NMAD"], artists["band"] = [], [], []
    median, nmad = (look.ink, "-", "o", "running median"), (look.green, "--", "s", "running NMAD")
    for label, values, band, (colour, dashes, marker, name) in (
        ("running median", lines.median, lines.median_band, median),
        ("±running NMAD about 0", lines.nmad, lines.nmad_band, nmad),
        (None, -lines.nmad, -lines.nmad_band, nmad),
    ):
        drawn, shade = draw_line(
            axes, lines.reference, values, band, color=colour, linestyle=dashes, marker=marker,
            markerfacecolor=look.paper, path_effects=halo, label=label, gid=name,
        )
        artists[name] += drawn
        artists["band"] += shade
    artists["band"][0].set_label(BANDS)
    artists["bound"] = []
    if BOUND < limit:
        artists["bound"] = [
            axes.axhline(
                sign * BOUND,
                color=look.red,
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
    artists["beyond"] = draw_beyond(axes, objects.reference, objects.norm, xlim, limit)
    note_outside(axes, objects.reference, objects.norm, fontsize, bool(artists["beyond"]))
    if legend:
        legend_above(axes, 2, fontsize)
    return artists


# ---- what they are made of -----------------------------------------------------------------------


def draw_objects(
    axes: Axes, x: Floats, y: Floats, xlim: Limits, ylim: Limits, style: dict[str, Any]
) -> Artists:
    """Draw the objects as points, or as a density if there are many."""
    look = colours_of(axes)
    if x.size <= MANY:
        size = 2.2 if x.size > 300 else 5 if x.size > 30 else 8
        style = {
            "color": look.grey, "marker": ".", "markersize": size, "markeredgewidth": 0, **style
        }
        return {"objects": axes.plot(x, y, linestyle="", zorder=1, gid="objects", **style)}
    counts = density(x, y, xlim, ylim)
    shade = LogNorm(1, max(10, int(counts.max())))
    style = {"cmap": look.density, "norm": shade, "interpolation": "nearest", **style}
    image = axes.imshow(
        np.where(counts == 0, np.nan, counts),
        origin="lower",
        extent=(*xlim, *ylim),
        aspect="auto",
        zorder=1,
        gid="objects",
        **style,
    )
    return {"objects": [image]}


def draw_beyond(
    axes: Axes, x: Floats, y: Floats, xlim: Limits, limit: float
) -> list[Any]:
    """Draw triangles at the edges for objects beyond the vertical axis."""
    beyond = (x >= xlim[0]) & (x <= xlim[1]) & (np.abs(y) > limit)
    x, y = x[beyond], y[beyond]
    width = (xlim[1] - xlim[0]) / COLUMNS
    drawn: list[Any] = []
    for above, place, marker in ((y > 0, 0.97, "^"), (y < 0, 0.03, "v")):
        if above.any():
            columns = np.unique(np.floor((x[above] - xlim[0]) / width))
            drawn += axes.plot(
                xlim[0] + (columns + 0.5) * width,
                np.full(columns.size, place),
                transform=axes.get_xaxis_transform(),
                linestyle="",
                marker=marker,
                markersize=3,
                markeredgewidth=0,
                color=colours_of(axes).blue,
                zorder=3,
                gid="beyond",
            )
    return drawn


def density(
    x: Floats, y: Floats, xlim: Limits, ylim: Limits
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
    norm: Floats, spread: Spread, limit: float, most: int = 199
) -> tuple[NDArray[np.uint64], Floats]:
    """Return the counts and edges of the histogram from -limit to limit."""
    edges = np.linspace(-limit, limit, histogram_bins(spread, norm.size, limit, most) + 1)
    return _core.count_in_bins(norm, edges.tolist()), edges


def draw_normal(
    axes: Axes, centre: float, sigma: float, n: int, edges: Floats, floor: float
) -> list[Any]:
    """Draw the normal curve of n objects."""
    if not (math.isfinite(sigma) and sigma > 0 and edges[-1] - edges[-2] < 6 * sigma):
        return []
    x = np.linspace(edges[0], edges[-1], 1001)
    with np.errstate(under="ignore"):
        y = (n * (edges[1] - edges[0]) / (sigma * math.sqrt(2 * math.pi))) * np.exp(
            -(((x - centre) / sigma) ** 2) / 2
        )
    y[y < floor] = np.nan
    return list(
        axes.plot(x, y, color=colours_of(axes).ink, linewidth=0.8, zorder=4,
                  label="normal (median, 1.4826 MAD(Δ))", gid="normal", scaley=False)
    )


def draw_line(
    axes: Axes, x: Floats, values: Floats, band: Floats, **style: Any
) -> tuple[list[Any], list[Any]]:
    """Draw a running statistic with its band; return the line and the band."""
    few = x.size <= 15  # more markers would run into each other
    low, high = np.sort(band, axis=0)
    colour, gid = style["color"], f"{style['gid']} band"
    if not few:
        style["marker"] = ""
    # Each bin has its own value and interval: slopes between them would mean nothing.
    style = {"linewidth": 1.0, "markersize": 3.5, "zorder": 5, "drawstyle": "steps-mid", **style}
    drawn = axes.plot(x, values, **style)
    known = np.isfinite(low)
    if few:
        reach = np.maximum([values - low, high - values], 0)[:, known]
        shade = axes.errorbar(x[known], values[known], reach, fmt="none", ecolor=colour,
                              elinewidth=0.8, zorder=4, gid=gid)
    else:
        shade = axes.fill_between(x, low, high, where=known, step="mid", color=colour, alpha=0.35,
                                  linewidth=0, zorder=3, gid=gid)
    return drawn, [shade]


def draw_note(
    axes: Axes, objects: Objects, limits: Limits, labels: Labels, fontsize: float | None
) -> Any:
    """Write the numbers into the emptier of two corners."""
    norm = objects.statistics.norm
    left_out = objects.nans + objects.infinite
    lines = [
        f"$n$ = {objects.statistics.n:,}" + (f" ({left_out:,} left out)" if left_out else ""),
        labels.difference,
        f"of {labels.short_norm}:",
        f"NMAD = {three_digits(norm.nmad)}",
        f"bias = {three_digits(norm.bias)}",
        f"outliers beyond ±{BOUND}: {percent(norm.outliers_015)}",
    ]
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
        bbox={"facecolor": colours_of(axes).paper, "alpha": 0.8, "edgecolor": "none", "pad": 1.5},
    )


def label_axis(axis: Axis, name: str, limits: Limits) -> None:
    """Name the axis and set its limits. A power of ten moves from the ticks into the name."""
    power = math.floor(math.log10(max(abs(limits[0]), abs(limits[1]))))
    power = 0 if -2 <= power < 4 else power
    axis.set_major_locator(MaxNLocator(6, steps=[1, 2, 5, 10]))
    axis.set_major_formatter(
        FuncFormatter(lambda value, _: f"{value / 10.0**power:.6g}".replace("-", MINUS))
    )
    name += rf" / $10^{{{power}}}$" if power else ""
    across = axis.axis_name == "x"
    # A formula may be longer than a low panel, but does not break.
    inches = inches_of(axis.axes)[0] if across else max(inches_of(axis.axes)[1], LONGEST) + 0.1
    axis.set_label_text(wrapped(name, inches, axis.label.get_fontsize()))
    axis.labelpad = 2
    (axis.axes.set_xlim if across else axis.axes.set_ylim)(limits)


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


def inches_of(axes: Axes) -> tuple[float, float]:
    """Return the width and height of the Axes."""
    return axes.bbox.width / axes.figure.figure.dpi, axes.bbox.height / axes.figure.figure.dpi


def note_outside(
    axes: Axes, x: Floats, y: Floats, fontsize: float | None, triangles: bool = False
) -> None:
    """Say how many objects lie outside the axes, and whether triangles stand for them."""
    inside = _core.count_in_cells(x, y, axes.get_xlim(), axes.get_ylim())
    write_outside(axes, x.size - int(inside.sum()), fontsize, " (triangles)" if triangles else "")


def write_outside(axes: Axes, outside: int, fontsize: float | None, how: str = "") -> None:
    """Write the number beside the name of the horizontal axis, or below a long one."""
    if not outside:
        return
    text, name = f"{outside:,} outside{how}", axes.xaxis.label
    size = FontProperties(size=fontsize).get_size_in_points()
    wide = max(width_of(line, name.get_fontsize()) for line in name.get_text().split("\n"))
    beside = wide / 2 + width_of(text, size) < inches_of(axes)[0] / 2
    lines = 0 if beside else 1 + name.get_text().count("\n")
    axes.annotate(
        text,
        (1, 0),
        (0, -14 - 1.2 * name.get_fontsize() * lines),
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
