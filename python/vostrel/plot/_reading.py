"""Reads the three-column file of a run."""

from __future__ import annotations

import os
from collections.abc import Callable

import numpy as np
from numpy.typing import NDArray

from vostrel import _core
from vostrel.plot._errors import PlotError

#: Bytes of the file that are read at a time.
BLOCK = 1 << 23

#: A longer line can't be three numbers.
LONGEST_LINE = 4096

Floats = NDArray[np.float64]


def read_internal(
    path: str, report_progress: Callable[[float], None] = lambda share: None
) -> tuple[Floats, Floats]:
    """Read the references and estimates of a file ``ID zspec zphot``.

    Parameters
    ----------
    path : str
        The file. It ends at its first empty line, as it does for the program.
    report_progress : callable
        Called after each block with the share of the file that is read, 0 to 1.

    Returns
    -------
    reference, estimate : ndarray of float64, shape (n,)

    Raises
    ------
    PlotError
        If the file can't be read, has no objects, or has a line that is not
        three numbers.
    """
    references: list[Floats] = []
    estimates: list[Floats] = []
    line = 1
    try:
        with open(path, "rb") as stream:
            size = os.fstat(stream.fileno()).st_size
            ended = False
            while not ended and (block := stream.read(BLOCK)):
                if not block.endswith(b"\n"):
                    rest = stream.readline(LONGEST_LINE)
                    if len(rest) == LONGEST_LINE and not rest.endswith(b"\n"):
                        raise _not_a_row(path, line + block.count(b"\n"))
                    block += rest if rest.endswith(b"\n") else rest + b"\n"
                end = 0 if block.startswith(b"\n") else block.find(b"\n\n") + 1
                if end or block.startswith(b"\n"):
                    block, ended = block[:end], True
                start = 0
                while start < len(block):
                    reference, estimate, start = _core.read_rows(block, start)
                    line += len(reference)
                    references.append(reference)
                    estimates.append(estimate)
                    if start < len(block):
                        end = block.index(b"\n", start)
                        numbers = _read_odd_row(block[start:end])
                        if numbers is None:
                            raise _not_a_row(path, line)
                        references.append(numbers[1:2])
                        estimates.append(numbers[2:])
                        line += 1
                        start = end + 1
                report_progress(min(1.0, stream.tell() / size) if size else 1.0)
    except OSError as error:
        raise PlotError(f"cannot read {path!r}: {error.strerror}") from error
    if line == 1:
        raise PlotError(f"{path!r} holds no objects")
    return np.concatenate(references), np.concatenate(estimates)


def _read_odd_row(line: bytes) -> Floats | None:
    """Return three numbers that don't have the program's form, for example with wider gaps."""
    words = [word for word in line.split(b" ") if word.strip()]
    if len(words) != 3 or b"_" in line:
        return None
    try:
        return np.array([float(word) for word in words])
    except ValueError:
        return None


def _not_a_row(path: str, line: int) -> PlotError:
    remedy = "" if line > 1 else (
        "; if it is a table, first run vostrel --stats on it, which leaves the file internal.txt"
    )
    return PlotError(
        f"{path!r}, line {line}: not three columns of numbers (ID zspec zphot){remedy}"
    )
