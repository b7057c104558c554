"""Reads comma- and tab-separated text with a header line, by pandas."""

from __future__ import annotations

import csv
import io
import re
from collections.abc import Collection, Iterator, Sequence
from typing import IO, TYPE_CHECKING, Any

import numpy as np

from vostrel.evaluate._errors import EvaluateError, library
from vostrel.evaluate._readers import Chunk, Reader, masked, no_part, open_binary

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray

#: Fields that stand for a missing value.
MISSING = frozenset({"", "NA", "N/A", "<NA>", "NULL", "null", "None", "--"})

#: How many rows pandas returns at a time.
ROWS = 1 << 18


class Text(Reader):
    """A table of text. The first line has the names."""

    separator = ","

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        no_part(self, "text")
        self._pandas = library("reading CSV", "pandas")
        with open_binary(path) as stream:
            head = stream.read(1 << 20)
            if b"\0" in head:
                raise EvaluateError("the file is not text: it holds a byte 0")
            if not head.strip():
                raise EvaluateError("the file is empty")
            head += stream.readline(1 << 20)
        text = head.decode("utf-8-sig", "replace")
        lines = csv.reader(io.StringIO(text, newline=""), delimiter=self.separator)
        self._names = [name.strip() for name in next(filter(None, lines))]
        if any("\ufffd" in name for name in self._names):
            raise EvaluateError("the header line is not UTF-8")
        self._check_names()

    def _check_names(self) -> None:
        for name in self._names:
            if re.fullmatch(r"[-+]?(\d+\.\d*|\.\d+|\d+\.?\d*[eE][-+]?\d+)", name) or all(
                re.fullmatch(r"[-+]?\d*|nan", name) for name in self._names
            ):
                raise EvaluateError(f"the first line looks like data ({name!r}); "
                                    "it must have the names of the columns")

    def columns(self) -> dict[str, str]:
        return {name: "" for name in self._names}

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        for name in names:
            if self._names.count(name) > 1:
                raise EvaluateError(f"{self._names.count(name)} columns have the name {name!r}")
        places = {name: self._names.index(name) for name in names}
        with open_binary(self.path) as stream:
            frames = self._pandas.read_csv(
                Checked(stream, self.separator, len(self._names)),
                sep=self.separator,
                header=0,
                names=range(len(self._names)),
                usecols=sorted(places.values()),
                index_col=False,
                dtype={places[name]: str for name in names if name in text},
                na_filter=False,
                float_precision="round_trip",
                low_memory=False,
                chunksize=ROWS,
            )
            first = 1
            for frame in frames:
                yield {
                    name: (as_text if name in text else as_numbers)(
                        frame[place].to_numpy(), name, first
                    )
                    for name, place in places.items()
                }
                first += len(frame)


class TabText(Text):
    """The same with tabs."""

    separator = "\t"


def as_text(values: NDArray[Any], name: str, first: int) -> NDArray[Any]:
    """Return text, in which empty fields are masked."""
    return masked(values, np.isin(values, sorted(MISSING)))


def as_numbers(values: NDArray[Any], name: str, first: int) -> NDArray[Any]:
    """Return numbers, in which empty fields are masked. `first` is the row of the first one."""
    if values.dtype.kind != "O":
        return values
    texts = [str(value).strip() for value in values]
    missing = np.array([text in MISSING for text in texts])
    numbers = np.zeros(len(texts))
    for i, text in enumerate(texts):
        if not missing[i]:
            try:
                if "_" in text or not text.isascii():
                    raise ValueError
                numbers[i] = float(text)
            except ValueError:
                raise EvaluateError(
                    f"column {name!r} has text in row {first + i}: {text[:40]!r}"
                ) from None
    return masked(numbers, missing)


class Checked:
    """A stream that pandas reads. Refuses lines with too many or too few fields.

    pandas would pad short lines, and cut long ones, without a message.
    """

    def __init__(self, stream: IO[bytes], separator: str, width: int) -> None:
        self._stream = stream
        self._separator = ord(separator)
        self._width = width
        self._line = 1  # of the file
        self._open = 0  # separators in the unfinished line
        self._blank = True  # whether the unfinished line is blank
        self._quoted = False  # whether the unfinished field is quoted

    def __iter__(self) -> Iterator[bytes]:  # pandas asks whether there is one
        return iter(lambda: self.read(1 << 18), b"")

    def read(self, size: int = -1) -> bytes:
        """Return the next bytes."""
        block = self._stream.read(size)
        if block:
            self._check(block)
            return block
        if self._quoted:
            raise EvaluateError("a quote is never closed")
        if not self._blank and self._open != self._width - 1:
            self._refuse(self._open)
        return block

    def _check(self, block: bytes) -> None:
        if b"\0" in block:
            raise EvaluateError("the file is not text: it holds a byte 0")
        data = np.frombuffer(block, np.uint8)
        found = data == ord("\n")
        found |= data == self._separator
        marks = np.flatnonzero(found)
        if self._quoted or b'"' in block:
            inside = (np.cumsum(data == ord('"')) + self._quoted) % 2 == 1
            marks = marks[~inside[marks]]
            self._quoted = bool(inside[-1])
        ends = np.flatnonzero(data[marks] == ord("\n"))
        counts = np.diff(ends, prepend=-1) - 1
        if len(ends):
            counts[0] += self._open
            for i in np.flatnonzero(counts != self._width - 1):
                start = marks[ends[i - 1]] + 1 if i else 0
                blank = not block[start : marks[ends[i]]].strip() and (i > 0 or self._blank)
                if counts[i] or not blank:
                    self._line += int(i)
                    self._refuse(int(counts[i]))
            self._line += len(ends)
            self._open = 0
            self._blank = True
        rest = block[marks[ends[-1]] + 1 :] if len(ends) else block
        self._open += len(marks) - (int(ends[-1]) + 1 if len(ends) else 0)
        self._blank = self._blank and not rest.strip(b" \r")

    def _refuse(self, separators: int) -> None:
        raise EvaluateError(f"line {self._line} has {separators + 1} fields, "
                            f"but the header has {self._width}")
