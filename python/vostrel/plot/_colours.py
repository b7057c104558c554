"""The colours of the figures, for light paper and for dark.

Colour-blind readers tell them apart; dashes and markers tell the lines apart in grey.
"""

from __future__ import annotations

from dataclasses import dataclass
from typing import Any

import numpy as np
from matplotlib import colormaps, rcParams
from matplotlib.axes import Axes
from matplotlib.colors import ListedColormap, to_rgba
from matplotlib.patheffects import withStroke

#: Dashes of lines, and of the lines of several estimators.
DASHED, DOTTED = (0, (4, 1.5)), (0, (1.2, 1))
DASHES: tuple[Any, ...] = (
    "-", DASHED, DOTTED, (0, (6, 1.5, 1, 1.5)), (0, (2.5, 1)), "-", (0, (6, 1, 1, 1, 1, 1)),
    (0, (8, 2)),
)

#: Markers of several estimators.
MARKERS = "osD^vXP*"


@dataclass(frozen=True)
class Colours:
    """Colours that can be seen on one kind of paper.

    Attributes
    ----------
    ink, paper, grey, fill : str
        Of lines and text, of what lies under them, of points, of histograms.
    red, blue, green : str
        Of the other lines.
    others : tuple of str
        Of the estimators after the fourth.
    darkest : float
        Where the colours of a density begin, 0 to 1.
    """

    ink: str
    paper: str
    grey: str
    fill: str
    red: str
    blue: str
    green: str
    others: tuple[str, ...]
    darkest: float

    @property
    def estimators(self) -> tuple[str, ...]:
        """Colours of several estimators."""
        return (self.blue, self.red, self.green, self.ink, *self.others)

    @property
    def density(self) -> ListedColormap:
        """Colours of a density."""
        return ListedColormap(colormaps["cividis"](np.linspace(self.darkest, 1, 256)), "cividis")

    @property
    def edges(self) -> list[Any]:
        """Edges that make a line visible on a density."""
        return [withStroke(linewidth=1.8, foreground=self.paper)]


LIGHT = Colours(
    ink="black", paper="white", grey="0.45", fill="0.8",
    red="#d55e00", blue="#0072b2", green="#009e73",
    others=("#cc79a7", "0.45", "#3a9fdb", "#a08000"), darkest=0.0,
)
DARK = Colours(
    ink="white", paper="black", grey="0.65", fill="0.3",
    red="#ff8033", blue="#56b4e9", green="#2cc197",
    others=("#f0a0cc", "0.65", "#a99cff", "#f0e442"), darkest=0.3,
)


def colours_of(axes: Axes) -> Colours:
    """Return the colours that can be seen on the Axes."""
    for paper in (axes.get_facecolor(), axes.figure.get_facecolor()):
        red, green, blue, alpha = to_rgba(paper)
        if alpha > 0.5:
            return LIGHT if 0.3 * red + 0.6 * green + 0.1 * blue > 0.4 else DARK
    return LIGHT if sum(to_rgba(rcParams["text.color"])[:3]) < 1.5 else DARK
