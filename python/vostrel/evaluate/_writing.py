"""Writes files completely or not at all."""

from __future__ import annotations

import os
import sys
from collections.abc import Iterator
from contextlib import contextmanager
from typing import IO, Any

from vostrel._commands import replaced
from vostrel.evaluate._errors import EvaluateError, one_line, printable


@contextmanager
def written(target: str) -> Iterator[IO[Any]]:
    """Open a file for text, which gets its name after everything is written."""
    shown = printable(target)
    real = os.path.realpath(target)
    try:
        if os.path.isdir(real):
            raise EvaluateError(f"cannot write {shown}: it is a folder")
        if os.path.exists(real) and not os.path.isfile(real):  # a device or a pipe
            with open(real, "w", encoding="utf-8", newline="") as stream:
                yield stream
            return
        with replaced(real, "utf-8") as stream:
            yield stream
    except OSError as error:
        raise EvaluateError(f"cannot write {shown}: {one_line(error)}") from error


def write(target: str | None, text: str) -> None:
    """Write text to a file, or to standard output."""
    if target is not None:
        with written(target) as stream:
            stream.write(text)
        return
    if sys.stdout is None:
        raise EvaluateError("cannot write standard output: it is closed")
    try:
        sys.stdout.write(text)
        sys.stdout.flush()
    except OSError as error:
        # Python would try again at its end, and complain.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
        raise EvaluateError(f"cannot write standard output: {one_line(error)}") from error
