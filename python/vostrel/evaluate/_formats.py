"""The formats of the output."""

from __future__ import annotations

import io
import math
import re
from collections.abc import Callable
from dataclasses import asdict
from typing import Any

from vostrel._core import VERSION
from vostrel.evaluate._compute import Results, counts_text
from vostrel.evaluate._tables import Task, column_counts, grids, heading, records

#: The columns of CSV and ECSV, and their types.
COLUMNS = {
    "estimate": "string", "from": "float64", "to": "float64", "residual": "string",
    "statistic": "string", "unit": "string", "value": "float64", "error": "float64",
    "low": "float64", "high": "float64", "method": "string", "reliable": "bool",
}


def as_text(results: Results, task: Task) -> str:
    """Return tables for a terminal."""
    lines = [*heading(task), counts_text(results.counts), *column_counts(results)]
    for title, grid in grids(results, task):
        lines += ["", title, grid.text(), *grid.notes]
    return "\n".join(lines) + "\n"


def as_markdown(results: Results, task: Task) -> str:
    """Return tables for Markdown."""
    lines = [*heading(task), counts_text(results.counts), *column_counts(results)]
    text = "\n".join(f"- {_markdown(line)}" for line in lines) + "\n"
    for title, grid in grids(results, task):
        head, *rows = (f"| {' | '.join(map(_markdown, row))} |" for row in zip(*grid.columns))
        ruler = "| --- |" + " ---: |" * (len(grid.columns) - 1)
        text += "\n".join(["", f"**{_markdown(title)}**", "", head, ruler, *rows, ""])
        text += "".join(f"\n{_markdown(note)}\n" for note in grid.notes)
    return text


def _markdown(text: str) -> str:
    for char in "\\`*_|[]<>":
        text = text.replace(char, "\\" + char)
    return text


def as_latex(results: Results, task: Task) -> str:
    """Return one tabular for each table. Needs no package."""
    lines = [*heading(task), counts_text(results.counts), *column_counts(results)]
    text = "".join(f"% {line}\n" for line in lines)
    for title, grid in grids(results, task):
        head, *rows = (" & ".join(map(_latex, row)) + " \\\\" for row in zip(*grid.columns))
        lines = ["", f"% {title}", *(f"% {note}" for note in grid.notes)]
        lines += [f"\\begin{{tabular}}{{l{'r' * (len(grid.columns) - 1)}}}", r"\hline", head]
        lines += [r"\hline", *rows, r"\hline", r"\end{tabular}", ""]
        text += "\n".join(lines)
    return text


def _latex(text: str) -> str:
    special = {
        "\\": r"\textbackslash{}", "~": r"\textasciitilde{}", "^": r"\textasciicircum{}",
        "<": r"\textless{}", ">": r"\textgreater{}", **{char: "\\" + char for char in "&%$#_{}"},
    }
    found = re.fullmatch(r"(-?[0-9.]+)(%?)(?: (\+[0-9.]+) (-[0-9.]+))?( [?!])?", text)
    if found:
        value, percent, up, down, mark = found.groups()
        halves = f"^{{{up}}}_{{{down}}}" if up else ""
        return f"${value}{halves}$" + r"\%" * bool(percent) + (mark or "")
    return "".join(special.get(char, char) for char in text)


def as_json(results: Results, task: Task) -> str:
    """Return one object with everything. NaN and infinities are null: JSON has none."""
    import json  # takes a while

    names = ("value", "error", "low", "high")
    statistics: list[dict[str, Any]] = [
        {
            "estimate": one.estimate,
            "bin": None if one.bin is None else [_finite(edge) for edge in one.bin],
            "residual": one.residual,
            "statistic": one.statistic,
            "unit": one.unit,
            **{name: _finite(getattr(one, name)) for name in names},
            "method": one.method,
            "reliable": one.reliable,
        }
        for one in records(results)
    ]
    everything: dict[str, Any] = {
        "vostrel": VERSION,
        "table": task.table,
        "command": task.command,
        "columns": asdict(task.roles),
        "delta": "reference - estimate",
        "norm": "(reference - estimate) / (1 + reference)",
        "lsst": "(estimate - reference) / (1 + reference)",
        "where": task.where,
        "missing": [_finite(value) for value in task.missing],
        "errors": task.method,
        "confidence": task.confidence,
        "rows": asdict(results.counts),
        "outside": {name: bins.n_outside for name, bins in results.bins.items()},
        "statistics": statistics,
    }
    return json.dumps(everything, indent=1, ensure_ascii=False, allow_nan=False) + "\n"


def _finite(value: float | None) -> float | None:
    return value if value is not None and math.isfinite(value) else None


def as_csv(results: Results, task: Task) -> str:
    """Return a line for each number."""
    import csv

    stream = io.StringIO()
    writer = csv.writer(stream, lineterminator="\n")
    writer.writerow(COLUMNS)
    for one in records(results):
        low, high = one.bin or (None, None)
        numbers = (one.value, one.error, one.low, one.high)
        writer.writerow([one.estimate, _digits(low), _digits(high), one.residual, one.statistic,
                         one.unit, *map(_digits, numbers), one.method,
                         "" if one.reliable is None else one.reliable])
    return stream.getvalue()


def _digits(value: float | None) -> str:
    return "" if value is None else repr(value)


def as_ecsv(results: Results, task: Task) -> str:
    """Return the lines of CSV below a header that describes them."""
    import json

    lines = ["%ECSV 1.0", "---", "delimiter: ','", "datatype:"]
    lines += [f"- {{name: {name}, datatype: {kind}}}" for name, kind in COLUMNS.items()]
    notes = [*heading(task), counts_text(results.counts), *column_counts(results)]
    lines += ["meta: !!omap", f"- comments: {json.dumps(notes)}", "schema: astropy-2.0"]
    return "".join(f"# {line}\n" for line in lines) + as_csv(results, task)


FORMATS: dict[str, Callable[[Results, Task], str]] = {
    "text": as_text,
    "json": as_json,
    "csv": as_csv,
    "ecsv": as_ecsv,
    "latex": as_latex,
    "markdown": as_markdown,
}
