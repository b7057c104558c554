"""What the commands vostrel-plot and vostrel-evaluate share."""

from __future__ import annotations

import os
import sys
import time
from collections.abc import Iterator
from contextlib import contextmanager
from typing import IO, Any, TextIO


class ProgressLine:
    """Shows the progress on a terminal, once the work takes more than a second."""

    def __init__(
        self, program: str, stream: TextIO | None = None, patience: float = 1.0
    ) -> None:
        self.program = program
        self.stream = sys.stderr if stream is None else stream
        self.due = time.monotonic() + patience
        self.shown = False

    def show(self, text: str) -> None:
        """Replace the line by the text."""
        if time.monotonic() >= self.due and self.stream.isatty():
            self.stream.write(f"\r\033[K{self.program}: {text}")
            self.stream.flush()
            self.shown = True

    def clear(self) -> None:
        """Remove the line."""
        if self.shown:
            self.stream.write("\r\033[K")
            self.stream.flush()
            self.shown = False


@contextmanager
def replaced(target: str, encoding: str | None = None) -> Iterator[IO[Any]]:
    """Open a file for bytes, or for text. It has its name only once everything is written."""
    import tempfile  # takes a while

    target = os.path.realpath(target)
    handle, temporary = tempfile.mkstemp(prefix=".vostrel-", dir=os.path.dirname(target))
    try:
        mode, newline = ("wb", None) if encoding is None else ("w", "")
        with open(handle, mode, encoding=encoding, newline=newline) as stream:
            yield stream
            stream.flush()
            os.fsync(stream.fileno())
        mask = os.umask(0)
        os.umask(mask)
        os.chmod(temporary, 0o666 & ~mask)
        os.replace(temporary, target)
    except BaseException:
        os.unlink(temporary)
        raise
