"""The positions of panels, table and title, in inches: text has one size in every figure."""

from __future__ import annotations

from collections.abc import Sequence
from dataclasses import dataclass
from typing import Any, Literal

from matplotlib.axes import Axes

from vostrel.plot._format import at_point

Layout = Literal["page", "column"]

#: Width and greatest height of a figure.
SIZES: dict[str, tuple[float, float]] = {"page": (7.1, 5.0), "column": (3.45, 7.0)}

#: Font sizes in points: of text, of the names of axes, of the title.
SMALL, NAMES, TITLE = 6.5, 7.0, 8.0

#: Margins of a panel in inches: left, right, above for its legend, below for its axis. A name of an
#: axis that takes more than one line adds NAME_LINE for each.
LEFT, RIGHT, ABOVE, BELOW, NAME_LINE = 0.52, 0.1, 0.3, 0.4, 0.115

#: Inches for the colour bar: the gap, the bar, and its ticks and name.
BAR = (0.05, 0.09, 0.36)

#: Height of a line of the table and of the title.
LINE, TITLE_LINE = 0.125, 0.15


@dataclass(frozen=True)
class Box:
    """A rectangle: its distance from the left and from the top, its width and height."""

    left: float
    top: float
    width: float
    height: float


class Sheet:
    """A figure with positions in inches from its upper left corner.

    `left` and `below` are the margins of its panels.
    """

    def __init__(
        self, figure: Any, width: float, height: float, left: float = LEFT, below: float = BELOW
    ) -> None:
        self.figure, self.width, self.height = figure, width, height
        self.left, self.below = left, below

    def add_axes(self, box: Box) -> Axes:
        """Return new Axes in the box, with the style of print."""
        axes = self.figure.add_axes(
            (
                box.left / self.width,
                1 - (box.top + box.height) / self.height,
                box.width / self.width,
                box.height / self.height,
            )
        )
        dress(axes)
        return axes

    def write(self, left: float, top: float, text: str, **style: Any) -> Any:
        """Write the text at this position."""
        return self.figure.text(left / self.width, 1 - top / self.height, text, **style)

    def write_title(self, lines: Sequence[str]) -> None:
        """Write the lines of the title."""
        if lines:
            self.write(
                self.width / 2, 0.05, "\n".join(lines), ha="center", va="top",
                fontsize=TITLE, linespacing=1.25, gid="title",
            )

    def write_number(self, point: float, top: float, text: str) -> None:
        """Write a number of a table with its decimal point at `point`."""
        whole, fraction = at_point(text)
        look: dict[str, Any] = {"fontsize": SMALL, "va": "baseline", "gid": "numbers"}
        self.write(point, top, whole, ha="right", **look)
        if fraction:
            self.write(point, top, fraction, ha="left", **look)

    def write_cell(self, left: float, top: float, text: str, **style: Any) -> None:
        """Write a text of a table."""
        self.write(left, top, text, **{"fontsize": SMALL, "gid": "numbers", **style})


def dress(axes: Axes) -> None:
    """Give the Axes the style of print: small text, thin lines, ticks inside on all sides."""
    axes.tick_params(
        which="both", direction="in", top=True, right=True, labelsize=SMALL, width=0.6, pad=2.5
    )
    axes.tick_params(which="major", length=3)
    axes.tick_params(which="minor", length=1.6)
    for spine in axes.spines.values():
        spine.set_linewidth(0.6)
    axes.grid(False)
    axes.xaxis.label.set_fontsize(NAMES)
    axes.yaxis.label.set_fontsize(NAMES)


def diagnostic_height(
    layout: Layout, width: float, panels: Sequence[str], bar: bool, overhead: float, below: float
) -> float:
    """Return the best height for the panels of a diagnostic figure."""
    others = len(panels) - ("estimates" in panels)
    inner = widest_square(layout, width, others > 0, bar) if "estimates" in panels else 0.0
    if layout == "column" or not inner:
        inner += 1.2 * others
        overhead += (len(panels) - 1) * (ABOVE + below)
    return min(SIZES[layout][1], overhead + inner + ABOVE + below)


def widest_square(layout: Layout, width: float, others: bool, bar: bool) -> float:
    """Return the side of the panel of estimates, beside which the other panels fit."""
    span = width - LEFT - RIGHT
    if layout == "page" and others:
        return (0.42 if bar else 0.46) * span
    return min(span - (sum(BAR) if bar else 0), 3.6 if layout == "page" else 2.75)


def place_panels(
    layout: Layout, sheet: Sheet, panels: Sequence[str], bar: bool, top: float, below: float
) -> tuple[dict[str, Box], Box]:
    """Return the boxes of the panels between `top` and `below`, and that of the colour bar."""
    space = sum(BAR) if bar else 0.0
    start, ends = sheet.left, ABOVE + sheet.below
    span = sheet.width - start - RIGHT
    height = below - top
    boxes: dict[str, Box] = {}
    others = [panel for panel in panels if panel != "estimates"]
    if layout == "page" and others and "estimates" in panels:
        side = min(height - ends, widest_square(layout, sheet.width, True, bar))
        boxes["estimates"] = Box(start, top + ABOVE, side, side)
        left = start + side + space + LEFT
        stack(boxes, others, left, top, sheet.width - left - RIGHT, side + ends, sheet.below)
    elif "estimates" in panels:
        free = height - len(panels) * ends
        side = min(
            free * (0.56 if others else 1),
            widest_square(layout, sheet.width, bool(others), bar) + LEFT - start,
        )
        boxes["estimates"] = Box(start, top + ABOVE, side, side)
        stack(boxes, others, start, top + side + ends, span, height - side - ends, sheet.below)
    else:
        stack(boxes, others, start, top, span - space, height, sheet.below)
    host = boxes.get("estimates") or boxes[panels[-1]]
    gap, thickness, _ = BAR
    return boxes, Box(host.left + host.width + gap, host.top, thickness, host.height)


def stack(
    boxes: dict[str, Box], panels: Sequence[str], left: float, top: float, width: float,
    height: float, below: float,
) -> None:
    """Add boxes for the panels, one below the other. Residuals get a little more."""
    shares = [1.25 if panel == "residuals" else 1.0 for panel in panels]
    free = height - len(panels) * (ABOVE + below)
    for panel, share in zip(panels, shares):
        part = free * share / sum(shares)
        boxes[panel] = Box(left, top + ABOVE, width, part)
        top += ABOVE + part + below
