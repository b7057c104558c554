"""The figure of one estimator."""

from __future__ import annotations

from collections.abc import Iterable, Sequence
from io import BytesIO
from typing import Any, Literal, get_args

from matplotlib.backends.backend_agg import FigureCanvasAgg
from matplotlib.colors import LogNorm
from matplotlib.figure import Figure, FigureBase

from vostrel._inputs import NanPolicy
from vostrel._options import check_choice, check_flag, shown
from vostrel._results import ROWS, PointStatistics, ResidualStatistics
from vostrel.plot._layout import (
    BELOW,
    LEFT,
    LINE,
    NAME_LINE,
    NAMES,
    SIZES,
    SMALL,
    TITLE_LINE,
    Box,
    Layout,
    Sheet,
    diagnostic_height,
    place_panels,
)
from vostrel.plot._limits import reference_limits, spread_of
from vostrel.plot._objects import Objects, objects_of
from vostrel.plot._panels import MANY, draw_estimates, draw_histogram, draw_residuals
from vostrel.plot._running import running
from vostrel.plot._format import Labels, labels_of, percent, three_digits, title_lines, wrapped

Panel = Literal["estimates", "histogram", "residuals"]
PANELS: tuple[Panel, ...] = get_args(Panel)

#: Inches of the shortest axis that is named after the reference or the estimate.
SHORTEST = 2.0


def diagnostic_figure(
    reference: Any,
    estimate: Any,
    *,
    mask: Any = None,
    nan_policy: NanPolicy = "omit",
    statistics: PointStatistics | None = None,
    title: str | None = None,
    panels: Sequence[Panel] = PANELS,
    layout: Layout = "page",
    figure: Any = None,
    labels: tuple[str, str] | None = None,
    table: bool = False,
    log: bool | None = None,
    source: str | None = None,
) -> Any:
    """Draw estimates and their residuals against the references.

    The panels are those of `plot_estimates`, `plot_residual_histogram` and
    `plot_residuals`.

    Parameters
    ----------
    reference, estimate : array_like, shape (n,)
        As in `vostrel.point_statistics`. Objects with NaN or infinities are
        not drawn, and the figure says how many.
    mask : array_like of bool, shape (n,), optional
        True leaves an object out.
    nan_policy : {"omit", "raise", "propagate"}
        What NaN does. "omit" leaves the object out of the numbers, "raise"
        raises, "propagate" makes the numbers NaN.
    statistics : PointStatistics, optional
        The numbers that the figure shows. By default they are computed from
        the objects that are drawn.
    title : str, optional
        A title. ``$...$`` is set as mathematics.
    panels : sequence of {"estimates", "histogram", "residuals"}
        The panels that are drawn.
    layout : {"page", "column"}
        "page" is as wide as two columns of a journal's page, 7.1 inches, and
        at most 5 inches high; "column" is as wide as one, 3.45 inches, and at
        most 7 inches high.
    figure : matplotlib.figure.Figure or SubFigure, optional
        The figure to draw on. Its size stays. By default a new Figure, which
        pyplot doesn't know; a notebook shows it at the end of a cell.
    labels : (str, str), optional
        Names of reference and estimate; by default redshifts.
    table : bool
        Put a table of all statistics below the panels. Without it, the number
        of objects, and NMAD, bias and outlier fraction of the normalized
        residual are written into the first panel.
    log : bool, optional
        Logarithmic counts in the histogram. By default they are logarithmic
        if more than 1 % of the objects lie outside the core.
    source : str, optional
        A line below the table that says where the numbers come from.

    Returns
    -------
    matplotlib.figure.Figure
        The new figure, or the one passed as `figure`.

    Raises
    ------
    ValueError, TypeError
        As for `vostrel.point_statistics`; also if no object is finite, or
        there is no such panel or layout.

    Examples
    --------
    >>> import vostrel.plot
    >>> figure = vostrel.plot.diagnostic_figure([0.5, 1.0, 1.5], [0.4, 1.1, 1.4])
    >>> figure.savefig("figure.pdf")  # doctest: +SKIP
    """
    check_options(layout, table, log)
    panels = _read_panels(panels)
    objects = objects_of(reference, estimate, statistics, mask=mask, nan_policy=nan_policy)
    names = labels_of(labels)
    bar = objects.norm.size > MANY and panels != ("histogram",)
    width = SIZES[layout][0] if figure is None else size_of(figure)[0]
    heading = title_lines(title, width)
    top = 0.08 + TITLE_LINE * len(heading)
    rows = table_lines(objects, source) if table else []
    bottom = LINE * (len(rows) + TABLE_LINES) + 0.05 if table else 0.02
    left, below = (
        edge + NAME_LINE * wrapped(name, SHORTEST, NAMES).count("\n")
        for edge, name in ((LEFT, names.estimate), (BELOW, names.reference))
    )
    if figure is None:
        height = diagnostic_height(layout, width, panels, bar, top + bottom, below)
        figure = new_figure(width, height)
    else:
        height = size_of(figure)[1]
    sheet = Sheet(figure, width, height, left, below)
    sheet.write_title(heading)
    boxes, bar_box = place_panels(layout, sheet, panels, bar, top, height - bottom)
    axes = {panel: sheet.add_axes(box) for panel, box in boxes.items()}

    images = _draw_panels(axes, objects, names, not table, log)
    if bar:
        add_colour_bar(sheet, bar_box, images)
    figure.align_ylabels([axes[panel] for panel in boxes if layout == "column"
                          or panel != "estimates"])
    if table:
        write_table(sheet, objects, names, height - bottom + LINE, rows)
    return figure


def _draw_panels(
    axes: dict[str, Any], objects: Objects, labels: Labels, note: bool, log: bool | None
) -> list[Any]:
    """Draw the panels, and return the densities or points of objects."""
    spread, xlim = spread_of(objects.norm), reference_limits(objects)
    text: dict[str, Any] = {"legend": True, "fontsize": SMALL}
    images = []
    for panel, on in axes.items():
        if panel == "estimates":
            images += draw_estimates(on, objects, xlim, labels, note=note, **text)["objects"]
        elif panel == "histogram":
            draw_histogram(on, objects, spread, labels, log=log, **text)
        else:
            lines = running(objects)
            images += draw_residuals(on, objects, xlim, spread, lines, labels, **text)["objects"]
    return images


def check_options(layout: Any, table: Any, log: Any) -> None:
    """Raise a ValueError or TypeError for an option that no figure has."""
    check_choice("layout", layout, list(SIZES))
    check_flag("table", table)
    if log is not None:
        check_flag("log", log)


def _read_panels(panels: Any) -> tuple[Panel, ...]:
    """Return the panels in their order."""
    names = [panels] if isinstance(panels, str) else panels
    message = f"panels must be some of {', '.join(PANELS)}, not {shown(panels)}"
    if not isinstance(names, Iterable):
        raise TypeError(message)
    names = list(names)
    chosen = tuple(panel for panel in PANELS if panel in names)
    if not names or len(chosen) != len(names):
        raise ValueError(message)
    return chosen


class ShownFigure(Figure):  # type: ignore[misc]
    """A figure that pyplot doesn't know, but a notebook shows."""

    def _repr_png_(self) -> tuple[bytes, dict[str, float]]:
        """Return the picture in twice the resolution of its size in a notebook."""
        stream = BytesIO()
        self.savefig(stream, format="png", dpi=200)
        width, height = self.get_size_inches()
        return stream.getvalue(), {"width": 100 * width, "height": 100 * height}


def new_figure(width: float, height: float) -> Any:
    """Return a new figure."""
    figure = ShownFigure(figsize=(width, height))
    FigureCanvasAgg(figure)
    return figure


def size_of(figure: Any) -> tuple[float, float]:
    """Return the width and height of a figure or subfigure, in inches."""
    if not isinstance(figure, FigureBase):
        raise TypeError(
            f"figure must be a Figure or SubFigure of matplotlib, not {type(figure).__name__}"
        )
    return figure.bbox.width / figure.figure.dpi, figure.bbox.height / figure.figure.dpi


def add_colour_bar(sheet: Sheet, box: Box, images: list[Any]) -> None:
    """Give the densities one scale of colours, and draw its colour bar."""
    greatest = max(10, *(int(image.get_array().max()) for image in images))
    for image in images:
        image.set_norm(LogNorm(1, greatest))
    axes = sheet.add_axes(box)
    sheet.figure.colorbar(images[0], cax=axes)
    name = "objects per cell" + (", both panels" if len(images) > 1 else "")
    axes.set_ylabel(name, labelpad=1, fontsize=NAMES)
    axes.tick_params(which="both", direction="out", pad=1.5, labelsize=SMALL)


# ---- the table -----------------------------------------------------------------------------------

#: Lines of the table without those of `table_lines`.
TABLE_LINES = 9


def table_lines(objects: Objects, source: str | None) -> list[str]:
    """Return the lines below the numbers."""
    lines = []
    if objects.nans or objects.infinite:
        lines.append(f"left out: {objects.nans:,} with NaN, {objects.infinite:,} infinite")
    if source:
        lines.append(source)
    return lines


def write_table(
    sheet: Sheet, objects: Objects, labels: Labels, top: float, lines: Sequence[str]
) -> None:
    """Write the numbers of both residuals in two blocks side by side."""
    statistics = objects.statistics
    sheet.write_cell(0.12, top, f"{labels.difference},   $n$ = {statistics.n:,}")
    middle = min((sheet.width - 0.1) / 2, 2.6)
    for left, rows in ((0.12, ROWS[:6]), (0.12 + middle, ROWS[6:])):
        points = left + 0.35 * middle, left + 0.71 * middle
        if rows[0][2]:
            sheet.write_cell(left, top + LINE * 1.1, "outliers")
        for point, heading in zip(points, (labels.delta, labels.short_norm)):
            sheet.write_cell(point, top + LINE * 1.1, heading, ha="center")
        for i, (name, label, unit) in enumerate(rows):
            at = top + LINE * (i + 2.2)
            sheet.write_cell(left, at, table_label(label))
            for point, part in zip(points, (statistics.delta, statistics.norm)):
                sheet.write_number(point, at, table_number(part, name, unit))
    for i, line in enumerate(lines):
        sheet.write_cell(0.12, top + LINE * (8.3 + i), line.replace("$", r"\$"))


def table_label(label: str) -> str:
    """Return the label of the report with Greek letters."""
    return label.replace("sigma", "σ").replace("Delta", "Δ").replace("outliers >", "> ")


def table_number(part: ResidualStatistics, name: str, unit: str) -> str:
    """Return a number of the table."""
    value = getattr(part, name)
    return percent(value) if unit else three_digits(value)
