"""The statistics of the used rows, in memory or in passes over the files."""

from __future__ import annotations

import os
from collections import deque
from collections.abc import Callable, Iterator, Mapping
from dataclasses import dataclass, field
from itertools import chain, repeat
from typing import TYPE_CHECKING, Any, Literal, TypeVar

import numpy as np

import vostrel
from vostrel._accumulator import Accumulator, BinnedAccumulator
from vostrel._exchange import Chunks
from vostrel._inputs import Columns
from vostrel._options import read_asked
from vostrel._point import statistics_of
from vostrel._results import BinnedStatistics, PointStatistics, Uncertainties
from vostrel.evaluate._errors import EvaluateError
from vostrel.evaluate._readers import address
from vostrel.evaluate._rows import Counts, Objects, Roles, Selection, without_nan

if TYPE_CHECKING:  # takes as long to import as this package
    from numpy.typing import NDArray

#: Called with the task, the amount done, and the total, if it is known.
Progress = Callable[[str, int, int | None], None]

Result = TypeVar("Result")

#: How many objects are added to the passes at a time.
BLOCK = 1 << 20

#: Converted values are written to arrays of so many: the system gives large memory faster.
ROOM = 1 << 22


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
    #: The numbers of all objects, unless they are larger than the memory that they may take.
    columns: dict[str, Any] | None = None  # arrays, or several as Chunks


def evaluate(
    selection: Selection,
    options: Options,
    progress: Progress,
    watch: Callable[[Objects], None] | None = None,
) -> Results:
    """Return all numbers. `watch` sees the objects of the first pass."""
    counts = Counts()
    results = Results(counts)
    store = Store()
    chunks = _watched(selection, progress, counts, watch, store)
    for objects in chunks:
        store.add(objects)
        if store.nbytes > options.memory:
            store.leave_out_nan(counts)
        if store.nbytes > options.memory:
            refuse_large(options)
            del objects  # it would keep the mapped file
            _in_passes(results, selection, options, chain(store.parts(), chunks), progress)
            return results
    roles = selection.roles
    results.points = _points(store, counts, roles, options)
    if any(points.n_nan for points in results.points.values()):
        store.leave_out_nan(counts)
        results.points = _points(store, counts, roles, options)
    results.columns, labels = store.columns(), store.labels()
    del store  # errors copy columns in several arrays
    _in_memory(results, roles, labels, options, progress)
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
    store: Store,
) -> Iterator[Objects]:
    for objects in selection.objects(counts, store.room):
        if not store.may_have_nan:
            objects = without_nan(objects, counts)
        if objects.first == 0 and watch is None and selection.roles.by is None and not counts.nan:
            # The statistics find NaN sooner than a search of a file, but start again then. A chunk
            # without rows tells nothing: the next one has the same first row.
            store.may_have_nan = len(objects) > 0 and not isinstance(
                owner(objects.numbers[selection.roles.reference]), np.ndarray
            )
        if watch is not None:
            watch(objects)
        progress("reading", counts.read, selection.rows)
        yield objects


class Store:
    """Objects that are kept in memory, in the arrays that were read."""

    def __init__(self) -> None:
        self.may_have_nan = False
        self._parts: deque[Objects] = deque()
        self._rooms: dict[str, NDArray[np.float64]] | None = {}
        self.nbytes = 0

    def room(self, name: str, count: int) -> NDArray[np.float64] | None:
        """Return where the next values of a column belong, or None if no more are kept."""
        if self._rooms is None:
            return None
        if name not in self._rooms or len(self._rooms[name]) < count:
            self._rooms[name] = np.empty(max(count, ROOM))
        return self._rooms[name][:count]

    def add(self, objects: Objects) -> None:
        """Add a chunk."""
        if not len(objects):
            return
        numbers = {name: self._kept(name, values) for name, values in objects.numbers.items()}
        groups = None if objects.groups is None else alone(objects.groups)
        self._parts.append(Objects(numbers, groups, objects.first, None))
        self.nbytes += objects.nbytes

    def _kept(self, name: str, values: NDArray[np.float64]) -> NDArray[np.float64]:
        """Return an array to keep: values in the room stay there."""
        rooms = self._rooms or {}
        if name not in rooms or address(rooms[name]) != address(values):
            return alone(values)
        rooms[name] = rooms[name][len(values) :]
        return values

    def leave_out_nan(self, counts: Counts) -> None:
        """Leave out the objects with NaN, unless that is done."""
        for _ in range(len(self._parts) if self.may_have_nan else 0):
            part = without_nan(self._parts.popleft(), counts)
            if len(part):
                self._parts.append(part)
        self.may_have_nan = False
        self.nbytes = sum(part.nbytes for part in self._parts)

    def parts(self) -> Iterator[Objects]:
        """Yield the chunks, and keep them no more."""
        self._rooms = None
        while self._parts:
            yield self._parts.popleft()

    def columns(self) -> dict[str, Any]:
        """Return the numbers of all chunks by name."""
        return {
            name: joined([part.numbers[name] for part in self._parts])
            for name in self._parts[0].numbers
        }

    def labels(self) -> NDArray[Any] | None:
        """Return the labels of all chunks."""
        labels = [part.groups for part in self._parts if part.groups is not None]
        return np.concatenate(labels) if labels else None


def alone(values: NDArray[Any]) -> NDArray[Any]:
    """Return the values in an array that keeps no others in memory."""
    holder = owner(values)
    is_part = isinstance(holder, np.ndarray) and holder.nbytes > values.nbytes
    return values.copy() if is_part or not values.flags.c_contiguous else values


def joined(arrays: list[NDArray[np.float64]]) -> NDArray[np.float64] | Chunks:
    """Return contiguous arrays as one column, without a copy."""
    runs: list[tuple[NDArray[np.float64], int]] = []
    end, holder = -1, None
    for values in arrays:
        first, size = values, 0
        if address(values) == end and owner(values) is holder:
            first, size = runs.pop()
        runs.append((first, size + len(values)))
        end, holder = address(values) + values.nbytes, owner(values)
    whole = [
        np.lib.stride_tricks.as_strided(first, (size,), writeable=False) for first, size in runs
    ]
    return whole[0] if len(whole) == 1 else Chunks(whole)


def owner(values: Any) -> Any:
    """Return what holds the memory of an array, such as a mapped file."""
    while isinstance(values, np.ndarray) and values.base is not None:
        values = values.base
    return values


# ---- in memory -----------------------------------------------------------------------------------


def _points(
    store: Store, counts: Counts, roles: Roles, options: Options
) -> dict[str, PointStatistics]:
    """Return the statistics of all objects in the store, or that they have NaN."""
    if not counts.used:
        raise EvaluateError(f"no objects are left: {counts_text(counts)}")
    columns = store.columns()
    asked = read_asked(options.percentiles, options.outliers)
    return for_each(
        lambda name: statistics_of(
            Columns([columns[roles.reference], columns[name]], []), "propagate", asked
        ),
        {name: name for name in roles.estimates},
    )


def _in_memory(
    results: Results, roles: Roles, labels: NDArray[Any] | None, options: Options,
    progress: Progress,
) -> None:
    """Add to the statistics everything else that is computed from the columns."""
    columns = results.columns
    assert columns is not None
    if options.errors != "none":  # errors need whole arrays
        for name, values in columns.items():
            columns[name] = np.asarray(values)
    reference = columns[roles.reference]
    estimates = {name: columns[name] for name in roles.estimates}
    groups = None if labels is None else labels_of(labels)
    _add_errors(results, reference, estimates, groups, options, progress)
    if options.bins is None:
        return
    by = columns[roles.by or roles.reference]
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
    function: Callable[[Any], Result], estimates: Mapping[str, Any]
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
    points = {name: Accumulator(**options.asked) for name in roles.estimates}
    bins: dict[str, BinnedAccumulator] = {}
    find_range = isinstance(options.bins, int)
    if options.bins is not None and not find_range:
        bins = {
            name: BinnedAccumulator(options.bins, **options.asked) for name in roles.estimates
        }
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
        total = results.counts.used if number > 1 else None
        range_of_by = _one_pass(
            chunks, adding, roles, find_range and number == 1,
            lambda done: progress(f"pass {number}", done, total),
        )
        for state, _ in adding:
            state.end_pass()
        if number == 1 and find_range:
            bins = {
                name: BinnedAccumulator(options.bins, range_of_by, **options.asked)
                for name in roles.estimates
            }
        ignored = Counts()  # the first pass has counted
        chunks = map(without_nan, selection.objects(ignored), repeat(ignored))
    results.points = {name: state.result() for name, state in points.items()}
    results.bins = {name: state.result() for name, state in bins.items()}


def _one_pass(
    chunks: Iterator[Objects],
    adding: list[tuple[Accumulator | BinnedAccumulator, str]],
    roles: Roles,
    find_range: bool,
    report: Callable[[int], None],
) -> tuple[float, float]:
    """Add all objects. Return the range of the column of --by if it is asked for.

    No object is referred to afterwards: it would keep a mapped file in memory.
    """
    by = roles.by or roles.reference
    low, high, done = np.inf, -np.inf, 0
    for objects in chunks:
        if find_range and len(objects):
            low = min(low, float(objects.numbers[by].min()))
            high = max(high, float(objects.numbers[by].max()))
        for state, name in adding:
            _add(state, objects, roles.reference, name, by)
        done += len(objects)
        report(done)
    return low, high


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
