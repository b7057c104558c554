"""Statistics of chunks that MPI processes share. Needs mpi4py."""

from __future__ import annotations

import pickle
from typing import Any, Callable

from vostrel._accumulator import Accumulator, BinnedAccumulator, ChunkNanPolicy
from vostrel._chunked import Chunks, add_chunks, count
from vostrel._options import Numbers
from vostrel._progress import Progress, Report, check_progress
from vostrel._results import BinnedStatistics, PointStatistics

try:
    import mpi4py  # noqa: F401
except ImportError as error:
    raise ImportError("vostrel.mpi needs mpi4py, which is not installed") from error

__all__ = ["binned_statistics", "point_statistics"]


def point_statistics(
    chunks: Chunks,
    *,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    comm: Any | None = None,
    nan_policy: ChunkNanPolicy = "raise",
    progress: Progress = False,
) -> PointStatistics:
    """Compute error statistics of estimates that MPI processes share.

    Every process calls this with its own chunks, and every process gets the
    result for all chunks.

    Parameters
    ----------
    chunks : iterable, or function that returns one
        The chunks of this process, as for `vostrel.chunked_statistics`. A
        process may have none.
    percentiles, outliers : float or array_like of float, optional
        As in `vostrel.point_statistics`. The same for all processes.
    comm : mpi4py.MPI.Intracomm, optional
        The communicator, by default ``MPI.COMM_WORLD``.
    nan_policy : {"raise", "omit"}
        As in `vostrel.chunked_statistics`. The same for all processes.
    progress : bool or function
        As in `vostrel.chunked_statistics`, for the chunks of this
        process. One bar is enough: ``progress=comm.rank == 0``.

    Returns
    -------
    PointStatistics
        The numbers of `vostrel.chunked_statistics` over the chunks of all
        processes, to the last bit.

    Raises
    ------
    ValueError, TypeError, ImportError
        As for `vostrel.chunked_statistics`.
    RuntimeError
        If another process failed; the message says which and how. Also in a
        process that calls ``sys.exit`` while its chunks are read.

    Notes
    -----
    If one process raises an exception while its chunks are read, the others
    raise a RuntimeError with its message at the end of the pass. No process is
    left waiting. If a process is killed, the launcher ends the job.

    Examples
    --------
    Each process reads its own files::

        from mpi4py import MPI

        comm = MPI.COMM_WORLD
        files = sorted(glob.glob("part-*.npz"))[comm.rank :: comm.size]

        def chunks():
            for file in files:
                part = np.load(file)
                yield part["zspec"], part["zphot"]

        s = vostrel.mpi.point_statistics(chunks, comm=comm)
        if comm.rank == 0:
            print(s)
    """
    result: PointStatistics = _run_passes(
        lambda: Accumulator(percentiles=percentiles, outliers=outliers, nan_policy=nan_policy),
        chunks, comm, progress,
    )
    return result


def binned_statistics(
    chunks: Chunks,
    *,
    bins: int | Any,
    range: tuple[float, float] | None = None,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    comm: Any | None = None,
    nan_policy: ChunkNanPolicy = "raise",
    progress: Progress = False,
) -> BinnedStatistics:
    """Compute error statistics of estimates that MPI processes share, in bins of a quantity.

    Parameters
    ----------
    chunks : iterable, or function that returns one
        The chunks of this process, as for
        `vostrel.chunked_binned_statistics`. A process may have none.
    bins, range, percentiles, outliers, nan_policy
        As for `vostrel.chunked_binned_statistics`. The same for all processes.
    comm, progress
        As for `point_statistics`.

    Returns
    -------
    BinnedStatistics
        The numbers of `vostrel.chunked_binned_statistics` over the chunks of
        all processes, to the last bit.

    Raises
    ------
    ValueError, TypeError, ImportError
        As for `vostrel.chunked_binned_statistics`.
    RuntimeError
        As for `point_statistics`.

    Examples
    --------
    With `chunks` and `comm` as for `point_statistics`::

        b = vostrel.mpi.binned_statistics(chunks, bins=[0, 0.5, 1, 2], comm=comm)
    """
    result: BinnedStatistics = _run_passes(
        lambda: BinnedAccumulator(bins, range, percentiles, outliers, nan_policy),
        chunks, comm, progress,
    )
    return result


def _run_passes(
    first: Callable[[], Any], chunks: Chunks, comm: Any | None, progress: Progress
) -> Any:
    """Add the chunks of all processes in each pass, and return the result."""
    if comm is None:
        from mpi4py import MPI

        comm = MPI.COMM_WORLD
    state: Any = None
    number = 0
    total = None
    while state is None or state.needs_another_pass:
        number += 1
        raised: BaseException | None = None
        try:
            check_progress(progress)
            part = first() if state is None else state.fresh()
            total = count(chunks) if total is None else total
            with Report(progress, total, f"pass {number}", "chunk") as report:
                total = add_chunks(part, chunks, report, total)
            message: bytes | str = pickle.dumps(part)
        except BaseException as error:  # raised below: the other processes wait for this one
            raised = error
            message = f"rank {comm.rank} failed: {_text(error)}"
        merged = comm.allreduce(message, op=_merged)
        if isinstance(raised, SystemExit):
            raise RuntimeError(message) from raised
        if raised is not None:
            raise raised
        if isinstance(merged, str):
            raise RuntimeError(merged)
        state = pickle.loads(merged)
        state.end_pass()
    return state.result()


def _merged(one: bytes | str, other: bytes | str) -> bytes | str:
    """Return the pickle of the merged states, or the text of an error.

    An error is sent as text: its class may be unknown to another process. Nothing
    may be raised here, or the other processes would wait forever.
    """
    if isinstance(one, str):
        return one
    if isinstance(other, str):
        return other
    try:
        state = pickle.loads(one)
        state.merge(pickle.loads(other))
        return pickle.dumps(state)
    except BaseException as error:
        return _text(error)


def _text(error: BaseException) -> str:
    """Return the type and the message of an exception."""
    try:
        return f"{type(error).__name__}: {error}"
    except BaseException:  # its __str__ fails
        return type(error).__name__
