"""Writes files completely or not at all."""

from __future__ import annotations

import os
import sys
from collections.abc import Callable, Iterable, Iterator
from contextlib import AbstractContextManager, contextmanager
from typing import IO, Any, TypeAlias

from vostrel._commands import replaced
from vostrel.evaluate._errors import EvaluateError, one_line, printable

#: Writes lines to a file.
Put: TypeAlias = "Callable[[Iterable[str]], None]"


@contextmanager
def written(target: str) -> Iterator[Put]:
    """Open a file for text, which gets its name after everything is written."""
    with _naming(target):
        real = os.path.realpath(target)
        if os.path.isdir(real):
            raise EvaluateError(f"cannot write {printable(target)}: it is a folder")
        is_device = os.path.exists(real) and not os.path.isfile(real)  # or a pipe
        opened: AbstractContextManager[IO[Any]] = replaced(real, "utf-8")
        if is_device:
            opened = open(real, "w", encoding="utf-8", newline="")
        with opened as stream:

            def put(lines: Iterable[str]) -> None:
                with _naming(target):  # several files may be open
                    stream.writelines(lines)
                    stream.flush()

            yield put


@contextmanager
def _naming(target: str) -> Iterator[None]:
    """Turn an error of writing into one line that names the file."""
    try:
        yield
    except OSError as error:
        raise EvaluateError(f"cannot write {printable(target)}: {one_line(error)}") from error


def write(target: str | None, text: str) -> None:
    """Write text to a file, or to standard output."""
    if target is not None:
        with written(target) as put:
            put([text])
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
