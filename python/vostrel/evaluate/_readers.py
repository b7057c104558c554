"""The common part of all readers. They return columns of one file, chunk by chunk."""

from __future__ import annotations

import mmap
from abc import ABC, abstractmethod
from collections.abc import Collection, Iterator, Sequence
from typing import IO, TYPE_CHECKING, Any, TypeAlias

import numpy as np

from vostrel.evaluate._errors import EvaluateError

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray

#: Columns by name. Masked and NULL entries are masked.
Chunk: TypeAlias = "dict[str, NDArray[Any]]"

#: Rows and bytes of a chunk if each read is expensive.
ROWS = 1 << 20
BYTES = 1 << 25

#: And if it is cheap: such a chunk stays in the cache while it is converted and copied.
CACHED_ROWS = 1 << 16
CACHED_BYTES = 1 << 20

#: Columns of so many bytes of a mapped file stay in memory until the end.
STAY = 1 << 29


class Reader(ABC):
    """A table in a file. `part` is the text in brackets after its name."""

    #: The number of rows, if it is known before reading.
    rows: int | None = None

    def __init__(self, path: str, part: str | None) -> None:
        self.path = path
        self.part = part

    @abstractmethod
    def columns(self) -> dict[str, str]:
        """Return the names of the columns, and the type of each."""

    @abstractmethod
    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        """Yield the rows. In formats of text, columns in `text` stay text."""


def open_binary(path: str) -> IO[bytes]:
    """Return the file as a stream of bytes, decompressed if its name ends in .gz."""
    if not path.lower().endswith(".gz"):
        return open(path, "rb")
    import gzip  # takes a while

    stream: Any = gzip.open(path)
    return stream  # type: ignore[no-any-return]


class Mapped:
    """The bytes of a file, which come into memory when they are used."""

    def __init__(self, path: str) -> None:
        with open(path, "rb") as stream:
            self._bytes = mmap.mmap(stream.fileno(), 0, access=mmap.ACCESS_READ)
        self.size = len(self._bytes)
        self._address = address(np.frombuffer(self._bytes, np.uint8))

    def array(self, dtype: Any, count: int, start: int) -> NDArray[Any]:
        """Return an array that the file holds."""
        return np.frombuffer(self._bytes, dtype, count, start)

    def release(self, values: NDArray[Any]) -> None:
        """Take an array that the file holds out of memory. It comes again if it is used."""
        start = address(values) - self._address
        if hasattr(mmap, "MADV_DONTNEED") and values.nbytes:
            before = start % mmap.PAGESIZE
            self._bytes.madvise(mmap.MADV_DONTNEED, start - before, values.nbytes + before)


def address(values: NDArray[Any]) -> int:
    """Return where an array begins in memory."""
    return int(values.__array_interface__["data"][0])


def slices(rows: int, row_bytes: int) -> Iterator[slice]:
    """Return slices of so many rows."""
    return steps(rows, max(1, min(ROWS, BYTES // max(row_bytes, 1))))


def cached_slices(rows: int, row_bytes: int) -> Iterator[slice]:
    """Return slices that stay in the cache."""
    return steps(rows, max(1, min(CACHED_ROWS, CACHED_BYTES // max(row_bytes, 1))))


def steps(rows: int, step: int) -> Iterator[slice]:
    """Return slices of a number of rows each, but the last."""
    return (slice(first, min(first + step, rows)) for first in range(0, rows, step))


def no_part(reader: Reader, kind: str) -> None:
    """Raise an EvaluateError if a part of the file was requested."""
    if reader.part is not None:
        raise EvaluateError(f"a {kind} file has no [{reader.part}]; only FITS and HDF5 have parts")


def masked(values: NDArray[Any], mask: NDArray[np.bool_]) -> NDArray[Any]:
    """Return the values, as a masked array if anything is masked."""
    if not mask.any():
        return values
    result: NDArray[Any] = _ma().MaskedArray(values, mask)
    return result


def data_of(values: NDArray[Any]) -> NDArray[Any]:
    """Return the values without their mask."""
    data: NDArray[Any] = values if type(values) is np.ndarray else _ma().getdata(values)
    return data


def mask_of(values: NDArray[Any]) -> NDArray[np.bool_] | None:
    """Return the mask, or None if nothing is masked."""
    if type(values) is np.ndarray:
        return None
    mask: NDArray[np.bool_] = _ma().getmask(values)
    return None if mask is _ma().nomask or not mask.any() else mask


def _ma() -> Any:
    """Return numpy.ma, which takes a while to import, and for which NumPy has no types."""
    return np.ma
