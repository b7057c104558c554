"""The compiled core. Private: use what `vostrel` exports."""

from collections.abc import Sequence
from typing import Any, Protocol

import numpy as np
from numpy.typing import NDArray

VERSION: str

#: Label, normalized label, normalized label of the console, and unit, in the order of the report.
STATISTICS: tuple[tuple[str, str, str, str], ...]

NMAD_FACTOR: float
OUTLIER_BOUND: float

#: The statistics of a residual in the order of STATISTICS; its median, sigma_68 and sigma_iqr; the
#: percentiles and the outliers that are asked for.
_Statistics = list[float]

#: Those of both residuals, and the metrics of LSST.
_Found = tuple[_Statistics, _Statistics, list[float]]

class _Slices(Protocol):
    def __len__(self) -> int: ...
    def read(self, first: int, count: int) -> NDArray[np.float64]: ...

class _Chunks(Protocol):
    arrays: Sequence[NDArray[Any]]

    def __len__(self) -> int: ...

_Columns = Sequence[NDArray[Any] | _Slices | _Chunks]
_Masks = Sequence[NDArray[np.bool_]]

class NotNumbers(TypeError):
    """Values are neither real numbers nor booleans. The message describes them."""

_ArrowChunks = list[tuple[NDArray[Any], NDArray[np.bool_] | None]]

def read_arrow_array(schema: object, array: object) -> _ArrowChunks:
    """Return the values and where they are NULL, or nothing if there are no values."""

def read_arrow_stream(stream: object) -> _ArrowChunks:
    """Return the values of each chunk and where they are NULL, without empty chunks."""

def read_dlpack(capsule: object) -> NDArray[Any]:
    """Return the tensor as a read-only array in its memory."""

def point_statistics(
    columns: _Columns,
    masks: _Masks,
    omit_nan: bool,
    percentiles: Sequence[float],
    outliers: Sequence[float],
    has_nan: bool = True,
) -> tuple[int, int, int, _Found | None]:
    """Return n, n_masked, n_nan and the numbers, or None if there is NaN that isn't omitted.

    Without `has_nan` nothing looks for NaN, which then counts as in the program.
    """

def binned_statistics(
    columns: _Columns,
    masks: _Masks,
    omit_nan: bool,
    edges: Sequence[float],
    percentiles: Sequence[float],
    outliers: Sequence[float],
    looks_for_nan: bool,
) -> tuple[
    int,
    int,
    int,
    NDArray[np.uint64],
    NDArray[np.uint64],
    int,
    NDArray[np.float64],
    NDArray[np.float64],
]:
    """Return n, n_masked, n_nan, counts, nan_counts, n_outside, the numbers in shape (2,
    statistics, bins), and the metrics of LSST in shape (4, bins).

    The objects are binned by the third column, or by the first of two. Raises ValueError if there
    is NaN, or a residual is NaN, unless it looks for NaN.
    """

def survey(
    columns: _Columns, masks: _Masks, omit_nan: bool, looks_for_nan: bool
) -> tuple[int, int, int, float, float]:
    """Return n, n_masked, n_nan, and the smallest and largest value to bin by.

    n_nan is 0 unless it looks for NaN.
    """

def order_values(
    columns: _Columns, masks: _Masks, n: int, ranks: Sequence[int], has_nan: bool = True
) -> NDArray[np.float64]:
    """Return the values of these ranks among the values to bin by, for n objects without NaN."""

def count_in_bins(
    values: NDArray[np.float64], edges: Sequence[float]
) -> NDArray[np.uint64]:
    """Return how many values are in each bin."""

def count_in_cells(
    x: NDArray[np.float64],
    y: NDArray[np.float64],
    x_edges: Sequence[float],
    y_edges: Sequence[float],
) -> NDArray[np.uint64]:
    """Return how many points are in each cell, in shape (y bins, x bins)."""

#: The means of r^2 and r^4 about 0 and about the bias, abs(r) of some ranks, and r of some ranks.
_Spread = tuple[float, float, float, float, list[float], list[float]]

class ObjectsInBins:
    """The objects without NaN in each bin, binned by the third column, or by the first of two."""

    def __init__(self, columns: _Columns, masks: _Masks, edges: Sequence[float]) -> None: ...
    def count(self, bin: int) -> int: ...
    def statistics(
        self,
        bin: int,
        percentiles: Sequence[float],
        outliers: Sequence[float],
        absolute: Sequence[int],
        values: Sequence[int],
    ) -> tuple[_Statistics, _Statistics, list[float], _Spread, _Spread]:
        """Return what Sample.statistics does. The bin must not be empty."""
    def medians(self, bin: int, ranks: Sequence[int]) -> tuple[float, float, list[float]]:
        """Return the median reference, and of the normalized residual the median and the values
        of these ranks.
        """

class Sample:
    """The objects that are kept, in columns: the reference and some estimates."""

    def __init__(self, columns: _Columns, masks: _Masks, omit_nan: bool) -> None: ...
    @property
    def n(self) -> int: ...
    @property
    def n_masked(self) -> int: ...
    @property
    def n_nan(self) -> int: ...
    def column(self, i: int) -> NDArray[np.float64]:
        """Return a copy of a column of the kept objects."""
    def kept(self) -> NDArray[np.bool_] | None:
        """Return which objects are kept, or None if all are."""
    def statistics(
        self,
        percentiles: Sequence[float],
        outliers: Sequence[float],
        absolute: Sequence[int],
        values: Sequence[int],
    ) -> tuple[_Statistics, _Statistics, list[float], _Spread, _Spread]:
        """Return the numbers, and the spreads with abs(r) and r of these ranks."""

class Bootstrap:
    """The resamples of a sample, for the estimate in one of its columns."""

    def __init__(
        self,
        sample: Sample,
        estimate: int,
        seed: int,
        groups: NDArray[np.uint32] | None,
        group_count: int,
        percentiles: Sequence[float],
        outliers: Sequence[float],
    ) -> None: ...
    def order(self, normalized: bool) -> None:
        """Order one residual. If both are ordered, `run` is much faster."""
    @property
    def batch(self) -> int: ...
    def run(
        self, first: int, count: int, with_errors: bool
    ) -> tuple[NDArray[np.float64], NDArray[np.float64], NDArray[np.float64]]:
        """Return the numbers of some resamples in shape (count, 2, statistics).

        Also returns their errors by moments in shape (count, 2, 3): of bias,
        log(sigma) and log(rms). Without `with_errors`, these mean nothing.
        The last are LSST's metrics in shape (count, 4).
        """
    def leave_out(
        self, first: int, count: int
    ) -> tuple[NDArray[np.float64], NDArray[np.float64], NDArray[np.float64]]:
        """Return the same of all objects but one, or of all groups but one."""
    def whole(
        self, values: NDArray[np.float64]
    ) -> tuple[NDArray[np.float64], NDArray[np.float64]]:
        """Return the errors by moments of all objects in shape (2, 3).

        Their bias, sigma and RMS are `values`, in the same shape. Also
        returns, in shape (2, 2), how many objects or groups make up the fourth
        moment of the residual about the bias and about zero.
        """
    def stop(self) -> None:
        """Make `run` raise a RuntimeError in other threads."""

def resample_indices(seed: int, number: int, size: int) -> NDArray[np.uint64]:
    """Return the objects of a resample in ascending order."""

def read_rows(
    block: bytes, start: int
) -> tuple[NDArray[np.float64], NDArray[np.float64], int]:
    """Return the second and third numbers of the rows from `start` on, and where they end.

    They end at the end of the block, or before the first row that doesn't
    have the program's form.
    """

class Stop:
    """Ends calls of `add` in other threads, with a RuntimeError."""

    def __init__(self) -> None: ...
    def set(self) -> None: ...

class Accumulator:
    """vostrel::Accumulator with exact sums."""

    def __init__(self, percentiles: Sequence[float], outliers: Sequence[float]) -> None: ...
    def add(self, columns: _Columns, masks: _Masks, has_nan: bool, stop: Stop) -> list[int]:
        """Add a chunk without masked objects and NaN. Return n_masked and n_nan.

        Nothing looks for NaN unless `has_nan`.
        """
    def merge(self, other: Accumulator) -> None: ...
    def end_pass(self) -> bool: ...
    def needs_another_pass(self) -> bool: ...
    def fresh(self) -> Accumulator: ...
    def size(self) -> int: ...
    def result(self) -> tuple[int, _Statistics, _Statistics, list[float]]: ...
    def to_bytes(self) -> bytes: ...
    @staticmethod
    def from_bytes(bytes: bytes) -> Accumulator: ...

class BinnedAccumulator:
    """vostrel::BinnedAccumulator with exact sums."""

    def __init__(
        self, edges: Sequence[float], percentiles: Sequence[float], outliers: Sequence[float]
    ) -> None: ...
    def add(self, columns: _Columns, masks: _Masks, has_nan: bool, stop: Stop) -> list[int]:
        """Add a chunk, binned as by `binned_statistics`, without masked objects and NaN.

        Return n_masked, n_nan, and for each bin how many have NaN in the first two columns.
        """
    def merge(self, other: BinnedAccumulator) -> None: ...
    def end_pass(self) -> bool: ...
    def needs_another_pass(self) -> bool: ...
    def fresh(self) -> BinnedAccumulator: ...
    def size(self) -> int: ...
    def edges(self) -> list[float]: ...
    def outside(self) -> int: ...
    def results(self) -> list[tuple[int, _Statistics, _Statistics, list[float]]]: ...
    def to_bytes(self) -> bytes: ...
    @staticmethod
    def from_bytes(bytes: bytes) -> BinnedAccumulator: ...
