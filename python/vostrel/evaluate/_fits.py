"""Reads FITS tables."""

from __future__ import annotations

import re
from collections.abc import Collection, Iterator, Sequence
from contextlib import closing
from types import SimpleNamespace
from typing import Any, Optional

import numpy as np
from numpy.typing import NDArray

from vostrel.evaluate._errors import EvaluateError, library
from vostrel.evaluate._readers import Chunk, Reader, cached_slices, masked, open_binary


def fits(path: str, part: str | None) -> Reader:
    """Return a reader that uses astropy, or else fitsio."""
    if library("reading FITS", "astropy.io.fits", "fitsio").__name__ == "fitsio":
        return ByFitsio(path, part)
    return ByAstropy(path, part)


class ByAstropy(Reader):
    """A binary or ASCII table. By default the first one."""

    def __init__(self, path: str, part: Optional[str]) -> None:
        super().__init__(path, part)
        self._fits = library("reading FITS", "astropy.io.fits")
        with closing(self._fits.open(path, memmap=True)) as hdus:
            number = self._choose(hdus)
            hdu = hdus[number]
            self.part = str(number)
            self.rows = int(hdu.header["NAXIS2"])
            self._row_bytes = int(hdu.header["NAXIS1"])
            self._start = hdu.fileinfo()["datLoc"]
            self._columns = {column.name: column for column in hdu.columns}
            self._dtype = hdu.columns.dtype.newbyteorder(">")
            self._ascii = not isinstance(hdu, self._fits.BinTableHDU)

    def _choose(self, hdus: Any) -> int:
        """Return the number of the extension that was asked for."""
        tables = [i for i, hdu in enumerate(hdus) if hasattr(hdu, "columns")]
        if not tables:
            raise EvaluateError("the file holds no table, only images")
        if self.part is None:
            number = tables[0]
        else:
            key: Any = int(self.part) if self.part.isdigit() else self.part
            try:
                number = hdus.index_of(key)
            except KeyError:
                number = -1
            if not 0 <= number < len(hdus):
                raise EvaluateError(f"there is no extension [{self.part}]")
            if number not in tables:
                raise EvaluateError(f"extension [{self.part}] is not a table")
        if hdus[number].header.get("ZTABLE"):
            raise EvaluateError("the table is compressed inside the file; expand it by funpack")
        return number

    def columns(self) -> dict[str, str]:
        return {name: str(column.format) for name, column in self._columns.items()}

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        if self._ascii:
            yield from self._ascii_chunks(names)
            return
        for name in names:
            if not re.fullmatch(r"1?[LBIJKED]|\d*A.*", self._columns[name].format):
                raise EvaluateError(f"column {name!r} holds arrays, not one number an object "
                                    f"(format {self._columns[name].format})")
        assert self.rows is not None
        with open_binary(self.path) as stream:
            stream.seek(self._start)
            for part in cached_slices(self.rows, self._row_bytes):
                size = (part.stop - part.start) * self._row_bytes
                data = stream.read(size)
                if len(data) < size:
                    row = part.start + len(data) // self._row_bytes + 1
                    raise EvaluateError(f"the file ends in row {row} of {self.rows}")
                table = np.frombuffer(data, self._dtype)
                yield {name: self._values(table[name], self._columns[name]) for name in names}

    def _values(self, raw: NDArray[Any], column: Any) -> NDArray[Any]:
        """Return the values that the stored ones stand for."""
        code = column.format[-1] if raw.dtype.kind != "S" else "A"
        if code == "A":
            return raw
        if code == "L":
            return masked(raw == ord("T"), (raw != ord("T")) & (raw != ord("F")))
        scale = 1 if column.bscale in (None, "") else column.bscale
        zero = 0 if column.bzero in (None, "") else column.bzero
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

    def _ascii_chunks(self, names: Sequence[str]) -> Iterator[Chunk]:
        for name in names:
            if self._columns[name].null not in (None, ""):
                raise EvaluateError(f"column {name!r} of an ASCII table has TNULL, "
                                    "which is not supported")
        with closing(self._fits.open(self.path)) as hdus:
            table = hdus[int(self.part or 0)].data
            yield {name: np.array(table[name]) for name in names}


#: The bytes of one element of a column, by its code.
SIZES = {"L": 1, "B": 1, "I": 2, "J": 4, "K": 8, "A": 1, "E": 4, "D": 8, "C": 8, "M": 16, "P": 8,
         "Q": 16}


#: The types of the columns of one number.
KINDS = {"L": "i1", "B": "u1", "I": ">i2", "J": ">i4", "K": ">i8", "E": ">f4", "D": ">f8"}


class ByFitsio(ByAstropy):
    """Binary tables that fitsio finds. Rows are read here: it would scale in single precision."""

    def __init__(self, path: str, part: Optional[str]) -> None:
        Reader.__init__(self, path, part)
        with library("reading FITS", "fitsio").FITS(path) as hdus:
            number = self._number(hdus)
            header = dict(hdus[number].read_header())
            self._start = hdus[number].get_offsets()["data_start"]
        if header.get("ZTABLE"):
            raise EvaluateError("the table is compressed inside the file; expand it by funpack")
        self.part = str(number)
        self.rows = int(header["NAXIS2"])
        self._row_bytes = int(header["NAXIS1"])
        self._ascii = False
        self._columns = {}
        fields = []
        for i in range(1, int(header["TFIELDS"]) + 1):
            name = str(header.get(f"TTYPE{i}", f"col{i}")).strip()
            form = str(header[f"TFORM{i}"]).strip()
            code = form.lstrip("0123456789")[0]
            count = int(form.partition(code)[0] or 1)
            size = (count + 7) // 8 if code == "X" else count * SIZES[code]
            kind = f"S{size}" if code == "A" else f"V{size}"
            fields.append((name, KINDS.get(code, kind) if count == 1 else kind))
            self._columns[name] = SimpleNamespace(
                format=form, bscale=header.get(f"TSCAL{i}"), bzero=header.get(f"TZERO{i}"),
                null=header.get(f"TNULL{i}"),
            )
        self._dtype = np.dtype(fields)

    def _number(self, hdus: Any) -> int:
        """Return the number of the extension that was asked for."""
        kinds = [hdu.get_exttype() for hdu in hdus]
        if "BINARY_TBL" not in kinds:
            raise EvaluateError("the file holds no binary table; ASCII tables need astropy")
        names = [hdu.get_extname() for hdu in hdus]
        number = kinds.index("BINARY_TBL")
        if self.part is not None:
            number = int(self.part) if self.part.isdigit() else -1
            if self.part in names:
                number = names.index(self.part)
            if not 0 <= number < len(kinds):
                raise EvaluateError(f"there is no extension [{self.part}]")
        if kinds[number] != "BINARY_TBL":
            raise EvaluateError(f"extension [{self.part}] is not a binary table")
        return number
