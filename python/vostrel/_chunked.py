"""Statistics of chunks, which are read several times by this process."""

from __future__ import annotations

from collections.abc import Iterable, Iterator, Sized
from math import ceil
from typing import Any, Callable

from vostrel import _core
from vostrel._accumulator import Accumulator, BinnedAccumulator, ChunkNanPolicy
from vostrel._inputs import Columns
from vostrel._options import Numbers, read_workers, shown
from vostrel._progress import Progress, Report, check_progress
from vostrel._results import BinnedStatistics, PointStatistics

#: Tuples of arrays, or a function that returns them for each pass.
Chunks = Iterable[Any] | Callable[[], Iterable[Any]]


def chunked_statistics(
    chunks: Chunks,
    *,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    nan_policy: ChunkNanPolicy = "raise",
    workers: int = 1,
    progress: Progress = False,
) -> PointStatistics:
    """Compute error statistics of estimates in chunks, such as parts of a file.

    Parameters
    ----------
    chunks : iterable, or function that returns one
        Gives tuples ``(reference, estimate)`` or ``(reference, estimate,
        mask)`` of arrays as for `point_statistics`. Chunks may be empty. They
        are read in two passes, or more for hard data. An iterable must
        therefore start anew each time, like a list; a function is called for
        each pass. All passes must see the same objects, in any order.
    percentiles, outliers : float or array_like of float, optional
        As in `point_statistics`.
    nan_policy : {"raise", "omit"}
        What to do with objects that have NaN and are not masked: raise a
        ValueError at the end of the first pass, or leave them out.
        Infinities are numbers.
    workers : int
        The number of threads that share each chunk, -1 for all processors. The
        calling thread reads the chunks, one after another, while the workers
        add earlier ones. A chunk must not be overwritten by the next one.
    progress : bool or function
        True shows a bar of tqdm for each pass. A function is called after
        each chunk as ``progress(done, total)``: the chunks done in this pass,
        and the number of chunks, or None if it is unknown. Each pass counts
        from 1 again.

    Returns
    -------
    PointStatistics
        The bits are independent of the chunks, the order of the objects and
        the workers. Bias, sigma and RMS come from exact sums and
        differ from those of `point_statistics`, whose sums round at each
        addition: by about 1e-13 of the RMS at 10^7 objects. For hard data, such
        as one value repeated or a few huge ones, 3e-10 was seen. The other
        numbers have the bits of `point_statistics`, except outliers whose bound
        is a multiple of sigma.

    Raises
    ------
    ValueError
        As for `point_statistics`; also if the data change between passes: a
        64-bit checksum detects that.
    TypeError
        As for `point_statistics`; also if `chunks` can be read only once, or
        a chunk is not such a tuple.
    ImportError
        If tqdm is needed and not installed.

    Notes
    -----
    Needs memory for one chunk and a few megabytes; with more workers, for a
    chunk and a few megabytes each, and for the chunk that is being read.
    Workers share an array in parts of 524,288 objects. Objects in lists are
    not cut. They and small chunks gain little from workers, since Python runs
    one thread at a time. Make chunks of 100,000 objects or more.

    Examples
    --------
    >>> import vostrel
    >>> s = vostrel.chunked_statistics([([0.5, 1.0], [0.4, 1.1]), ([1.5, 2.0], [1.4, 2.3])])
    >>> s.n, round(s.norm.nmad, 6)
    (4, 0.086485)
    """
    state = Accumulator(percentiles=percentiles, outliers=outliers, nan_policy=nan_policy)
    result: PointStatistics = run_passes(state, chunks, workers, progress)
    return result


def chunked_binned_statistics(
    chunks: Chunks,
    *,
    bins: int | Any,
    range: tuple[float, float] | None = None,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    nan_policy: ChunkNanPolicy = "raise",
    workers: int = 1,
    progress: Progress = False,
) -> BinnedStatistics:
    """Compute error statistics of estimates in chunks, in bins of a quantity.

    Parameters
    ----------
    chunks : iterable, or function that returns one
        As for `chunked_statistics`, of tuples ``(reference, estimate)``,
        ``(reference, estimate, by)`` or ``(reference, estimate, by, mask)``
        as `binned_statistics` takes them. Without `by`, or where it is None,
        the objects are binned by the reference.
    bins : array_like of float, shape (k + 1,), or int
        The edges, none less than the one before; or a number of bins of
        equal width, which needs `range`.
    range : (float, float), optional
        The lower and upper end of a number of bins.
    percentiles, outliers : float or array_like of float, optional
        As in `point_statistics`.
    nan_policy : {"raise", "omit"}
        As for `chunked_statistics`. An object whose `by` is NaN is in no bin.
    workers, progress
        As for `chunked_statistics`.

    Returns
    -------
    BinnedStatistics
        Each bin has the same objects as in `binned_statistics`, and the
        numbers of `chunked_statistics` for them.

    Raises
    ------
    ValueError
        As for `chunked_statistics`; also if edges decrease, or bins would
        depend on the data.
    TypeError, ImportError
        As for `chunked_statistics`.

    Notes
    -----
    Takes memory as `chunked_statistics`, but up to a few megabytes for each bin.

    Examples
    --------
    >>> import vostrel
    >>> chunks = [([0.5, 1.0], [0.4, 1.1]), ([1.5, 2.0], [1.4, 2.3])]
    >>> b = vostrel.chunked_binned_statistics(chunks, bins=[0, 1, 2])
    >>> b.counts
    array([1, 3])
    """
    state = BinnedAccumulator(bins, range, percentiles, outliers, nan_policy)
    result: BinnedStatistics = run_passes(state, chunks, workers, progress)
    return result


def run_passes(state: Any, chunks: Chunks, workers: int, progress: Progress) -> Any:
    """Add all chunks in each pass, and return the result."""
    workers = read_workers(workers)
    check_progress(progress)
    total = count(chunks)
    number = 0
    while state.needs_another_pass:
        number += 1
        with Report(progress, total, f"pass {number}", "chunk") as report:
            total = add_chunks(state, chunks, report, total, workers)
        state.end_pass()
    return state.result()


#: What to do about an iterator that is used up.
REMEDY = (
    "pass a list, or a function that makes a new iterator:\n"
    "    def chunks():\n"
    "        return (read(file) for file in files)"
)


def add_chunks(
    state: Any,
    chunks: Chunks,
    report: Callable[[int], object],
    total: int | None,
    workers: int = 1,
) -> int:
    """Add all chunks to the state, and return how many there are: `total`, if it is known."""
    read = (read_chunk(chunk, state.CHUNK) for chunk in start(chunks))
    if workers == 1:
        done = 0
        for done, chunk in enumerate(read, 1):
            state.add(*chunk)
            report(done)
    else:
        done = add_by_threads(state, read, report, workers)
    if total and not done:
        raise ValueError(f"chunks is used up after the first pass, but there are more; {REMEDY}")
    return done


#: The most objects that a worker takes at a time.
PART = 2**19


def add_by_threads(
    state: Any, chunks: Iterator[Any], report: Callable[[int], object], workers: int
) -> int:
    """Add chunks to states of threads, and merge these. Return how many chunks there are.

    The threads share each chunk. This thread reads the chunks and waits. So Ctrl-C ends either,
    and a generator needn't know about threads.
    """
    # Imported here, because that takes longer than importing vostrel.
    from concurrent.futures import FIRST_COMPLETED, Future, ThreadPoolExecutor, wait

    stop = _core.Stop()
    idle = [state.fresh() for _ in range(workers)]
    for own in idle:
        own._stop = stop
    busy: dict[Future[None], int] = {}  # and the number of the chunk
    done = 0

    def add(parts: Iterator[Columns], chunk: Columns) -> None:
        """Add parts until none is left. Runs in several threads."""
        own = idle.pop()
        try:
            for part in parts:
                own._add(part, chunk)
        finally:
            idle.append(own)

    def wait_for(most: int) -> None:
        """Wait until at most this many threads are busy."""
        nonlocal done
        while busy:
            must_wait = len(busy) > most
            ended, _ = wait(busy, None if must_wait else 0, FIRST_COMPLETED)
            for future in ended:
                number = busy.pop(future)
                future.result()
                if number not in busy.values():
                    done += 1
                    report(done)
            if not must_wait:
                return

    with ThreadPoolExecutor(workers) as pool:
        try:
            for number, given in enumerate(chunks):
                chunk = state._prepare(*given)
                wait_for(workers - 1)
                parts = chunk.parts(PART)
                for _ in range(min(workers, max(1, ceil(len(chunk) / PART)))):
                    busy[pool.submit(add, parts, chunk)] = number
            wait_for(0)
        except BaseException:
            stop.set()  # the pool waits for its threads
            raise
    for own in idle:
        state.merge(own)
    return done


def count(chunks: Chunks) -> int | None:
    """Return the number of chunks, or None if it is unknown."""
    return None if callable(chunks) or not isinstance(chunks, Sized) else len(chunks)


def start(chunks: Chunks) -> Iterator[Any]:
    """Return an iterator over all chunks."""
    if callable(chunks):
        made = chunks()
        if not isinstance(made, Iterable):
            raise TypeError(
                f"chunks must be a function that returns an iterable, not {type(made).__name__}"
            )
        return iter(made)
    if not isinstance(chunks, Iterable):
        raise TypeError(
            "chunks must be an iterable of (reference, estimate) or a function that returns one, "
            f"not {type(chunks).__name__}"
        )
    iterator = iter(chunks)
    if iterator is chunks:
        raise TypeError(
            f"chunks can be read only once ({type(chunks).__name__}), but there are several "
            f"passes; {REMEDY}"
        )
    return iterator


def read_chunk(chunk: Any, names: tuple[str, ...]) -> Any:
    """Return the chunk, or raise TypeError for anything else."""
    if not isinstance(chunk, (tuple, list)) or not 2 <= len(chunk) <= len(names):
        is_tuple = isinstance(chunk, (tuple, list))
        found = f"{type(chunk).__name__} of {len(chunk)}" if is_tuple else shown(chunk)
        wanted = f"({names[0]}, {names[1]}[, {', '.join(names[2:])}])"
        raise TypeError(f"a chunk must be a tuple {wanted}, not {found}")
    return chunk
