"""Reads HDF5 files."""

from __future__ import annotations

from collections.abc import Collection, Iterator, Sequence
from typing import TYPE_CHECKING, Any, Optional

import numpy as np

from vostrel.evaluate._errors import EvaluateError, library
from vostrel.evaluate._readers import (
    IN_PLACE,
    Chunk,
    Mapped,
    Reader,
    cached_slices,
    masked,
    slices,
)

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray


class Hdf5(Reader):
    """Data sets by their paths below a group, and the fields of compound data sets."""

    def __init__(self, path: str, part: Optional[str]) -> None:
        super().__init__(path, part)
        self._h5py = library("reading HDF5", "h5py")
        self._found: dict[str, tuple[str, Optional[str], Any]] = {}  # data set, field, type
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
        if item.dtype.names is None:
            self._found[path or item.name] = (item.name, None, item.dtype)
            return
        for field in item.dtype.names:
            if not item.dtype[field].shape:
                name = f"{path}/{field}" if path else field
                self._found[name] = (item.name, field, item.dtype[field])

    def columns(self) -> dict[str, str]:
        return {
            name: "text" if kind.kind == "O" else str(kind)
            for name, (_, _, kind) in self._found.items()
        }

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        with self._h5py.File(self.path, "r") as file:
            lengths = {name: file[self._found[name][0]].shape[0] for name in names}
            for name in names:
                if lengths[name] != lengths[names[0]]:
                    raise EvaluateError(f"{names[0]!r} and {name!r} differ in length: "
                                        f"{lengths[names[0]]} and {lengths[name]}")
            self.rows = int(lengths[names[0]])
            whole = self._in_place(file, names)
            if whole:
                for part in slices(self.rows, 8):
                    yield {name: values[part] for name, values in whole.items()}
                return
            # A stored chunk is decompressed as a whole, each time that a part of it is read.
            stored = any(file[self._found[name][0]].chunks for name in names)
            for part in (slices if stored else cached_slices)(self.rows, 8):
                yield {name: self._read(file, name, part) for name in names}

    def _in_place(self, file: Any, names: Sequence[str]) -> Optional[Chunk]:
        """Return the columns where the file holds them, or None if they must be read."""
        data = [file[self._found[name][0]] for name in names]
        if sum(one.nbytes for one in data) > IN_PLACE:
            return None
        mapped = Mapped(self.path)
        columns = {}
        for name, one in zip(names, data):
            start = one.id.get_offset()
            if (
                start is None  # in chunks, or elsewhere
                or self._found[name][1] is not None
                or f"{name}.mask" in self._found
                or one.dtype.kind not in "fiu"
                or not one.id.get_type().equal(self._h5py.h5t.py_create(one.dtype))
                or start + one.nbytes > mapped.size
            ):
                return None
            columns[name] = mapped.array(one.dtype, len(one), start)
        return columns

    def _read(self, file: Any, name: str, part: slice) -> NDArray[Any]:
        path, field, _ = self._found[name]
        data = file[path]
        values = np.asarray(data[part] if field is None else data[field, part])
        if values.ndim == 2:
            values = values[:, 0]
        # astropy stores the mask of a column beside it.
        if f"{name}.mask" in self._found:
            return masked(values, self._read(file, f"{name}.mask", part).astype(np.bool_))
        return values
