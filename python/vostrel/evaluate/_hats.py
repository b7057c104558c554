"""Reads HATS catalogues by lsdb, partition by partition."""

from __future__ import annotations

import importlib
import io
import os
from collections.abc import Collection, Iterator, Sequence
from contextlib import redirect_stderr, redirect_stdout
from typing import Any

from vostrel.evaluate._errors import library
from vostrel.evaluate._parquet import from_arrow
from vostrel.evaluate._readers import Chunk, Reader, no_part

#: One of these files is in the folder of every catalogue.
PROPERTIES = ("hats.properties", "properties", "collection.properties")


def is_hats(path: str) -> bool:
    """Return whether a folder is a HATS catalogue."""
    return any(os.path.isfile(os.path.join(path, name)) for name in PROPERTIES)


class Hats(Reader):
    """A HATS catalogue."""

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        no_part(self, "HATS")
        self._lsdb = library("reading HATS", "lsdb")
        with redirect_stdout(io.StringIO()), redirect_stderr(io.StringIO()):
            catalog = self._lsdb.open_catalog(path)
            self.rows = len(catalog)
            self._names = [str(name) for name in catalog.all_columns]

    def columns(self) -> dict[str, str]:
        return {name: "" for name in self._names}

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        arrow: Any = importlib.import_module("pyarrow")
        catalog = self._lsdb.open_catalog(self.path, columns=list(names))
        for i in range(catalog.npartitions):
            # dask and lsdb show bars of their own.
            with redirect_stdout(io.StringIO()), redirect_stderr(io.StringIO()):
                frame = catalog.partitions[i].compute()
            yield {name: from_arrow(arrow.Array.from_pandas(frame[name]), name) for name in names}
