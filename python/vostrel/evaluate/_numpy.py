"""Reads .npy and .npz."""

from __future__ import annotations

import zipfile
from collections.abc import Collection, Iterator, Sequence
from contextlib import ExitStack
from typing import IO, TYPE_CHECKING, Any

import numpy as np

from vostrel.evaluate._errors import EvaluateError
from vostrel.evaluate._readers import Chunk, Reader, cached_slices, no_part, open_binary

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray


class Stored:
    """An array in a stream of bytes, which is read from its first row on."""

    def __init__(self, stream: IO[bytes]) -> None:
        self._stream = stream
        version = np.lib.format.read_magic(stream)  # type: ignore[no-untyped-call]
        if version == (1, 0):
            header = np.lib.format.read_array_header_1_0(stream)  # type: ignore[no-untyped-call]
        else:  # 3.0 is 2.0 with names in UTF-8
            header = np.lib.format.read_array_header_2_0(stream)  # type: ignore[no-untyped-call]
        self.shape, fortran, self.dtype = header
        if self.dtype.hasobject:
            raise EvaluateError("the file holds Python objects, which could run code; "
                                "it is not read")
        self._whole: NDArray[Any] | None = None
        if fortran and len(self.shape) == 2:  # column after column
            count = self.shape[0] * self.shape[1]
            data = self._bytes(count * self.dtype.itemsize)
            self._whole = np.frombuffer(data, self.dtype, count).reshape(self.shape[::-1]).T

    def _bytes(self, size: int) -> bytes:
        data = self._stream.read(size)
        if len(data) < size:
            raise EvaluateError("the file is truncated")
        return data

    @property
    def row_bytes(self) -> int:
        """The size of a row."""
        return int(np.prod(self.shape[1:], dtype=np.int64)) * int(self.dtype.itemsize)

    def read(self, part: slice) -> NDArray[Any]:
        """Return the next rows."""
        if self._whole is not None:
            return self._whole[part]
        rows = part.stop - part.start
        data = self._bytes(rows * self.row_bytes)
        return np.frombuffer(data, self.dtype).reshape(rows, *self.shape[1:])


class Npy(Reader):
    """A structured array by its fields, or a table of numbers by the numbers 0, 1, 2..."""

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        no_part(self, "NumPy")
        with open_binary(path) as stream:
            array = Stored(stream)
        shape = array.shape
        self._fields = array.dtype.names
        if len(shape) != (2 if self._fields is None else 1):
            raise EvaluateError(f"the array has no columns: its shape is {shape}")
        self.rows = shape[0]
        if self._fields is None:
            self._types = {str(i): str(array.dtype) for i in range(shape[1])}
        else:
            self._types = {name: str(array.dtype[name]) for name in self._fields}

    def columns(self) -> dict[str, str]:
        return self._types

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        with open_binary(self.path) as stream:
            array = Stored(stream)
            for part in cached_slices(array.shape[0], array.row_bytes):
                table = array.read(part)
                if self._fields is None:
                    yield {name: table[:, int(name)] for name in names}
                else:
                    yield {name: table[name] for name in names}


class Npz(Reader):
    """One-dimensional arrays by their names."""

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        no_part(self, "NumPy")
        self._members: dict[str, Any] = {}
        with zipfile.ZipFile(path) as archive:
            for member in archive.namelist():
                if member.endswith(".npy"):
                    with archive.open(member) as stream:
                        array = Stored(stream)
                    if len(array.shape) == 1:
                        self._members[member[:-4]] = array

    def columns(self) -> dict[str, str]:
        return {name: str(array.dtype) for name, array in self._members.items()}

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        rows = self._members[names[0]].shape[0]
        for name in names:
            if self._members[name].shape[0] != rows:
                raise EvaluateError(f"{names[0]!r} and {name!r} differ in length: "
                                    f"{rows} and {self._members[name].shape[0]}")
        self.rows = int(rows)
        with ExitStack() as stack:
            archive = stack.enter_context(zipfile.ZipFile(self.path))
            arrays = {
                name: Stored(stack.enter_context(archive.open(f"{name}.npy"))) for name in names
            }
            for part in cached_slices(rows, max(array.row_bytes for array in arrays.values())):
                yield {name: array.read(part) for name, array in arrays.items()}
