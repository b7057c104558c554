"""Reads the numbers of the program's report."""

from __future__ import annotations

import os
import re

from vostrel import _core
from vostrel._options import Asked, shown
from vostrel._results import PointStatistics, ResidualStatistics

#: Characters that are read. A report has fewer than 2000, but console output may be longer.
LONGEST = 1 << 20


def read_report(path: str | os.PathLike[str]) -> PointStatistics:
    """Read the numbers of a report of the program ``vostrel``.

    Parameters
    ----------
    path : path-like
        The report, or a file with the program's console output.

    Returns
    -------
    PointStatistics
        The numbers with the six significant digits of the report. ``n`` is
        its data size; ``n_masked`` and ``n_nan`` are 0. What a report doesn't
        have is None: ``lsst``, and the statistics from ``median`` on of each
        residual. Tables and `to_dict` leave it out.

    Raises
    ------
    OSError
        If the file can't be read.
    ValueError
        If the file is not a report: a line is missing, occurs twice or has
        no number.

    Examples
    --------
    >>> r = vostrel.read_report("report.txt")  # doctest: +SKIP
    >>> r.norm.nmad  # doctest: +SKIP
    0.0212
    """
    if not isinstance(path, (str, os.PathLike)):  # open() would read a number from a descriptor
        raise TypeError(f"path must be text or a path, not {shown(path)}")
    with open(path, encoding="utf-8", errors="replace") as stream:
        text = stream.read(LONGEST)
    found: dict[str, list[str]] = {}
    for line in text.splitlines():
        label, equals, value = line.partition(" = ")
        if equals:
            found.setdefault(label.strip(), []).append(value.strip())

    def number(*labels: str, unit: str = "") -> float:
        values = [value for label in dict.fromkeys(labels) for value in found.get(label, [])]
        if len(values) != 1:
            count = "no line" if not values else f"{len(values)} lines"
            raise ValueError(f"{os.fspath(path)!r} is not a report: it has {count} {labels[0]!r}")
        text = values[0]
        try:
            if not text.endswith(unit):
                raise ValueError
            return float(text[: len(text) - len(unit)])
        except ValueError:
            raise ValueError(
                f"{os.fspath(path)!r} is not a report: {labels[0]!r} is {text!r}"
            ) from None

    number("Data size")  # must occur once
    size = found["Data size"][0]
    if not re.fullmatch("[0-9]+", size):
        raise ValueError(f"{os.fspath(path)!r} is not a report: 'Data size' is {size!r}")
    return PointStatistics(
        n=int(size),
        n_masked=0,
        n_nan=0,
        delta=ResidualStatistics._of(
            [number(label, unit=unit) for label, _, _, unit in _core.STATISTICS], Asked()
        ),
        norm=ResidualStatistics._of(
            [number(label, console, unit=unit) for _, label, console, unit in _core.STATISTICS],
            Asked(),
        ),
    )
