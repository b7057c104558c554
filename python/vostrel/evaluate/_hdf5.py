"""Reads HDF5 files."""

from __future__ import annotations

import math
import os
from collections.abc import Collection, Iterator, Mapping, Sequence
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any

import numpy as np

from vostrel.evaluate._errors import EvaluateError, library
from vostrel.evaluate._readers import (
    CACHED_ROWS,
    STAY,
    Chunk,
    Mapped,
    Reader,
    masked,
    slices,
    steps,
)

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray


#: Shorter runs are slower to go over than to read.
SHORT = 1 << 13


@dataclass(frozen=True)
class Run:
    """Rows that a file holds together."""

    rows: int
    starts: dict[str, int]  # of each column, in bytes


class Hdf5(Reader):
    """Data sets by their paths below a group, and the fields of compound data sets."""

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        self._h5py = library("reading HDF5", "h5py")
        self._found: dict[str, tuple[str, str | None, Any]] = {}  # data set, field, type
        with self._h5py.File(path, "r") as file:
            root = file if part is None else file.get(part)
            if root is None:
                raise EvaluateError(f"there is no group [{part}]")
            if isinstance(root, self._h5py.Dataset):
                self._look_at("", root)
            else:
                root.visititems(self._look_at)

    def _look_at(self, path: str, item: Any) -> None:
        """Add the columns of a data set."""
        shape = getattr(item, "shape", None)
        if not shape or len(shape) > 2 or (len(shape) == 2 and shape[1] != 1):
            return
        try:
            kind = item.dtype
        except TypeError:  # NumPy has no such type; whoever reads the column is told
            self._found[path or item.name] = (item.name, None, None)
            return
        if kind.names is None and not kind.shape:
            self._found[path or item.name] = (item.name, None, kind)
        for field in kind.names or ():
            if not kind[field].shape:
                name = f"{path}/{field}" if path else field
                self._found[name] = (item.name, field, kind[field])

    def columns(self) -> dict[str, str]:
        kinds = {name: kind for name, (_, _, kind) in self._found.items()}
        return {
            name: "unknown" if kind is None else "text" if kind.kind == "O" else str(kind)
            for name, kind in kinds.items()
        }

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        with self._h5py.File(self.path, "r") as file:
            masks = [f"{name}.mask" for name in names if f"{name}.mask" in self._found]
            sets = {name: file[self._found[name][0]] for name in [*names, *masks]}
            self.rows = int(sets[names[0]].shape[0])
            for name in names:
                self._check(sets[name], name)
                if len(sets[name]) != self.rows:
                    raise EvaluateError(f"{names[0]!r} and {name!r} differ in length: "
                                        f"{self.rows} and {len(sets[name])}")
            runs = None if masks else self._in_place({name: sets[name] for name in names})
            if runs:
                yield from self._mapped(runs)
                return
            # A stored chunk is decompressed as a whole, each time that a part of it is read.
            stored = max((data.chunks or (1,))[0] for data in sets.values())
            for part in steps(self.rows, max(1, CACHED_ROWS // stored) * stored):
                yield {name: self._read(sets, name, part) for name in names}

    def _check(self, data: Any, name: str) -> None:
        """Raise an EvaluateError if a column is compressed in a way that h5py lacks."""
        how = data.id.get_create_plist()
        for i in range(how.get_nfilters()):
            code, _, _, label = how.get_filter(i)
            if not self._h5py.h5z.filter_avail(code):
                raise EvaluateError(f"column {name!r} is compressed by {label.decode()}, which "
                                    "h5py doesn't have; hdf5plugin may")

    def _in_place(self, sets: Mapping[str, Any]) -> list[Run] | None:
        """Return where the file holds the columns, or None if they must be read."""
        found = [self._pieces(name, data) for name, data in sets.items()]
        rows = found[0][0]
        if rows == 0 or any(other != rows for other, _ in found):
            return None
        starts = np.array([starts for _, starts in found])
        sizes = np.array([[rows * data.dtype.itemsize] for data in sets.values()])
        # Pieces that follow each other in the file are one.
        new = np.flatnonzero((np.diff(starts) != sizes).any(axis=0)) + 1
        firsts, total = [0, *new.tolist()], len(next(iter(sets.values())))
        if len(firsts) > 1 and len(firsts) * SHORT > total:
            return None
        ends = [first * rows for first in firsts[1:]] + [total]
        return [
            Run(end - first * rows, dict(zip(sets, starts[:, first].tolist())))
            for first, end in zip(firsts, ends)
        ]

    def _pieces(self, name: str, data: Any) -> tuple[int, Sequence[int]]:
        """Return the rows of a piece of a column in the file, and where each piece begins.

        There are 0 rows in a piece if the column must be read.
        """
        rows = len(data)
        pieces = [(0, data.id.get_offset())]
        if data.chunks is not None:
            rows = data.chunks[0]
            if (
                math.prod(data.chunks) != rows
                or data.id.get_create_plist().get_nfilters()
                or data.file.userblock_size  # some versions of HDF5 count it, others don't
                or not hasattr(data.id, "chunk_iter")
            ):
                return 0, []
            pieces = []
            data.id.chunk_iter(lambda one: pieces.append((one.chunk_offset[0], one.byte_offset)))
        starts = [start for _, start in sorted(pieces) if start is not None]
        if (
            self._found[name][1] is not None
            or data.dtype.kind not in "fiu"
            or not data.id.get_type().equal(self._h5py.h5t.py_create(data.dtype))
            or len(starts) != -(-len(data) // max(rows, 1))  # the file lacks pieces never written
            or max(starts, default=0) + rows * data.dtype.itemsize > os.path.getsize(self.path)
        ):
            return 0, []
        return rows, starts

    def _mapped(self, runs: Sequence[Run]) -> Iterator[Chunk]:
        """Go over columns where the file holds them."""
        mapped = Mapped(self.path)
        kinds = {name: self._found[name][2] for name in runs[0].starts}
        stay = sum(run.rows for run in runs) * sum(k.itemsize for k in kinds.values()) <= STAY
        for run in runs:
            columns = {
                name: mapped.array(kinds[name], run.rows, start)
                for name, start in run.starts.items()
            }
            for part in slices(run.rows, 8):
                chunk = {name: column[part] for name, column in columns.items()}
                yield chunk
                for values in () if stay else chunk.values():
                    mapped.release(values)

    def _read(self, sets: Mapping[str, Any], name: str, part: slice) -> NDArray[Any]:
        field = self._found[name][1]
        values = np.asarray(sets[name][part] if field is None else sets[name][field, part])
        if values.ndim == 2:
            values = values[:, 0]
        # astropy stores the mask of a column beside it.
        if f"{name}.mask" in sets:
            return masked(values, self._read(sets, f"{name}.mask", part).astype(np.bool_))
        return values
