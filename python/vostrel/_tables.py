"""Prints results, and converts them to tables of other libraries."""

from __future__ import annotations

import importlib
import math
import re
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:  # importing the package must be quick
    import astropy.table
    import pandas

#: What `repr` keeps to: rows of a table, and characters of a line.
REPR_ROWS = 9
REPR_WIDTH = 100

#: How many rows a notebook shows.
HTML_ROWS = 60


@dataclass(frozen=True)
class Grid:
    """A table of texts: columns that begin with their heading, and notes below them.

    A column without a heading holds labels. Others have their decimal points aligned.
    """

    columns: list[list[str]]
    notes: tuple[str, ...] = ()

    def text(self, rows: int | None = None, width: int | None = None) -> str:
        """Return the lines, with dots for the rows in the middle and the columns that don't fit."""
        padded = [_padded(column) for column in self._shortened(rows)]
        while width is not None and sum(len(column[0]) + 2 for column in padded) - 2 > width:
            del padded[-2 if padded[-1][0] == "..." else -1]
            if padded[-1][0] != "...":
                padded.append(["..."] * len(padded[0]))
        return "\n".join("  ".join(cells).rstrip() for cells in zip(*padded))

    def html(self, caption: str) -> str:
        """Return a table of HTML."""
        head, *body = zip(*self._shortened(HTML_ROWS))
        parts = [_tagged("caption", caption)]
        parts.append(f"<thead><tr>{''.join(_tagged('th', text) for text in head)}</tr></thead>")
        rows = (
            f"<tr>{_tagged('th', label)}{''.join(_tagged('td', text) for text in cells)}</tr>"
            for label, *cells in body
        )
        parts.append(f"<tbody>{''.join(rows)}</tbody>")
        if self.notes:
            across = f' colspan="{len(head)}"'
            notes = (f"<tr>{_tagged('td', note, across)}</tr>" for note in self.notes)
            parts.append(f"<tfoot>{''.join(notes)}</tfoot>")
        return f"<table>{''.join(parts)}</table>"

    def _shortened(self, rows: int | None) -> list[list[str]]:
        """Return the columns with one cell of dots for the rows in the middle."""
        if rows is None or len(self.columns[0]) - 1 <= rows:
            return self.columns
        last = (rows - 1) // 2
        first = rows - last  # the heading is one of them
        return [column[:first] + ["..."] + column[-last:] for column in self.columns]


class Result:
    """The common part of all results: how they are shown and converted."""

    #: The columns that name a row of `to_frame`.
    _INDEX: tuple[str, ...] = ()

    def _caption(self) -> str:
        """Return the title of the table, if it is more than the name of the class."""
        return ""

    def _table(self) -> dict[str, Any]:
        """Return the columns of `to_frame` and `to_table`."""
        raise NotImplementedError

    def _grid(self) -> Grid:
        """Return all that is printed."""
        raise NotImplementedError

    def _summary(self) -> Grid:
        """Return what `repr` shows."""
        return self._grid()

    def _title(self) -> str:
        caption = self._caption()
        return type(self).__name__ + (f": {caption}" if caption else "")

    def to_frame(self) -> pandas.DataFrame:
        """Return the rows that the class describes as a pandas DataFrame. Needs pandas.

        Raises
        ------
        ImportError
            If pandas is not installed.
        """
        frame: pandas.DataFrame = optional("pandas", "to_frame").DataFrame(self._table())
        return frame.set_index(list(self._INDEX)) if self._INDEX else frame

    def to_table(self) -> astropy.table.Table:
        """Return the same rows as an astropy Table. Needs astropy.

        Raises
        ------
        ImportError
            If astropy is not installed.
        """
        return optional("astropy.table", "to_table").Table(self._table())

    def __str__(self) -> str:
        caption, grid = self._caption(), self._grid()
        return "\n".join([caption] * bool(caption) + [grid.text(), *grid.notes])

    def __repr__(self) -> str:
        grid = self._summary()
        return f"{clipped(self._title(), REPR_WIDTH)}\n{grid.text(REPR_ROWS, REPR_WIDTH)}"

    def _repr_html_(self) -> str:
        return self._grid().html(self._title())


def optional(module: str, wanted_by: str) -> Any:
    """Return a module, or raise an ImportError that says who needs it."""
    try:
        return importlib.import_module(module)
    except ImportError as error:
        library = module.partition(".")[0]
        raise ImportError(f"{wanted_by} needs {library}, which is not installed") from error


def clipped(text: str, width: int) -> str:
    """Return the text, cut if it is too long."""
    return text if len(text) <= width else text[: width - 3] + "..."


def aligned(texts: list[str]) -> list[str]:
    """Return the texts padded to one width, with the decimal points aligned."""
    points = [len(re.split("[.e%]", text)[0]) if text != "..." else 0 for text in texts]
    width = max(points, default=0)
    padded = [" " * (width - point) + text for text, point in zip(texts, points)]
    return [text.ljust(max(map(len, padded))) for text in padded]


def number(value: float, unit: str = "") -> str:
    """Return the value with six significant digits, as in the report."""
    return f"{value:.6g}{unit}"


def interval(value: float, low: float, high: float, unit: str = "") -> str:
    """Return the value and both halves, rounded to the digits that the interval justifies."""
    up, down = high - value, value - low
    if not (math.isfinite(up) and math.isfinite(down)):
        return number(value, unit) + ("" if math.isnan(value) else " ?")
    exponent = _exponent(max(abs(value), abs(up), abs(down)))
    if not -6 < exponent < 10:
        from decimal import Decimal  # imported here, because it is rarely needed

        value, low, high = (float(Decimal(one).scaleb(-exponent)) for one in (value, low, high))
        return f"({interval(value, low, high)})e{exponent:+03d}{unit}"
    least = 1e-12 * abs(value)  # less is rounding
    digits = [_decimals(half) for half in (abs(up), abs(down)) if half > least]
    if not digits:
        return f"{number(value, unit)} +0 -0"
    # If one half is tiny compared with the other, the larger half decides.
    places = min(max(digits), min(digits) + 1)
    value, up, down = (round(one, places) + 0.0 for one in (value, up, down))
    places = max(places, 0)
    return f"{value:.{places}f}{unit} {up:+.{places}f} {-down:+.{places}f}"


def _exponent(size: float) -> int:
    """Return the power of ten of the first digit."""
    return int(f"{size:.15e}".partition("e")[2])


def _decimals(half: float) -> int:
    """Return the number of decimals for half of an interval."""
    first, exponent = f"{half:.0e}".split("e")
    return -int(exponent) + (1 if first == "1" else 0)


def _padded(column: list[str]) -> list[str]:
    heading, *cells = column
    if heading:
        cells = aligned(cells)
    width = max(map(len, [heading, *cells]))
    return [text.rjust(width) if heading else text.ljust(width) for text in [heading, *cells]]


def _tagged(tag: str, text: str, attributes: str = "") -> str:
    from html import escape  # imported here: importing the package must be quick

    return f"<{tag}{attributes}>{escape(text.strip())}</{tag}>"
