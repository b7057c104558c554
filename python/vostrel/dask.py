"""Exact statistics of Dask collections that need not fit into memory. Needs dask."""

from __future__ import annotations

import sys
from collections.abc import Iterator, Sequence
from contextlib import contextmanager
from typing import Any, TypeAlias

import numpy as np

from vostrel._accumulator import Accumulator, BinnedAccumulator, ChunkNanPolicy
from vostrel._inputs import as_column
from vostrel._options import Numbers, check_flag
from vostrel._progress import Progress, Report, check_progress

try:
    import dask
    import dask.array
    import dask.callbacks
    import dask.core
    import dask.optimization
    from dask.delayed import Delayed
except ImportError as error:
    raise ImportError("vostrel.dask needs dask, which is not installed") from error

__all__ = ["binned_statistics", "point_statistics"]

#: A chunk: the parts of its columns, with None for a column that is not given, or a task that
#: returns these.
Block: TypeAlias = tuple[Any, ...] | Delayed

#: How many states are merged at once, by a task or in the end by the caller.
FAN_IN = 8

#: How many bytes of persisted blocks one task adds, unless it adds a single block.
BATCH_BYTES = 2**29


def point_statistics(
    reference: Any,
    estimate: Any,
    *,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    mask: Any | None = None,
    nan_policy: ChunkNanPolicy = "raise",
    compute: bool = True,
    progress: Progress = False,
) -> Any:
    """Compute error statistics of estimates in Dask collections.

    Parameters
    ----------
    reference : dask.array.Array, shape (n,), or dask.dataframe.Series
        Reference values such as spectroscopic redshifts. Dimensionless. n
        and the sizes of the chunks may be unknown.
    estimate : dask.array.Array, shape (n,), or dask.dataframe.Series
        Estimated values, in the order of `reference`. Rows are paired by
        their position, not by an index. If chunk sizes are unknown, they must
        be the same for both, as for columns of one DataFrame.
    percentiles, outliers : float or array_like of float, optional
        As in `vostrel.point_statistics`.
    mask : dask.array.Array of bool, shape (n,), or Series, optional
        True leaves an object out. So does an entry that is masked in
        `reference` or `estimate`.
    nan_policy : {"raise", "omit"}
        What to do with objects that have NaN and are not masked: raise a
        ValueError, or leave them out. Infinities are numbers.
    compute : bool
        False returns a Delayed, whose ``compute()`` returns the result.
    progress : bool or function
        As in `vostrel.chunked_statistics`. On a cluster, whose dashboard
        shows more, it reports the end of each pass. Needs ``compute=True``.

    Returns
    -------
    PointStatistics or dask.delayed.Delayed
        The numbers of `vostrel.chunked_statistics`, to the last bit: they
        depend neither on the chunks nor on the workers.

    Raises
    ------
    ValueError
        As for `vostrel.point_statistics`; also if chunks can't be paired.
    TypeError
        As for `vostrel.point_statistics`; also if an argument is neither a
        Dask collection nor a NumPy array, or if all are NumPy arrays.

    Notes
    -----
    The collections are computed once in each pass. There are two passes, or
    more for hard data. Chunks are released after each pass. If the
    collections fit into the memory of the cluster, call ``persist()`` on
    them to avoid reading them again.

    The computation runs on Dask's scheduler: in threads, in processes or on
    the cluster of a client. The states of the chunks are merged as a tree,
    and only a few come back. If a worker is lost, Dask repeats its tasks, and
    the numbers stay the same.

    A Delayed starts its passes from inside a task: on the cluster if there is
    a distributed client, else in threads.

    Examples
    --------
    >>> import dask.array as da
    >>> import vostrel.dask
    >>> reference = da.from_array([0.5, 1.0, 1.5, 2.0], chunks=2)
    >>> estimate = da.from_array([0.4, 1.1, 1.4, 2.3], chunks=2)
    >>> round(vostrel.dask.point_statistics(reference, estimate).norm.nmad, 6)
    0.086485
    """
    blocks = pair_blocks(reference=reference, estimate=estimate, mask=mask)
    state = Accumulator(percentiles=percentiles, outliers=outliers, nan_policy=nan_policy)
    return _run(Job(state, blocks), compute, progress)


def binned_statistics(
    reference: Any,
    estimate: Any,
    by: Any | None = None,
    *,
    bins: int | Any,
    range: tuple[float, float] | None = None,
    percentiles: Numbers = (),
    outliers: Numbers = (),
    mask: Any | None = None,
    nan_policy: ChunkNanPolicy = "raise",
    compute: bool = True,
    progress: Progress = False,
) -> Any:
    """Compute error statistics of Dask collections in bins of a quantity.

    Parameters
    ----------
    reference, estimate, percentiles, outliers, mask, nan_policy, compute, progress
        As for `point_statistics`.
    by : dask.array.Array, shape (n,), or dask.dataframe.Series, optional
        The quantity to bin by, by default the reference.
    bins : array_like of float, shape (k + 1,), or int
        The edges, none less than the one before; or a number of bins of
        equal width, which needs `range`.
    range : (float, float), optional
        The lower and upper end of a number of bins.

    Returns
    -------
    BinnedStatistics or dask.delayed.Delayed
        The numbers of `vostrel.chunked_binned_statistics`, to the last bit.

    Raises
    ------
    ValueError
        As for `point_statistics`; also if edges decrease, or bins would
        depend on the data.
    TypeError
        As for `point_statistics`.

    Examples
    --------
    >>> import dask.array as da
    >>> import vostrel.dask
    >>> reference = da.from_array([0.5, 1.0, 1.5, 2.0], chunks=2)
    >>> estimate = da.from_array([0.4, 1.1, 1.4, 2.3], chunks=2)
    >>> vostrel.dask.binned_statistics(reference, estimate, bins=[0, 1, 2]).counts
    array([1, 3])
    """
    blocks = pair_blocks(reference=reference, estimate=estimate, by=by, mask=mask)
    state = BinnedAccumulator(bins, range, percentiles, outliers, nan_policy)
    return _run(Job(state, blocks), compute, progress)


class Job:
    """Accumulator over blocks. Dask doesn't see a collection in it, so doesn't compute it."""

    def __init__(self, state: Any, blocks: list[Block]) -> None:
        self._state = state
        self._blocks = blocks

    def run(self, progress: Progress = False) -> Any:
        """Return the result."""
        state = self._state.fresh()
        number = 0
        while state.needs_another_pass:
            number += 1
            lists = batches(self._blocks)
            parts = self._parts(state, lists)
            with Report(progress, len(self._blocks), f"pass {number}", "chunk") as report:
                with _counting(dict(zip((part.key for part in parts), map(len, lists))), report):
                    merged = dask.compute(*merge_tree(parts))
            for part in merged:
                state.merge(part)
            state.end_pass()
        return state.result()

    def _parts(self, state: Any, lists: list[list[Block]]) -> list[Delayed]:
        start = state.fresh()
        if len(lists) > FAN_IN:  # else it is sent with the tasks, which saves a step
            start = dask.delayed(start, pure=False, traverse=False)
        add = dask.delayed(add_blocks, pure=False)
        return [add(start, blocks) for blocks in lists]


@contextmanager
def _counting(sizes: dict[Any, int], report: Report) -> Iterator[None]:
    """Report how many blocks are added, from the keys of the tasks that add them."""
    done = 0

    def count(key: Any, *others: Any) -> None:
        nonlocal done
        if key in sizes:
            done += sizes[key]
            report(done)

    with dask.callbacks.Callback(posttask=count):
        yield
    if done < sum(sizes.values()):  # a cluster calls nobody back
        report(sum(sizes.values()))


def _run(job: Job, compute: bool, progress: Progress) -> Any:
    check_flag("compute", compute)
    check_progress(progress)
    if compute:
        return job.run(progress)
    if progress:
        raise ValueError("progress needs compute=True")
    return dask.delayed(_run_in_task, pure=False, traverse=False)(job)


def _run_in_task(job: Job) -> Any:
    """Run a job inside a task of any scheduler."""
    distributed = sys.modules.get("distributed")
    if distributed is not None:
        try:
            distributed.get_worker()
        except ValueError:
            pass
        else:
            # This releases the worker's thread while the job waits for other tasks.
            with distributed.worker_client():
                return job.run()
    return job.run()


def batches(blocks: list[Block]) -> list[list[Block]]:
    """Return lists of blocks. One task adds the blocks of a list.

    A block that must be read has its own task, and is released after it. Blocks in the memory of a
    cluster are listed by worker and thread: a task costs Dask as much time as a hundred thousand
    objects cost `add`.
    """
    futures = [_futures(block) for block in blocks]
    if not all(futures):
        return [[block] for block in blocks]
    client = futures[0][0].client
    if client is None:  # the job came with a task, and its futures without their client
        client = sys.modules["distributed"].get_client()
        for future in (future for of_block in futures for future in of_block):
            future.bind_client(client)
    who_has = client.who_has([future for of_block in futures for future in of_block])
    nbytes = client.nbytes([key for key, workers in who_has.items() if workers], summary=False)
    # Some releases of distributed turn keys into text.
    holders = {str(key): set(workers) for key, workers in who_has.items()}
    sizes = {str(key): size for key, size in nbytes.items()}

    lists = []
    threads: dict[str, list[list[tuple[Block, int]]]] = {
        worker: [[] for _ in range(number)] for worker, number in client.nthreads().items()
    }
    for block, of_block in zip(blocks, futures):
        keys = [str(future.key) for future in of_block]
        workers = set.intersection(*(holders[key] for key in keys)) & threads.keys()
        if workers:
            shares = [share for worker in workers for share in threads[worker]]
            min(shares, key=len).append((block, sum(sizes[key] for key in keys)))
        else:  # not computed yet, or the columns are on different workers
            lists.append([block])
    for shares in threads.values():
        for share in shares:
            room = 0
            for block, size in share:
                if size > room:
                    lists.append([])
                    room = BATCH_BYTES
                lists[-1].append(block)
                room -= size
    return lists


def _futures(block: Block) -> list[Any]:
    """Return the futures of a block that was persisted on a cluster, else nothing."""
    if isinstance(block, Delayed):
        return []
    columns = [column for column in block if column is not None]
    if not all(map(_is_persisted, columns)):
        return []
    return [next(_parts_of(column)) for column in columns]


def add_blocks(start: Any, blocks: list[Block]) -> Any:
    """Return a state with these blocks. Leaves `start` unchanged: Dask may call this again."""
    state = start.fresh()
    for block in blocks:
        state.add(*block)
    return state


def merge_parts(parts: Sequence[Any]) -> Any:
    """Return the states merged. Leaves them unchanged."""
    state = parts[0].fresh()
    for part in parts:
        state.merge(part)
    return state


def merge_tree(parts: list[Delayed]) -> list[Delayed]:
    """Return the states merged into FAN_IN or fewer."""
    merge = dask.delayed(merge_parts, pure=False)
    while len(parts) > FAN_IN:
        parts = [merge(parts[i : i + FAN_IN]) for i in range(0, len(parts), FAN_IN)]
    return parts


def pair_blocks(**columns: Any) -> list[Block]:
    """Return the blocks of these columns.

    Raises
    ------
    ValueError, TypeError
        If the columns are not collections, or their chunks can't be paired.
    """
    columns = {
        name: None if column is None else _checked(name, column)
        for name, column in columns.items()
    }
    given = {name: column for name, column in columns.items() if column is not None}
    if not any(map(dask.is_dask_collection, given.values())):
        raise TypeError(
            f"{', '.join(given)} are in memory already: use the function without .dask"
        )
    if all(map(_is_series, given.values())):
        _check_partitions(given)
        if not all(map(_is_persisted, given.values())):
            return _packed_blocks(columns)
        collections = list(given.values())
    elif all(_length(column) is not None for column in given.values()):
        collections = _with_equal_chunks(given)
    else:
        _check_partitions(given)
        collections = list(given.values())
    blocks = dict(zip(given, _delayed_blocks(collections)))
    number = len(blocks[next(iter(given))])
    return [
        tuple(blocks[name][i] if name in blocks else None for name in columns)
        for i in range(number)
    ]


def _checked(name: str, column: Any) -> Any:
    """Return the column in one dimension. Raise an error if it is none."""
    if isinstance(column, (dask.array.Array, np.ndarray)):
        return as_column(name, column)
    if not _is_series(column):
        raise TypeError(
            f"{name} must be a one-dimensional dask array or a column of a dask DataFrame, "
            f"not {type(column).__name__}"
        )
    return column


def _is_series(column: Any) -> bool:
    frames = sys.modules.get("dask.dataframe")
    return frames is not None and isinstance(column, (frames.Series, frames.Index))


def _length(column: Any) -> int | None:
    """Return the number of rows, or None if it is unknown."""
    if _is_series(column):
        return None
    return None if np.isnan(column.shape[0]) else int(column.shape[0])


def _with_equal_chunks(columns: dict[str, Any]) -> list[Any]:
    """Return arrays of known and equal length, with the same chunks."""
    first, *others = columns
    length = _length(columns[first])
    for name in others:
        if _length(columns[name]) != length:
            raise ValueError(
                f"{first} and {name} differ in length: {length} and {_length(columns[name])}"
            )
    cut = next(column for column in columns.values() if dask.is_dask_collection(column))
    arrays = [
        column if dask.is_dask_collection(column)
        else dask.array.from_array(column, chunks=cut.chunks)
        for column in columns.values()
    ]
    _, cut_alike = dask.array.core.unify_chunks(
        *(part for array in arrays for part in (array, "i"))
    )
    return list(cut_alike)


def _check_partitions(columns: dict[str, Any]) -> None:
    """Raise a ValueError if the chunks of the columns can't be paired one by one."""
    first = next(iter(columns))
    for name, column in columns.items():
        if not dask.is_dask_collection(column):
            raise ValueError(
                f"{name} is in memory and can't be cut as the others are, because their chunk "
                "sizes are unknown; call compute_chunk_sizes() on them, or pass it as a dask array"
            )
        if column.npartitions != columns[first].npartitions:
            raise ValueError(
                f"{first} and {name} have {columns[first].npartitions} and {column.npartitions} "
                "chunks of unknown sizes; their chunks must be the same"
            )


def _is_persisted(column: Any) -> bool:
    """Return whether a cluster keeps all chunks of this collection in memory."""
    distributed = sys.modules.get("distributed")
    return distributed is not None and all(
        isinstance(part, distributed.Future) for part in _parts_of(column)
    )


def _parts_of(collection: Any) -> Iterator[Any]:
    """Return what the graph of a collection has for its chunks: tasks, data or futures."""
    graph = collection.__dask_graph__()
    for key in dask.core.flatten(collection.__dask_keys__()):
        part = graph[key]
        while hasattr(part, "target"):  # another name for a part
            part = graph[part.target]
        yield part


def _packed_blocks(columns: dict[str, Any]) -> list[Block]:
    """Return a task for each partition. It returns the parts of all columns.

    Dask then optimizes the columns together: it reads a file once for all of them, and only these
    columns.
    """
    given = {name: column for name, column in columns.items() if column is not None}
    packed = sys.modules["dask.dataframe"].map_partitions(
        pack,
        *given.values(),
        names=tuple(given),
        order=tuple(columns),
        meta=(None, object),
        enforce_metadata=False,
        align_dataframes=False,
    )
    partitions = packed.to_delayed()
    graph = dict(partitions[0].dask)
    return [_with_own_tasks(partition.key, graph) for partition in partitions]


def pack(*parts: Any, names: tuple[str, ...], order: tuple[str, ...]) -> tuple[Any, ...]:
    """Return the parts with these names in this order, and None for others."""
    named = dict(zip(names, parts))
    return tuple(named.get(name) for name in order)


def _delayed_blocks(columns: list[Any]) -> list[list[Delayed]]:
    """Return the blocks of each column. Arrays that are not in memory are optimized together."""
    arrays = [c for c in columns if not (_is_series(c) or _is_persisted(c))]
    optimized = dict(zip(map(id, arrays), dask.optimize(*arrays)))
    blocks = []
    for column in columns:
        if _is_series(column):
            parts = column.to_delayed()
            keys = [part.key for part in parts]
            graph = dict(parts[0].dask)
        else:
            # Not to_delayed(): it fails on an optimized array that was made from a DataFrame.
            column = optimized.get(id(column), column)
            keys = list(dask.core.flatten(column.__dask_keys__()))
            graph = dict(column.__dask_graph__())
        blocks.append([_with_own_tasks(key, graph) for key in keys])
    return blocks


def _with_own_tasks(key: Any, graph: dict[Any, Any]) -> Delayed:
    # The graphs of all blocks are joined again in each pass.
    return Delayed(key, dask.optimization.cull(graph, key)[0])
