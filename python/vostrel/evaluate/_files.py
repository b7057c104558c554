"""The table that a user names: files, globs, parts in brackets, and standard input."""

from __future__ import annotations

import glob
import importlib
import os
import re
import sys
from collections.abc import Collection, Iterator, Sequence
from contextlib import contextmanager
from typing import Any

from vostrel.evaluate._errors import EvaluateError, one_line, printable
from vostrel.evaluate._readers import Chunk, Reader

#: The module and the class that read a file, by its ending.
READERS = {
    "fits": ("_fits", "Fits"),
    "fit": ("_fits", "Fits"),
    "hdf5": ("_hdf5", "Hdf5"),
    "hdf": ("_hdf5", "Hdf5"),
    "h5": ("_hdf5", "Hdf5"),
    "parquet": ("_parquet", "parquet"),
    "pq": ("_parquet", "parquet"),
    "csv": ("_text", "Text"),
    "tsv": ("_text", "TabText"),
    "ecsv": ("_whole", "Ecsv"),
    "vot": ("_whole", "Votable"),
    "votable": ("_whole", "Votable"),
    "xml": ("_whole", "Votable"),
    "npy": ("_numpy", "Npy"),
    "npz": ("_numpy", "Npz"),
}

#: Endings that may be followed by .gz.
GZIPPED = ("fits", "fit", "csv", "tsv", "ecsv", "vot", "votable", "xml", "npy")

#: How files of some endings begin.
BEGINNINGS = {
    "fits": b"SIMPLE  =",
    "fit": b"SIMPLE  =",
    "parquet": b"PAR1",
    "pq": b"PAR1",
    "npy": b"\x93NUMPY",
    "npz": b"PK",
    "ecsv": b"# %ECSV",
}

#: What the messages call `-`.
STDIN = "standard input"

_ENDING = r"\.(" + "|".join(READERS) + r")(\.gz)?"


def names_file(word: str) -> bool:
    """Return whether an argument is a file rather than a column."""
    return word == "-" or bool(re.search(_ENDING + r"(\[[^][]*\])?$", word, re.IGNORECASE))


@contextmanager
def reading(path: str) -> Iterator[None]:
    """Turn the errors of reading a file into one line that names it."""
    try:
        yield
    except EvaluateError as error:
        raise EvaluateError(f"{printable(path)}: {error}") from error
    except MemoryError:
        raise
    except Exception as error:  # libraries raise anything for a damaged file
        raise EvaluateError(f"cannot read {printable(path)}: {one_line(error)}") from error


def expand(word: str) -> list[tuple[str, str | None]]:
    """Return the files, with their parts, that an argument names."""
    if word == "-":
        return [(word, None)]
    part = None
    path = word
    if not os.path.exists(word):
        found = re.fullmatch(r"(.*" + _ENDING + r")\[([^][]*)\]", word, re.IGNORECASE | re.DOTALL)
        if found:
            path, part = found[1], found[4]
    if os.path.exists(path) or not glob.has_magic(path):
        return [(path, part)]
    paths = sorted(glob.glob(path))
    if not paths:
        raise EvaluateError(f"no file matches {printable(path)}")
    return [(path, part) for path in paths]


def open_file(path: str, part: str | None, name: str | None = None) -> Reader:
    """Return the reader of a file. Errors call it by its name."""
    with reading(path if name is None else name):
        if os.path.isdir(path):
            from vostrel.evaluate._hats import Hats, is_hats

            if not is_hats(path):
                raise EvaluateError("it is a folder, and not a HATS catalogue")
            return Hats(path, part)
        if os.path.exists(path) and not os.path.isfile(path):
            raise EvaluateError("it is not a regular file; pass its content to - as CSV")
        with open(path, "rb") as stream:  # whether it exists and may be read
            beginning = stream.read(16)
        found = re.search(_ENDING + "$", path, re.IGNORECASE)
        if not found:
            raise EvaluateError(f"the name must end in one of {', '.join(sorted(READERS))}")
        ending, compressed = found[1].lower(), bool(found[2])
        if compressed and ending not in GZIPPED:
            raise EvaluateError(f"a .{ending} file can't be gzipped; unpack it first")
        if not compressed and not beginning.startswith(BEGINNINGS.get(ending, b"")):
            raise EvaluateError(f"the name ends in .{ending}, but that is not what the file holds")
        module, name = READERS[ending]
        reader = getattr(importlib.import_module(f"vostrel.evaluate.{module}"), name)
        result: Reader = reader(path, part)
        return result


class Table:
    """One or several files with the same columns, read as one table."""

    def __init__(self, words: Sequence[str]) -> None:
        self._copy: Any = None  # of standard input, which can be read only once
        self.label = " ".join(words)
        files = [file for word in words for file in expand(word)]
        self.readers = [self._open(path, part) for path, part in files]
        self.names = [STDIN if path == "-" else printable(path) for path, _ in files]

    def _open(self, path: str, part: str | None) -> Reader:
        if path != "-":
            return open_file(path, part)
        if self._copy is None:
            import shutil
            import tempfile

            self._copy = tempfile.NamedTemporaryFile(prefix="vostrel-", suffix=".csv")
            try:
                shutil.copyfileobj(sys.stdin.buffer, self._copy)
                self._copy.flush()
            except OSError as error:
                raise EvaluateError(f"cannot copy standard input to "
                                    f"{tempfile.gettempdir()}: {one_line(error)}") from error
        return open_file(self._copy.name, None, STDIN)

    def close(self) -> None:
        """Remove the copy of standard input."""
        if self._copy is not None:
            self._copy.close()

    @property
    def rows(self) -> int | None:
        """The number of rows, if it is known."""
        counts = [reader.rows for reader in self.readers]
        return None if None in counts else sum(filter(None, counts))

    def check(self, names: Sequence[str]) -> None:
        """Raise an EvaluateError unless every file has these columns."""
        for reader, file in zip(self.readers, self.names):
            known = list(reader.columns())
            for name in names:
                if name not in known:
                    raise EvaluateError(f"{file} has no column {name!r}{nearest(name, known)}")

    def chunks(self, names: Sequence[str], text: Collection[str]) -> Iterator[Chunk]:
        """Yield the rows of all files."""
        for reader, file in zip(self.readers, self.names):
            with reading(file):
                yield from reader.chunks(names, text)


def nearest(name: str, known: Sequence[str]) -> str:
    """Return the end of a message about an unknown column: the nearest name, and all names."""
    import difflib

    if not known:
        return ": it has no columns"
    folded = {other.casefold(): other for other in known}
    likely = difflib.get_close_matches(name.casefold(), list(folded)[:2000], 1, 0.5)
    likely = likely or [other for other in folded if other.endswith("/" + name.casefold())]
    hint = f"; did you mean {folded[likely[0]]!r}?" if likely else ";"
    shown = ", ".join(repr(other) for other in known[:20])
    more = f" and {len(known) - 20} more" if len(known) > 20 else ""
    return f"{hint} It has {shown}{more}" if likely else f"; it has {shown}{more}"
