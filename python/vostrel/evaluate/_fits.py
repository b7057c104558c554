"""Reads FITS tables. Binary tables need no library."""

from __future__ import annotations

import math
import re
from collections.abc import Collection, Iterator, Sequence
from contextlib import closing, suppress
from dataclasses import dataclass
from typing import IO, TYPE_CHECKING, Any

import numpy as np

from vostrel.evaluate._errors import EvaluateError, library
from vostrel.evaluate._readers import (
    CACHED_ROWS,
    Chunk,
    Mapped,
    Reader,
    cached_slices,
    masked,
    open_binary,
    steps,
)

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray

#: The bytes of one element of a column, by its code.
SIZES = {"L": 1, "B": 1, "I": 2, "J": 4, "K": 8, "A": 1, "E": 4, "D": 8, "C": 8, "M": 16, "P": 8,
         "Q": 16}

#: The types of the columns of one number.
KINDS = {"L": "i1", "B": "u1", "I": ">i2", "J": ">i4", "K": ">i8", "E": ">f4", "D": ">f8"}

#: The bytes of which headers and data fill a whole number, and the cards of a header in them.
BLOCK = 2880
CARDS = 36

#: Tables, by what their headers call them.
TABLES = ("BINTABLE", "A3DTABLE", "TABLE")


@dataclass(frozen=True)
class Column:
    """A column of a binary table, as the header describes it."""

    format: str
    start: int  # in a row, in bytes
    scale: Any
    zero: Any
    null: Any

    @property
    def code(self) -> str:
        """The letter of the type."""
        return self.format.lstrip("0123456789")[:1]

    @property
    def count(self) -> int:
        """The number of elements of an entry."""
        digits = self.format[: len(self.format) - len(self.format.lstrip("0123456789"))]
        return int(digits or 1)

    @property
    def size(self) -> int:
        """The bytes of an entry."""
        if self.code == "X":
            return (self.count + 7) // 8
        if self.code not in SIZES:
            raise EvaluateError(f"there is no format {self.format!r}")
        return self.count * SIZES[self.code]


class Fits(Reader):
    """A binary or ASCII table. By default the first one."""

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        number, header, self._start = self._choose(headers(path))
        self.part = str(number)
        self.rows = int(header["NAXIS2"])
        self._row_bytes = int(header["NAXIS1"])
        self._ascii = kind_of(header) == "TABLE"
        self._names: list[str] = []
        self._columns: dict[str, Column] = {}
        start = 0
        for i in range(1, int(header["TFIELDS"]) + 1):
            name = str(header.get(f"TTYPE{i}", f"col{i}")).strip()
            column = Column(
                str(header[f"TFORM{i}"]).strip(), start, header.get(f"TSCAL{i}", 1),
                header.get(f"TZERO{i}", 0), header.get(f"TNULL{i}"),
            )
            start += 0 if self._ascii else column.size
            self._names.append(name)
            self._columns[name] = column
        if start > self._row_bytes:
            raise EvaluateError(f"the columns take {start} bytes, but a row has {self._row_bytes}")

    def _choose(self, found: Iterator[tuple[Header, int]]) -> tuple[int, Header, int]:
        """Return the number of the requested extension, its header and its data."""
        for number, (header, start) in enumerate(found):
            is_table = kind_of(header) in TABLES and not header.get("ZIMAGE")
            name = str(header.get("EXTNAME", "")).strip()
            if self.part is None:
                chosen = is_table
            elif self.part.isdigit():
                chosen = number == int(self.part)
            else:
                chosen = name.casefold() == self.part.strip().casefold()
            if chosen and not is_table:
                raise EvaluateError(f"extension [{self.part}] is not a table")
            if chosen and header.get("ZTABLE"):
                raise EvaluateError("the table is compressed inside the file; "
                                    "expand it by funpack")
            if chosen:
                return number, header, start
        if self.part is None:
            raise EvaluateError("the file holds no table, only images")
        raise EvaluateError(f"there is no extension [{self.part}]")

    def columns(self) -> dict[str, str]:
        return {name: column.format for name, column in self._columns.items()}

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        for name in names:
            if self._names.count(name) > 1:
                raise EvaluateError(f"{self._names.count(name)} columns have the name {name!r}")
        if self._ascii:
            yield from self._ascii_chunks(names)
            return
        columns = {name: self._columns[name] for name in names}
        for name, column in columns.items():
            if column.code != "A" and (column.code not in KINDS or column.count != 1):
                raise EvaluateError(f"column {name!r} holds arrays, not one number per object "
                                    f"(format {column.format})")
        kind = np.dtype({
            "names": list(columns),
            "formats": [KINDS.get(one.code, f"S{one.size}") for one in columns.values()],
            "offsets": [one.start for one in columns.values()],
            "itemsize": self._row_bytes,
        })
        compressed = self.path.lower().endswith(".gz")
        for table in self._streamed(kind) if compressed else self._mapped(kind):
            yield {name: values_of(table[name], one) for name, one in columns.items()}

    def _mapped(self, kind: Any) -> Iterator[NDArray[Any]]:
        """Yield the rows in the memory of the file."""
        assert self.rows is not None
        mapped = Mapped(self.path)
        self._check(0, self.rows, mapped.size - self._start)
        whole = mapped.array(kind, self.rows, self._start)
        for part in steps(self.rows, CACHED_ROWS):
            yield whole[part]
            mapped.release(whole[part])

    def _streamed(self, kind: Any) -> Iterator[NDArray[Any]]:
        """Yield the rows of a compressed file."""
        assert self.rows is not None
        with open_binary(self.path) as stream:
            stream.seek(self._start)
            for part in cached_slices(self.rows, self._row_bytes):
                data = stream.read((part.stop - part.start) * self._row_bytes)
                self._check(part.start, part.stop, len(data))
                yield np.frombuffer(data, kind)

    def _check(self, first: int, last: int, size: int) -> None:
        """Raise an EvaluateError unless the rows have so many bytes."""
        found = first + max(size, 0) // max(self._row_bytes, 1)
        if found < last:
            raise EvaluateError(f"the file ends in row {found + 1} of {self.rows}")

    def _ascii_chunks(self, names: Sequence[str]) -> Iterator[Chunk]:
        for name in names:
            if self._columns[name].null not in (None, ""):
                raise EvaluateError(f"column {name!r} of an ASCII table has TNULL, "
                                    "which is not supported")
        with closing(library("reading ASCII tables", "astropy.io.fits").open(self.path)) as hdus:
            table = hdus[int(self.part or 0)].data
            yield {name: np.array(table[name]) for name in names}


class Header(dict[str, Any]):
    """The values of a header, by keyword."""

    def __missing__(self, key: str) -> Any:
        raise EvaluateError(f"a header lacks {key}")


def headers(path: str) -> Iterator[tuple[Header, int]]:
    """Yield the headers of a file, each with the offset of its data."""
    with open_binary(path) as stream:
        while header := read_header(stream):
            start = stream.tell()
            yield header, start
            stream.seek(start + -(-max(data_size(header), 0) // BLOCK) * BLOCK)


def read_header(stream: IO[bytes]) -> Header | None:
    """Return the header that begins here, or None at the end of the file."""
    cards: list[str] = []
    while "END" not in cards[-CARDS:]:
        block = stream.read(BLOCK)
        if not cards and not block.startswith((b"SIMPLE ", b"XTENSION")):
            return None
        if len(block) < BLOCK or not block.isascii():
            raise EvaluateError("a header is damaged, or the file ends in it")
        cards += [block[i : i + 80].decode().rstrip() for i in range(0, BLOCK, 80)]
    header = Header()
    key = ""
    for card in cards:
        if card.startswith("CONTINUE") and str(header.get(key)).endswith("&"):
            header[key] = header[key][:-1] + str(value_of(card[8:]))
        elif card[8:9] == "=" and (value := value_of(card[9:])) != "":
            key = card[:8].rstrip()
            header.setdefault(key, value)
    return header


def value_of(text: str) -> Any:
    """Return the value of a card: text, a truth value or a number."""
    if quoted := re.match(r" *'((?:[^']|'')*)'", text):
        return quoted[1].replace("''", "'").rstrip()
    word = text.partition("/")[0].strip()
    for kind in (int, float):
        with suppress(ValueError):
            return kind(word.replace("D", "E"))
    return word == "T" if word in ("T", "F") else word


def kind_of(header: Header) -> str:
    """Return what an extension is."""
    return str(header.get("XTENSION", "")).strip()


def data_size(header: Header) -> int:
    """Return the size of a header's data in bytes."""
    axes = [int(header[f"NAXIS{i}"]) for i in range(1, int(header["NAXIS"]) + 1)]
    if header.get("GROUPS") and axes and axes[0] == 0:
        axes = axes[1:]
    if not axes:
        return 0
    elements = int(header.get("PCOUNT", 0)) + math.prod(axes)
    return abs(int(header["BITPIX"])) // 8 * int(header.get("GCOUNT", 1)) * elements


def values_of(raw: NDArray[Any], column: Column) -> NDArray[Any]:
    """Return the values that the stored ones stand for."""
    code = column.code
    if code == "A":
        return raw
    if code == "L":
        return masked(raw == ord("T"), (raw != ord("T")) & (raw != ord("F")))
    scale, zero = column.scale, column.zero
    values = raw
    if scale == 1 and code in "BIJ" and zero == int(zero):
        values = raw.astype(np.int64) + int(zero)
    elif scale == 1 and code == "K" and zero == 1 << 63:
        values = raw.astype(np.uint64) ^ np.uint64(1 << 63)
    elif scale != 1 or zero != 0:
        values = raw.astype(np.float64) * scale + zero
    if column.null in (None, "") or code not in "BIJK":
        return values
    return masked(values, raw == int(column.null))
