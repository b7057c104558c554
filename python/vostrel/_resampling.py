"""Resamples drawn in pieces, by threads or by what a user passes as workers."""

from __future__ import annotations

import os
import threading
from collections.abc import Iterable, Iterator
from contextlib import contextmanager
from typing import TYPE_CHECKING, Any, Callable

import numpy as np

from vostrel import _core
from vostrel._inputs import SLICE
from vostrel._options import Asked, read_workers
from vostrel._results import METRICS, QUANTILES, ROWS

if TYPE_CHECKING:  # importing the package must be quick
    from numpy.typing import NDArray

    #: The group of each object, and the number of groups.
    Groups = tuple[NDArray[np.uint32], int]

Workers = int | Callable[[Callable[[Any], Any], Iterable[Any]], Iterable[Any]]

#: A piece of the resamples: the first one, and how many.
Piece = tuple[int, int]


class Draws:
    """The resamples of one estimate. Called with a piece, it returns the piece and its numbers.

    Threads may share it. It can be pickled, and has the columns with it: a
    process that gets it several times orders them once.
    """

    def __init__(
        self,
        sample: _core.Sample,
        estimate: int,
        seed: int,
        groups: Groups | None,
        asked: Asked,
        with_errors: bool,
        name: bytes | None = None,
    ) -> None:
        labels, count = groups if groups is not None else (None, 0)
        self.engine = _core.Bootstrap(sample, estimate, seed, labels, count, *asked)
        self.length = len(ROWS) + len(QUANTILES) + sum(map(len, asked))
        self._sample = sample
        self._estimate = estimate
        self._seed = seed
        self._groups = groups
        self._asked = asked
        self._with_errors = with_errors
        self._name = name or os.urandom(16)
        self._ordered = False
        self._lock = threading.Lock()

    def __reduce__(self) -> tuple[Any, ...]:
        columns = [self._sample.column(0), self._sample.column(self._estimate)]
        options = self._seed, self._groups, self._asked, self._with_errors
        return _unpickled, (self._name, columns, *options)

    def order(self, run: Callable[..., Iterable[Any]] = map) -> None:
        """Make the engine ready, once, by a function like map."""
        with self._lock:
            if not self._ordered:
                list(run(self.engine.order, (False, True)))
            self._ordered = True

    def __call__(self, piece: Piece) -> tuple[Piece, Any, Any, Any]:
        self.order()
        return piece, *self.engine.run(*piece, self._with_errors)

    def left_out(self) -> tuple[NDArray[np.float64], NDArray[np.float64]]:
        """Return the statistics and LSST's metrics without one object or group."""
        self.order()
        count = self._groups[1] if self._groups else self._sample.n
        numbers, metrics = np.empty((count, 2, self.length)), np.empty((count, len(METRICS)))
        for first in range(0, count, SLICE):
            some = slice(first, min(first + SLICE, count))
            numbers[some], _, metrics[some] = self.engine.leave_out(first, some.stop - first)
        return numbers, metrics


#: The last one that this process was sent.
_last: dict[bytes, Draws] = {}


def _unpickled(
    name: bytes,
    columns: list[NDArray[np.float64]],
    seed: int,
    groups: Groups | None,
    asked: Asked,
    with_errors: bool,
) -> Draws:
    found = _last.get(name)
    if found is None:
        sample = _core.Sample(columns, [], False)
        found = Draws(sample, 1, seed, groups, asked, with_errors, name)
        _last.clear()
        _last[name] = found
    return found


def draw(
    draws: Draws, resamples: int, workers: Workers, report_progress: Callable[[int], None]
) -> tuple[NDArray[np.float64], NDArray[np.float64], NDArray[np.float64]]:
    """Return the numbers of all resamples, their errors and LSST's metrics.

    Raises
    ------
    RuntimeError
        If the workers lose a piece.
    """
    numbers = np.empty((resamples, 2, draws.length))
    errors = np.empty((resamples, 2, 3))
    metrics = np.empty((resamples, len(METRICS)))
    done = 0
    with _map_of(workers, draws) as (count, run):
        missing = set(_pieces(resamples, draws.engine.batch, count))
        for piece, some, their_errors, their_metrics in run(draws, sorted(missing)):
            if piece not in missing:  # it came before
                continue
            missing.remove(piece)
            first, number = piece
            numbers[first : first + number] = some
            errors[first : first + number] = their_errors
            metrics[first : first + number] = their_metrics
            done += number
            report_progress(done)
    if missing:
        lost = sum(number for _, number in missing)
        raise RuntimeError(f"workers lost {lost} of {resamples} resamples")
    return numbers, errors, metrics


def _pieces(resamples: int, batch: int, count: int) -> list[Piece]:
    """Return pieces small enough that workers end together, and large enough to reuse memory."""
    size = max(batch, resamples // (16 * count))
    rounds = -(-resamples // (size * count))
    size = -(-resamples // (rounds * count))
    return [(first, min(size, resamples - first)) for first in range(0, resamples, size)]


@contextmanager
def _map_of(workers: Workers, draws: Draws) -> Iterator[tuple[int, Callable[..., Any]]]:
    """Give the number of workers and their map. If an error ends its use, their work ends."""
    if callable(workers):
        try:
            yield 1, workers
        except BaseException:
            draws.engine.stop()
            raise
        return
    # Imported here, because that takes longer than importing vostrel.
    from concurrent.futures import ThreadPoolExecutor

    count = read_workers(workers)
    # Other threads do the work. This one waits and notices Ctrl-C.
    pool = ThreadPoolExecutor(count)
    try:
        draws.order(pool.map)
        yield count, pool.map
    except BaseException:
        draws.engine.stop()
        pool.shutdown(wait=False, cancel_futures=True)
        raise
    pool.shutdown()
