"""Statistics of chunks that MPI processes share. Needs mpi4py."""

from __future__ import annotations

import pickle
from contextlib import closing
from typing import Any

from vostrel._accumulator import Accumulator, ChunkNanPolicy
from vostrel._chunked import Chunks, Progress, Report, add_chunks, count
from vostrel._results import PointStatistics

try:
    import mpi4py  # noqa: F401
except ImportError as error:
    raise ImportError("vostrel.mpi needs mpi4py, which is not installed") from error

__all__ = ["point_statistics"]


def point_statistics(
    chunks: Chunks,
    *,
    comm: Any | None = None,
    nan_policy: ChunkNanPolicy = "raise",
    progress: bool | Progress = False,
) -> PointStatistics:
    """Judge estimates that the processes of a communicator share.

    Every process calls this with its own chunks, and every process gets the
    result for all chunks.

    Parameters
    ----------
    chunks : iterable, or function that returns one
        The chunks of this process, as for `vostrel.chunked_statistics`. A
        process may have none.
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

    Notes
    -----
    If one process raises an exception, even while its chunks are read, all
    processes raise it at the end of the pass. No process is left waiting.

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
    if comm is None:
        from mpi4py import MPI

        comm = MPI.COMM_WORLD
    state: Accumulator | None = None
    number = 0
    total = None
    while state is None or state.needs_another_pass:
        number += 1
        raised: BaseException | None = None
        part: Accumulator | None = None
        try:
            part = Accumulator(nan_policy=nan_policy) if state is None else state.fresh()
            total = count(chunks) if total is None else total
            with closing(Report(progress, number, total)) as report:
                total = add_chunks(part, chunks, report)
        except BaseException as error:  # raised below: the other processes wait for this one
            raised = error
        merged: Accumulator | BaseException = comm.allreduce(
            part if raised is None else _portable(raised), op=_merged
        )
        if raised is not None:
            raise raised
        if isinstance(merged, BaseException):
            raise merged
        state = merged
        state.end_pass()
    return state.result()


def _merged(
    one: Accumulator | BaseException, other: Accumulator | BaseException
) -> Accumulator | BaseException:
    """Return the merged states, or the exception."""
    if isinstance(one, BaseException):
        return one
    if isinstance(other, BaseException):
        return other
    try:
        one.merge(other)
    except Exception as error:
        return _portable(error)
    return one


def _portable(error: BaseException) -> BaseException:
    """Return the exception, or a RuntimeError that describes it if it can't be pickled."""
    try:
        pickle.loads(pickle.dumps(error))
        return error
    except Exception:
        return RuntimeError(f"{type(error).__name__}: {error}")
