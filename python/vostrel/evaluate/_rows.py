"""Selects the rows of a table, and counts the others by reason."""

from __future__ import annotations

from collections.abc import Callable, Iterator, Mapping, Sequence
from dataclasses import dataclass, field
from typing import TYPE_CHECKING, Any, TypeAlias

import numpy as np

from vostrel.evaluate._errors import EvaluateError
from vostrel.evaluate._files import Table
from vostrel.evaluate._readers import data_of, mask_of

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray

    from vostrel.evaluate._where import Condition

#: Returns where so many values of a column are to be written, or None for a new array.
Room: TypeAlias = "Callable[[str, int], NDArray[np.float64] | None]"


@dataclass(frozen=True)
class Roles:
    """The columns, by their use."""

    reference: str
    estimates: tuple[str, ...]
    by: str | None = None
    groups: str | None = None

    @property
    def numbers(self) -> tuple[str, ...]:
        """The columns that must hold numbers, each once."""
        names = [self.reference, *self.estimates] + ([self.by] if self.by else [])
        return tuple(dict.fromkeys(names))


@dataclass
class Counts:
    """How many rows were read, left out and used. The first reason that applies counts."""

    read: int = 0
    not_selected: int = 0
    masked: int = 0
    missing: int = 0
    nan: int = 0
    used: int = 0
    #: The same three reasons for each column alone, among the rows that were selected.
    columns: dict[str, dict[str, int]] = field(default_factory=dict)

    def leave_out(
        self,
        reason: str,
        flags: Mapping[str, NDArray[np.bool_]],
        keep: NDArray[np.bool_] | None,
    ) -> NDArray[np.bool_] | None:
        """Count the rows that are flagged in a column, and return which are still kept."""
        for name, flag in flags.items():
            if keep is not None:
                flag = flag & keep
            if name in self.columns:
                self.columns[name][reason] += int(np.count_nonzero(flag))
        if not flags:
            return keep
        union: NDArray[np.bool_] = np.logical_or.reduce(list(flags.values()))
        left_out = union if keep is None else union & keep
        count = int(np.count_nonzero(left_out))
        setattr(self, reason, getattr(self, reason) + count)
        self.used -= count
        return ~union if keep is None else keep & ~union


@dataclass
class Objects:
    """Rows of a chunk: numbers by column, group labels, and where they come from."""

    numbers: dict[str, NDArray[np.float64]]
    groups: NDArray[Any] | None
    first: int  # row of the chunk
    kept: NDArray[np.bool_] | None  # which of its rows these are, or None for all

    def __len__(self) -> int:
        return len(next(iter(self.numbers.values())))

    @property
    def rows(self) -> NDArray[np.int64]:
        """The numbers of the rows."""
        if self.kept is None:
            return np.arange(self.first, self.first + len(self))
        return self.first + np.flatnonzero(self.kept)

    def only(self, keep: NDArray[np.bool_]) -> Objects:
        """Return some of the objects."""
        kept = keep
        if self.kept is not None:
            kept = self.kept.copy()
            kept[kept] = keep
        numbers = {name: values[keep] for name, values in self.numbers.items()}
        groups = None if self.groups is None else self.groups[keep]
        return Objects(numbers, groups, self.first, kept)

    @property
    def nbytes(self) -> int:
        """The memory of the numbers and labels in bytes."""
        size = sum(values.nbytes for values in self.numbers.values())
        if self.groups is None:
            return size
        return size + self.groups.nbytes + (self.groups.dtype.kind == "O") * 60 * len(self.groups)


class Selection:
    """Reads the used rows of a table, and counts the others."""

    def __init__(
        self, table: Table, roles: Roles, condition: Condition | None, missing: Sequence[float]
    ) -> None:
        self.roles = roles
        self.condition = condition
        self.missing = tuple(missing)
        self._table = table
        names = [*roles.numbers] + ([roles.groups] if roles.groups else [])
        self._text = {roles.groups} if roles.groups else set()
        if condition:
            names += condition.names
            self._text |= condition.texts - set(roles.numbers)
        self._names = list(dict.fromkeys(names))
        table.check(self._names)

    @property
    def rows(self) -> int | None:
        """The number of rows of the table, if it is known."""
        return self._table.rows

    def objects(
        self, counts: Counts, room: Room = lambda name, count: None
    ) -> Iterator[Objects]:
        """Yield the used rows, and add up the counts. without_nan() leaves out those with NaN."""
        text = {name for name in self._text if name}
        for name in self.roles.numbers:
            counts.columns[name] = {"masked": 0, "missing": 0, "nan": 0}
        for chunk in self._table.chunks(self._names, text):
            yield self._use(chunk, counts, room)

    def _use(self, chunk: Mapping[str, NDArray[Any]], counts: Counts, room: Room) -> Objects:
        """Return the used rows of a chunk."""
        size = len(chunk[self._names[0]])
        numbers = {name: as_doubles(name, chunk[name], room) for name in self.roles.numbers}
        groups = None if self.roles.groups is None else data_of(chunk[self.roles.groups])
        objects = Objects(numbers, groups, counts.read, None)
        keep = None if self.condition is None else self.condition.select(chunk)
        selected = size if keep is None else int(np.count_nonzero(keep))
        counts.read += size
        counts.not_selected += size - selected
        counts.used += selected
        masks = self._masks(chunk)
        keep = counts.leave_out("masked", masks, keep)
        keep = counts.leave_out("missing", self._missing(numbers, masks), keep)
        return objects if keep is None else objects.only(keep)

    def _masks(self, chunk: Mapping[str, NDArray[Any]]) -> dict[str, NDArray[np.bool_]]:
        """Return what is masked in the columns that have a mask."""
        named = [*self.roles.numbers] + ([self.roles.groups] if self.roles.groups else [])
        found = {name: mask_of(chunk[name]) for name in named}
        return {name: mask for name, mask in found.items() if mask is not None}

    def _missing(
        self,
        numbers: Mapping[str, NDArray[np.float64]],
        masks: Mapping[str, NDArray[np.bool_]],
    ) -> dict[str, NDArray[np.bool_]]:
        """Return what is missing in the columns where anything is."""
        flags: dict[str, NDArray[np.bool_]] = {}
        for name, column in numbers.items():
            for value in self.missing:
                flag = np.isnan(column) if np.isnan(value) else column == value
                if name in masks:
                    flag &= ~masks[name]
                if flag.any():
                    flags[name] = flag | flags[name] if name in flags else flag
        return flags


def without_nan(objects: Objects, counts: Counts) -> Objects:
    """Return the objects without NaN, and count the others."""
    flags = {
        name: np.isnan(values) for name, values in objects.numbers.items() if has_nan(values)
    }
    keep = counts.leave_out("nan", flags, None)
    return objects if keep is None else objects.only(keep)


def has_nan(values: NDArray[np.float64]) -> bool:
    """Return whether there is NaN: the smallest value is NaN then, which is faster to find."""
    with np.errstate(invalid="ignore"):
        return bool(len(values)) and bool(np.isnan(values.min()))


def as_doubles(
    name: str, values: NDArray[Any], room: Room = lambda name, count: None
) -> NDArray[np.float64]:
    """Return a column of numbers without its mask, converted in its room if need be."""
    data = data_of(values)
    kinds = {"b": "truth values", "c": "complex numbers", "M": "times", "m": "time spans"}
    if data.ndim != 1:
        raise EvaluateError(f"column {name!r} holds arrays, not one number per object")
    if data.dtype.kind not in "fiu":
        found = kinds.get(data.dtype.kind, "other values")
        if data.dtype.kind in "SU" or (len(data) and isinstance(data[0], (str, bytes))):
            found = "text"
        raise EvaluateError(f"column {name!r} holds {found}, not numbers")
    if data.dtype == np.float64 or (place := room(name, len(data))) is None:
        return np.asarray(data, np.float64)
    np.copyto(place, data)
    return place
