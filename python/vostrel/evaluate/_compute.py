"""The statistics of the used rows, in memory or in passes over the files."""

from __future__ import annotations

import os
from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass, field
from itertools import chain
from typing import TYPE_CHECKING, Any, Literal, TypeVar

import numpy as np

import vostrel
from vostrel._accumulator import Accumulator, BinnedAccumulator
from vostrel._inputs import Columns
from vostrel._options import read_asked
from vostrel._point import statistics_of
from vostrel._results import BinnedStatistics, PointStatistics, Uncertainties
from vostrel.evaluate._errors import EvaluateError
from vostrel.evaluate._rows import Counts, Objects, Room, Selection

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray

#: Called with the task, the amount done, and the total, if it is known.
Progress = Callable[[str, int, int | None], None]

Result = TypeVar("Result")

#: How many objects are added to the passes at a time.
BLOCK = 1 << 20


@dataclass(frozen=True)
class Options:
    """What is computed."""

    bins: Any = None  # as in binned_statistics
    percentiles: tuple[float, ...] = ()
    outliers: tuple[float, ...] = ()
    errors: Literal["none", "formula", "bootstrap"] = "none"
    resamples: int = 1000
    confidence: float = 0.683
    seed: int | None = None
    memory: int = 1 << 29  # bytes that the columns may take

    @property
    def asked(self) -> dict[str, Any]:
        """The requested numbers, as options of vostrel's functions."""
        return {"percentiles": self.percentiles, "outliers": self.outliers}


@dataclass
class Results:
    """All numbers, each by the name of the estimate."""

    counts: Counts
    points: dict[str, PointStatistics] = field(default_factory=dict)
    errors: dict[str, Uncertainties] = field(default_factory=dict)
    bins: dict[str, BinnedStatistics] = field(default_factory=dict)
    #: The errors of each bin. None where a bin has too few objects or groups.
    bin_errors: dict[str, list[Uncertainties | None]] = field(default_factory=dict)
    #: The differences by the names of two estimates.
    differences: dict[tuple[str, str], Uncertainties] = field(default_factory=dict)
    #: The objects, unless they are larger than the memory that they may take.
    objects: Objects | None = None


def evaluate(
    selection: Selection,
    options: Options,
    progress: Progress,
    watch: Callable[[Objects], None] | None = None,
) -> Results:
    """Return all numbers. `watch` sees the objects of the first pass."""
    counts = Counts()
    results = Results(counts)
    store = Store(selection, options.memory)
    chunks = _watched(selection, progress, counts, watch, store.room)
    for objects in chunks:
        store.add(objects)
        if store.nbytes > options.memory:
            refuse_large(options)
            _in_passes(results, selection, options, chain([store.take()], chunks), progress)
            return results
    if not counts.used:
        raise EvaluateError(f"no objects are left: {counts_text(counts)}")
    results.objects = store.take()
    _in_memory(results, selection, options, progress)
    return results


def counts_text(counts: Counts) -> str:
    """Return the counts as one line."""
    return (f"{counts.read} rows read, {counts.not_selected} not selected, {counts.masked} masked, "
            f"{counts.missing} missing, {counts.nan} with NaN, {counts.used} used")


def refuse_large(options: Options) -> None:
    """Raise an EvaluateError if an option needs all objects at once."""
    needs = []
    if options.errors != "none":
        needs.append(f"--errors {options.errors}")
    if isinstance(options.bins, tuple):
        needs.append("bins of equal counts")
    if needs:
        raise EvaluateError(
            f"the columns take more than {options.memory / (1 << 30):g} GiB, and "
            f"{' and '.join(needs)} must have all objects in memory; allow more by --memory"
        )


def _watched(
    selection: Selection,
    progress: Progress,
    counts: Counts,
    watch: Callable[[Objects], None] | None,
    room: Room,
) -> Iterator[Objects]:
    for objects in selection.objects(counts, room):
        if watch is not None:
            watch(objects)
        progress("reading", counts.read, selection.rows)
        yield objects


class Store:
    """Objects that are kept in memory."""

    def __init__(self, selection: Selection, memory: int) -> None:
        names = selection.roles.numbers
        rows = selection.rows or 0
        expected = rows if 8 * rows * len(names) <= memory else 0
        self._numbers = {name: Kept(expected) for name in names}
        self._groups: list[NDArray[Any]] = []
        self.nbytes = 0

    def room(self, name: str, count: int) -> NDArray[np.float64] | None:
        """Return where the next values of a column belong, or None if no more are kept."""
        return self._numbers[name].room(count) if self._numbers else None

    def add(self, objects: Objects) -> None:
        """Add a chunk."""
        for name, values in objects.numbers.items():
            self._numbers[name].add(values)
        if objects.groups is not None:
            self._groups.append(objects.groups.copy())  # it may be a part of a larger chunk
        self.nbytes += objects.nbytes

    def take(self) -> Objects:
        """Return all objects as one, and keep no more."""
        numbers = {name: kept.values for name, kept in self._numbers.items()}
        self._numbers = {}
        return Objects(numbers, np.concatenate(self._groups) if self._groups else None, 0, None)


class Kept:
    """A column that grows: where the file holds it, or in an array. Joining would copy it."""

    def __init__(self, expected: int) -> None:
        self.values = np.empty(0)
        self._expected = expected  # a lower bound of the number of values. Untouched memory is free
        self._owner: Any = None
        self._room: NDArray[np.float64] | None = None

    def room(self, count: int) -> NDArray[np.float64]:
        """Return where the next values belong."""
        size = len(self.values)
        if self._room is None:
            # NumPy takes huge pages for empty(), which are slow to find beside cached files.
            self._room = np.zeros(max(size + count, self._expected))
            self._room[:size] = self.values
        elif size + count > len(self._room):
            self.values = np.empty(0)  # no view of the room, which moves
            self._room.resize(max(size + count, 3 * len(self._room) // 2), refcheck=False)
        self.values = self._room[:size]
        return self._room[size : size + count]

    def add(self, values: NDArray[np.float64]) -> None:
        """Add values, which may be in the room already."""
        size = len(self.values)
        if self._room is None and size == 0:
            self.values = values
            self._owner = owner(values)
        elif self._room is None and owner(values) is self._owner and follows(self.values, values):
            self.values = np.lib.stride_tricks.as_strided(
                self.values, (size + len(values),), writeable=False
            )
        else:
            room = self.room(len(values))
            if address(room) != address(values):
                room[:] = values
            assert self._room is not None
            self.values = self._room[: size + len(values)]


def follows(before: NDArray[Any], values: NDArray[Any]) -> bool:
    """Return whether values begin in memory where others end."""
    return (
        before.flags.c_contiguous
        and values.flags.c_contiguous
        and address(values) == address(before) + before.nbytes
    )


def owner(values: Any) -> Any:
    """Return what holds the memory of an array, such as a mapped file."""
    while isinstance(values, np.ndarray) and values.base is not None:
        values = values.base
    return values


def address(values: NDArray[Any]) -> int:
    """Return where an array begins in memory."""
    return int(values.__array_interface__["data"][0])


# ---- in memory -----------------------------------------------------------------------------------


def _in_memory(
    results: Results, selection: Selection, options: Options, progress: Progress
) -> None:
    """Compute everything from the objects."""
    roles = selection.roles
    objects = results.objects
    assert objects is not None
    reference = objects.numbers[roles.reference]
    estimates = {name: objects.numbers[name] for name in roles.estimates}
    groups = None if objects.groups is None else labels_of(objects.groups)
    asked = read_asked(options.percentiles, options.outliers)
    results.points = for_each(
        lambda estimate: statistics_of(Columns([reference, estimate], []), "raise", asked, False),
        estimates,
    )
    _add_errors(results, reference, estimates, groups, options, progress)
    if options.bins is None:
        return
    by = objects.numbers[roles.by or roles.reference]
    results.bins = for_each(
        lambda estimate: vostrel.binned_statistics(
            reference, estimate, by, bins=options.bins, **options.asked
        ),
        estimates,
    )
    for name, estimate in estimates.items():
        bins = results.bins[name]
        if options.errors != "none":
            results.bin_errors[name] = [
                _bin_errors(reference[one], estimate[one], None if groups is None else groups[one],
                            options)
                for one in members(by, bins.edges)
            ]
            progress("errors of bins", len(results.bin_errors), len(estimates))


def for_each(
    function: Callable[[NDArray[np.float64]], Result], estimates: Mapping[str, NDArray[np.float64]]
) -> dict[str, Result]:
    """Return the result of the function for each estimate. All processors share them."""
    if len(estimates) == 1:
        return {name: function(estimate) for name, estimate in estimates.items()}
    from concurrent.futures import ThreadPoolExecutor  # takes a while

    threads = ThreadPoolExecutor(min(len(estimates), os.cpu_count() or 1))
    try:
        return dict(zip(estimates, threads.map(function, estimates.values())))
    finally:
        threads.shutdown(cancel_futures=True)


def labels_of(groups: NDArray[Any]) -> NDArray[Any]:
    """Return labels as integers if they are, else as text: the same from every format."""
    if groups.dtype.kind in "iu":
        return groups
    if groups.dtype.kind in "SO":
        groups = np.array([
            label.decode("utf-8", "replace") if isinstance(label, bytes) else str(label)
            for label in groups.tolist()
        ])
    try:
        return groups.astype(np.int64) if groups.dtype.kind == "U" else groups
    except ValueError:
        return np.char.strip(groups)


def _add_errors(
    results: Results,
    reference: NDArray[np.float64],
    estimates: Mapping[str, NDArray[np.float64]],
    groups: NDArray[Any] | None,
    options: Options,
    progress: Progress,
) -> None:
    """Add the errors of all estimates and of their differences."""
    if options.errors == "formula":
        results.errors = for_each(
            lambda estimate: vostrel.uncertainties(
                reference, estimate, confidence=options.confidence, **options.asked
            ),
            estimates,
        )
    if options.errors != "bootstrap":
        return
    how: dict[str, Any] = {
        "resamples": options.resamples,
        "confidence": options.confidence,
        "groups": groups,
        "seed": options.seed,
        "workers": -1,
        "progress": lambda done, total: progress("resampling", done, total),
        **options.asked,
    }
    if len(estimates) == 1:
        (name, estimate), = estimates.items()
        results.errors[name] = vostrel.bootstrap(reference, estimate, **how)
        return
    compared = vostrel.bootstrap_difference(reference, estimates, **how)
    results.errors.update(compared.estimates)
    names = list(estimates)
    for i, first in enumerate(names):
        for second in names[i + 1 :]:
            results.differences[first, second] = compared[first, second]


def members(
    by: NDArray[np.float64], edges: NDArray[np.float64]
) -> Iterator[NDArray[np.bool_]]:
    """Return for each bin which objects are in it."""
    for i, (low, high) in enumerate(zip(edges, edges[1:])):
        yield (by >= low) & ((by <= high) if i == len(edges) - 2 else (by < high))


def _bin_errors(
    reference: NDArray[np.float64],
    estimate: NDArray[np.float64],
    groups: NDArray[Any] | None,
    options: Options,
) -> Uncertainties | None:
    """Return the errors of one bin, or None if it has too few objects or groups."""
    if len(reference) < 2 or (groups is not None and len(np.unique(groups)) < 2):
        return None
    if options.errors == "formula":
        return vostrel.uncertainties(
            reference, estimate, confidence=options.confidence, **options.asked
        )
    return vostrel.bootstrap(
        reference, estimate, resamples=options.resamples, confidence=options.confidence,
        groups=groups, seed=options.seed, workers=-1, **options.asked,
    )


# ---- in passes -----------------------------------------------------------------------------------


def _in_passes(
    results: Results,
    selection: Selection,
    options: Options,
    first: Iterator[Objects],
    progress: Progress,
) -> None:
    """Compute the statistics in passes, of which `first` is the first."""
    roles = selection.roles
    by = roles.by or roles.reference
    points = {name: Accumulator(**options.asked) for name in roles.estimates}
    bins: dict[str, BinnedAccumulator] = {}
    find_range = isinstance(options.bins, int)
    if options.bins is not None and not find_range:
        bins = {
            name: BinnedAccumulator(options.bins, **options.asked) for name in roles.estimates
        }
    low, high = np.inf, -np.inf
    chunks = first
    number = 0
    while True:
        number += 1
        adding = [
            (state, name)
            for states in (points, bins)
            for name, state in states.items()  # type: ignore[attr-defined]
            if state.needs_another_pass
        ]
        if not adding:
            break
        done = 0
        for objects in chunks:
            if number == 1 and find_range and len(objects):
                low = min(low, objects.numbers[by].min())
                high = max(high, objects.numbers[by].max())
            for state, name in adding:
                _add(state, objects, roles.reference, name, by)
            done += len(objects)
            progress(f"pass {number}", done, results.counts.used if number > 1 else None)
        for state, _ in adding:
            state.end_pass()
        if number == 1 and find_range:
            bins = {
                name: BinnedAccumulator(options.bins, (float(low), float(high)), **options.asked)
                for name in roles.estimates
            }
        chunks = selection.objects()
    results.points = {name: state.result() for name, state in points.items()}
    results.bins = {name: state.result() for name, state in bins.items()}


def _add(
    state: Accumulator | BinnedAccumulator, objects: Objects, reference: str, name: str, by: str
) -> None:
    """Add objects to a pass, a block at a time."""
    for start in range(0, len(objects), BLOCK):
        block = slice(start, start + BLOCK)
        values = (objects.numbers[reference][block], objects.numbers[name][block])
        if isinstance(state, BinnedAccumulator):
            state.add(*values, objects.numbers[by][block])
        else:
            state.add(*values)
