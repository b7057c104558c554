"""Reads Parquet by pyarrow, polars or DuckDB."""

from __future__ import annotations

import importlib
from collections.abc import Collection, Iterator, Sequence
from typing import TYPE_CHECKING, Any

import numpy as np

from vostrel.evaluate._errors import EvaluateError
from vostrel.evaluate._readers import Chunk, Reader, masked, no_part, slices

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray


def parquet(path: str, part: str | None) -> Reader:
    """Return a reader that uses the first of the three libraries that is installed."""
    kinds: tuple[type[Any], ...] = (ByPyarrow, ByPolars, ByDuckdb)
    for kind in kinds:
        try:
            reader: Reader = kind(path, part)
            return reader
        except ModuleNotFoundError:
            continue
    raise EvaluateError("reading Parquet needs pyarrow, polars or duckdb, from PyPI")


class ByPyarrow(Reader):
    """A Parquet file, read by pyarrow."""

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        no_part(self, "Parquet")
        self._parquet = importlib.import_module("pyarrow.parquet")
        with self._parquet.ParquetFile(path) as file:
            self.rows = file.metadata.num_rows
            self._types = {field.name: str(field.type) for field in file.schema_arrow}

    def columns(self) -> dict[str, str]:
        return self._types

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        with self._parquet.ParquetFile(self.path) as file:
            # Batches of the whole file would keep all that has been read of it in memory.
            for group in range(file.num_row_groups):
                for batch in file.iter_batches(1 << 18, [group], list(names)):
                    yield {name: from_arrow(batch.column(name), name) for name in names}


def from_arrow(array: Any, name: str) -> NDArray[Any]:
    """Return an array or chunked array of pyarrow as an array of NumPy."""
    arrow = importlib.import_module("pyarrow")
    kinds = arrow.types
    if hasattr(array, "combine_chunks"):
        array = array.combine_chunks()
    if kinds.is_dictionary(array.type):
        array = array.dictionary_decode()
    if kinds.is_nested(array.type):
        raise EvaluateError(f"column {name!r} holds {array.type}, not one number per object")
    if kinds.is_null(array.type) or kinds.is_decimal(array.type):
        array = array.cast(arrow.float64())
    if not array.null_count:
        return array.to_numpy(zero_copy_only=False)  # type: ignore[no-any-return]
    mask = np.asarray(array.is_null().to_numpy(zero_copy_only=False), np.bool_)
    if not kinds.is_temporal(array.type):
        zero: Any = "" if _is_text(kinds, array.type) else 0
        array = array.fill_null(arrow.scalar(zero).cast(array.type))
    return masked(array.to_numpy(zero_copy_only=False), mask)


def _is_text(kinds: Any, kind: Any) -> bool:
    return bool(kinds.is_string(kind) or kinds.is_large_string(kind) or kinds.is_binary(kind))


class ByPolars(Reader):
    """A Parquet file, read by polars."""

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        no_part(self, "Parquet")
        self._polars = importlib.import_module("polars")
        schema = self._polars.read_parquet_schema(path)
        self._types = {name: str(kind) for name, kind in schema.items()}
        scan = self._polars.scan_parquet(path, glob=False)
        self.rows = int(scan.select(self._polars.len()).collect().item())

    def columns(self) -> dict[str, str]:
        return self._types

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        scan = self._polars.scan_parquet(self.path, glob=False).select(list(names))
        assert self.rows is not None
        for part in slices(self.rows, 8):
            frame = scan.slice(part.start, part.stop - part.start).collect()
            yield {name: self._values(frame[name], name) for name in names}

    def _values(self, series: Any, name: str) -> NDArray[Any]:
        if series.dtype.is_nested():
            raise EvaluateError(f"column {name!r} holds {series.dtype}, not one number per object")
        if series.dtype.is_decimal() or series.dtype == self._polars.Null:
            series = series.cast(self._polars.Float64)
        mask = series.is_null().to_numpy()
        if mask.any() and series.dtype.is_numeric():
            series = series.fill_null(0)
        return masked(series.to_numpy(), np.asarray(mask, np.bool_))


class ByDuckdb(Reader):
    """A Parquet file, read by DuckDB."""

    def __init__(self, path: str, part: str | None) -> None:
        super().__init__(path, part)
        no_part(self, "Parquet")
        self._duckdb = importlib.import_module("duckdb")
        self._escaped = path.replace("'", "''")
        for pattern in "*?[":
            if pattern in path:
                raise EvaluateError(f"DuckDB can't read a file whose name has {pattern!r}")
        with self._duckdb.connect() as connection:
            self.rows = int(self._run(connection, "count(*)").fetchone()[0])
            described = connection.execute(f"describe from read_parquet('{self._escaped}')")
            self._types = {row[0]: str(row[1]).lower() for row in described.fetchall()}

    def _run(self, connection: Any, what: str, where: str = "") -> Any:
        table = f"read_parquet('{self._escaped}', file_row_number = true)"
        return connection.execute(f"select {what} from {table} {where}")

    def columns(self) -> dict[str, str]:
        return self._types

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        columns = []
        for name in names:
            kind = self._types[name]
            quoted = '"' + name.replace('"', '""') + '"'
            if kind.endswith("]") or kind.startswith(("struct", "map", "list")):
                raise EvaluateError(f"column {name!r} holds {kind}, not one number per object")
            columns.append(f"{quoted}::double" if kind.startswith("decimal") else quoted)
        assert self.rows is not None
        with self._duckdb.connect() as connection:
            for part in slices(self.rows, 8):
                rows = (f"where file_row_number between {part.start} and {part.stop - 1} "
                        "order by file_row_number")
                found = self._run(connection, ", ".join(columns), rows)
                yield dict(zip(names, found.fetchnumpy().values()))
