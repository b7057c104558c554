"""The statistics of objects that are added in chunks, in several passes."""

from __future__ import annotations

import pickle
import threading
from contextlib import ExitStack
from typing import TYPE_CHECKING, Any, Generic, Literal, TypeVar, get_args

import numpy as np

from vostrel import _core
from vostrel._binned import fixed_edges
from vostrel._inputs import Columns, check_counts, prepare
from vostrel._options import Asked, Numbers, check_choice, read_asked
from vostrel._point import made_of
from vostrel._results import (
    BinnedLsstMetrics,
    BinnedResidualStatistics,
    BinnedStatistics,
    PointStatistics,
)

if TYPE_CHECKING:
    from numpy.typing import NDArray

ChunkNanPolicy = Literal["raise", "omit"]

#: Increased whenever the pickle of a state changes.
PICKLE_VERSION = 3

#: The bytes of a pickle's checksum, with which it begins.
DIGEST = 32

Core = TypeVar("Core", _core.Accumulator, _core.BinnedAccumulator)
Self = TypeVar("Self", bound="State[Any]")


class State(Generic[Core]):
    """The common part of `Accumulator` and `BinnedAccumulator`. Each call locks the state."""

    #: The arrays of a chunk. The first two are required.
    CHUNK: tuple[str, ...]

    # The class of the core.
    _CORE: Any

    def __init__(self, nan_policy: str, asked: Asked, core: Core, left_out: int) -> None:
        check_choice("nan_policy of chunks", nan_policy, get_args(ChunkNanPolicy))
        self._set(nan_policy, asked, core, True, np.zeros(left_out, np.uint64))

    def _set(
        self,
        nan_policy: str,
        asked: Asked,
        core: Core,
        first: bool,
        left_out: NDArray[np.uint64],
    ) -> None:
        self._nan_policy = nan_policy
        self._asked = asked
        self._core: Core = core
        self._first = first  # whether this is the first pass
        # Counted in the first pass: n_masked, n_nan, and the objects with NaN in each bin.
        self._left_out = left_out
        self._where_nan = ""  # in the first chunk with NaN
        self._lock = threading.Lock()
        self._stop = _core.Stop()  # of `add`

    def _add(self, part: Columns, chunk: Columns) -> None:
        """Add a part of a chunk, or all of it."""
        with self._lock:
            self._refuse_more()
            has_nan = self._first or bool(self._left_out[1])
            left_out = self._core.add(part.values, part.masks, has_nan, self._stop)
            if self._first:
                self._left_out += np.array(left_out, np.uint64)
                if left_out[1] and self._nan_policy == "raise" and not self._where_nan:
                    self._where_nan = f" (in a chunk: {chunk.where_nan()})"

    def merge(self: Self, other: Self) -> None:
        """Add the chunks of another state from the same pass.

        Parameters
        ----------
        other : same type
            A state made by `fresh` in this pass, or in the first pass by the
            constructor with the same options. It is not changed.

        Raises
        ------
        ValueError
            If the two states are not in the same pass, have different
            options, or are the same object.
        TypeError
            If `other` is not such a state.
        RuntimeError
            If no further pass is needed.
        """
        if type(other) is not type(self):
            raise TypeError(f"{type(self).__name__} can't be merged with {type(other).__name__}")
        if other is self:
            raise ValueError("a state can't be merged with itself")
        if other._nan_policy != self._nan_policy:
            raise ValueError(
                "states to be merged must have one nan_policy, "
                f"not {self._nan_policy!r} and {other._nan_policy!r}"
            )
        if other._asked != self._asked:
            raise ValueError("states to be merged must have the same percentiles and outliers")
        with ExitStack() as locks:
            for state in sorted((self, other), key=id):  # always in one order: no deadlock
                locks.enter_context(state._lock)
            self._refuse_more()
            self._core.merge(other._core)
            if self._first:
                self._left_out += other._left_out
                self._where_nan = self._where_nan or other._where_nan

    @property
    def needs_another_pass(self) -> bool:
        """Whether another pass over all chunks is needed."""
        with self._lock:
            return bool(self._core.needs_another_pass())

    def end_pass(self) -> None:
        """End the pass. Call this when all chunks have been added or merged.

        Raises
        ------
        ValueError
            If there are no objects, if there is NaN with
            ``nan_policy="raise"``, or if this pass saw different objects from
            the first: a 64-bit checksum detects that.
        RuntimeError
            If no further pass is needed.
        """
        with self._lock:
            self._refuse_more()
            if self._first:
                n, (n_masked, n_nan) = self._core.size(), self._left_out[:2].tolist()
                if self._nan_policy == "raise":
                    n += n_nan
                check_counts(self._nan_policy, n, n_masked, n_nan, self._where_nan)
            self._core.end_pass()
            self._first = False

    def fresh(self: Self) -> Self:
        """Return an empty state from the same pass, for a worker to start from."""
        with self._lock:
            new = object.__new__(type(self))
            left_out = self._left_out * (not self._first)
            new._set(self._nan_policy, self._asked, self._core.fresh(), self._first, left_out)
            return new

    def _refuse_more(self) -> None:
        if not self._core.needs_another_pass():
            raise RuntimeError("no further pass is needed: call result()")

    def _refuse_result(self) -> None:
        if self._core.needs_another_pass():
            raise RuntimeError("there is no result yet: another pass is needed")

    def __getstate__(self) -> bytes:
        with self._lock:
            left_out = self._left_out.tolist()
            fields: tuple[Any, ...] = (
                self._nan_policy, tuple(self._asked), self._core.to_bytes(), self._first, left_out,
                self._where_nan,
            )
        written = pickle.dumps((PICKLE_VERSION, *fields), protocol=4)
        return _digest(written) + written

    def __setstate__(self, state: bytes) -> None:
        written = state[DIGEST:] if isinstance(state, bytes) else b""
        if not written or _digest(written) != state[:DIGEST]:
            raise ValueError("this is not the state of an accumulator: its bytes were changed")
        version, *fields = pickle.loads(written)
        if version != PICKLE_VERSION:
            raise ValueError(
                f"this state has version {version}, and this release of vostrel "
                f"reads version {PICKLE_VERSION}: use the same release for all workers"
            )
        nan_policy, asked, core, first, left_out, where_nan = fields
        core = self._CORE.from_bytes(core)
        self._set(nan_policy, Asked(*asked), core, first, np.array(left_out, np.uint64))
        self._where_nan = where_nan


class Accumulator(State[_core.Accumulator]):
    """The state of statistics over chunks, for custom schedulers.

    The scheduler adds all objects in each pass, in chunks of any size and in
    any order. Workers may share the chunks: each starts from `fresh` and adds
    its own chunks, and then all states are merged. The numbers have the same
    bits for any chunks, in any order, on any number of workers.

    Parameters
    ----------
    percentiles, outliers : float or array_like of float, optional
        As in `point_statistics`.
    nan_policy : {"raise", "omit"}
        What to do with objects that have NaN and are not masked: raise a
        ValueError at the end of the first pass, or leave them out.
        Infinities are numbers.

    Raises
    ------
    ValueError
        If `nan_policy` is something else, or a percentile or a bound is out of
        its range.

    Notes
    -----
    Ordinary data take two passes, hard data more, no data more than nine. Up
    to 8192 objects take one.

    A state can be pickled; that takes a few megabytes at most. The pickle has
    a version and a checksum: other versions and corrupt bytes raise a
    ValueError. Threads may share a state; their calls run one after another.

    If `add` raises an exception, a part of the chunk may have been added.
    Don't use the state any more.

    Examples
    --------
    In one process:

    >>> import vostrel
    >>> chunks = [([0.5, 1.0], [0.4, 1.1]), ([1.5, 2.0], [1.4, 2.3])]
    >>> passes = vostrel.Accumulator()
    >>> while passes.needs_another_pass:
    ...     for reference, estimate in chunks:
    ...         passes.add(reference, estimate)
    ...     passes.end_pass()
    >>> round(passes.result().norm.nmad, 6)
    0.086485

    With workers, each of which may be another process:

    >>> def work(start, chunk):
    ...     part = start.fresh()
    ...     part.add(*chunk)
    ...     return part
    >>> passes = vostrel.Accumulator()
    >>> while passes.needs_another_pass:
    ...     for part in map(work, [passes.fresh()] * 2, chunks):
    ...         passes.merge(part)
    ...     passes.end_pass()
    >>> round(passes.result().norm.nmad, 6)
    0.086485
    """

    CHUNK = ("reference", "estimate", "mask")
    _CORE = _core.Accumulator

    def __init__(
        self,
        *,
        percentiles: Numbers = (),
        outliers: Numbers = (),
        nan_policy: ChunkNanPolicy = "raise",
    ) -> None:
        asked = read_asked(percentiles, outliers)
        super().__init__(nan_policy, asked, _core.Accumulator(*asked), 2)

    def add(self, reference: Any, estimate: Any, mask: Any | None = None) -> None:
        """Add a chunk to the pass.

        Parameters
        ----------
        reference, estimate : array_like, shape (n,)
            Reference and estimated values. Dimensionless. n may be 0.
        mask : array_like of bool, shape (n,), optional
            True leaves an object out, as a masked entry does.

        Raises
        ------
        ValueError
            If the lengths differ or an array is not one-dimensional.
        TypeError
            If an array doesn't hold real numbers, has a unit, or is lazy.
        RuntimeError
            If no further pass is needed.
        """
        chunk = self._prepare(reference, estimate, mask)
        self._add(chunk, chunk)

    def _prepare(self, reference: Any, estimate: Any, mask: Any | None = None) -> Columns:
        return prepare("omit", mask, reference=reference, estimate=estimate)

    def result(self) -> PointStatistics:
        """Return the statistics, once no further pass is needed.

        Returns
        -------
        PointStatistics
            The statistics of each residual.

        Raises
        ------
        RuntimeError
            If another pass is needed.
        """
        with self._lock:
            self._refuse_result()
            n, *numbers = self._core.result()
            n_masked, n_nan = self._left_out.tolist()
            return made_of((n, n_masked, n_nan), numbers, self._asked)


class BinnedAccumulator(State[_core.BinnedAccumulator]):
    """Like `Accumulator`, for bins with fixed edges.

    The hardest bin decides the number of passes.
    """

    CHUNK = ("reference", "estimate", "by", "mask")
    _CORE = _core.BinnedAccumulator

    def __init__(
        self,
        bins: int | Any,
        range: tuple[float, float] | None = None,
        percentiles: Numbers = (),
        outliers: Numbers = (),
        nan_policy: ChunkNanPolicy = "raise",
    ) -> None:
        edges = fixed_edges(bins, range).tolist()
        asked = read_asked(percentiles, outliers)
        core = _core.BinnedAccumulator(edges, *asked)
        super().__init__(nan_policy, asked, core, 2 + len(edges) - 1)

    def add(
        self,
        reference: Any,
        estimate: Any,
        by: Any | None = None,
        mask: Any | None = None,
    ) -> None:
        """Add a chunk to the pass. By default, `by` is the reference."""
        chunk = self._prepare(reference, estimate, by, mask)
        self._add(chunk, chunk)

    def _prepare(
        self,
        reference: Any,
        estimate: Any,
        by: Any | None = None,
        mask: Any | None = None,
    ) -> Columns:
        columns = {"reference": reference, "estimate": estimate}
        if by is not None:
            columns["by"] = by
        return prepare("omit", mask, **columns)

    def result(self) -> BinnedStatistics:
        """Return the statistics, once no further pass is needed."""
        with self._lock:
            self._refuse_result()
            counts, *parts = zip(*self._core.results())
            delta, norm, metrics = ([_frozen(row, np.float64) for row in zip(*p)] for p in parts)
            return BinnedStatistics(
                edges=_frozen(self._core.edges(), np.float64),
                counts=_frozen(counts, np.int64),
                nan_counts=_frozen(self._left_out[2:], np.int64),
                n_masked=int(self._left_out[0]),
                n_nan=int(self._left_out[1]),
                n_outside=self._core.outside(),
                delta=BinnedResidualStatistics._of(delta, self._asked),
                norm=BinnedResidualStatistics._of(norm, self._asked),
                lsst=BinnedLsstMetrics(*metrics),
            )


def _digest(written: bytes) -> bytes:
    """Return a checksum of bytes."""
    from hashlib import sha256  # takes longer than importing vostrel

    return sha256(written).digest()


def _frozen(values: Any, kind: Any) -> NDArray[Any]:
    """Return an array that can't be written to."""
    array = np.array(values, kind)
    array.flags.writeable = False
    return array
