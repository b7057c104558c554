"""Reads ECSV and VOTable by astropy, which reads such a file as a whole."""

from __future__ import annotations

import os
from collections.abc import Collection, Iterator, Sequence
from typing import TYPE_CHECKING, Any

import numpy as np

from vostrel.evaluate._errors import EvaluateError, library
from vostrel.evaluate._readers import Chunk, Reader, mask_of, masked, no_part

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray

#: Larger files would need gigabytes of memory.
LARGEST = 1 << 30


class Whole(Reader):
    """A table that astropy reads."""

    #: What astropy calls the format.
    format: str
    options: dict[str, Any] = {}

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        no_part(self, "text")
        if os.path.getsize(path) > LARGEST:
            raise EvaluateError("the file is larger than 1 GiB, and this format is read as a "
                                "whole; convert it to FITS, HDF5 or Parquet")
        table = library(f"reading {self.format}", "astropy.table")
        self._table: Any = table.Table.read(path, format=self.format, **self.options)
        self._columns = {
            column.name: column
            for column in self._table.itercols()
            if isinstance(column, table.Column) and column.ndim == 1
        }
        self.rows = len(self._table)

    def columns(self) -> dict[str, str]:
        return {
            name: "text" if column.dtype.kind in "OSU" else str(column.dtype)
            for name, column in self._columns.items()
        }

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        yield {
            name: masked(np.asarray(column), _mask(column))
            for name, column in ((name, self._columns[name]) for name in names)
        }


def _mask(column: Any) -> NDArray[np.bool_]:
    mask = mask_of(column)
    return np.zeros(len(column), np.bool_) if mask is None else mask


class Ecsv(Whole):
    """Text with a header that describes the columns."""

    format = "ascii.ecsv"


class Votable(Whole):
    """The first table of a VOTable. It has no NaN: that means NULL."""

    format = "votable"
    options = {"table_id": 0}
