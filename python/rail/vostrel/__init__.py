"""RAIL stages that compute exact point statistics in chunks. `vostrel.rail` has them too.

They live here because RAIL looks for stages in the packages of its namespace, and ceci starts a
stage by the name of its module.
"""

from __future__ import annotations

from collections.abc import Callable, Iterable, Iterator
from itertools import zip_longest
from typing import Any

import numpy as np
import vostrel
from ceci.config import StageParameter as Param
from ceci.stage import PipelineStage
from rail.core.data import DataHandle
from rail.evaluation.point_to_point_evaluator import (
    PointToPointBinnedEvaluator,
    PointToPointEvaluator,
)
from vostrel._inputs import as_column, separate_mask

__all__ = ["VostrelPointToPointBinnedEvaluator", "VostrelPointToPointEvaluator"]

#: RAIL's metrics of a sample, and the names that they have in `PointStatistics.lsst`.
RAIL_METRICS = {
    "point_bias": "bias",
    "point_stats_iqr": "sigma_iqr",
    "point_stats_sigma_mad": "sigma_mad",
    "point_outlier_rate": "outlier_rate",
}

#: RAIL's metric of an object: e = (estimate - truth) / (1 + truth).
EZ = "point_stats_ez"

#: A process keeps its columns between passes if they take no more bytes than this.
KEPT_BYTES = 2**27

OWN_OPTIONS = {
    "metrics": Param(list, ["all"], required=False, msg="The metrics to write, or all."),
    "mask_key": Param(
        str, "", required=False, msg="The column of the truth that is true for objects left out."
    ),
    "nan_policy": Param(
        str, "omit", required=False, msg="What to do with objects that have NaN: omit or raise."
    ),
}


class VostrelPointToPointEvaluator(PointToPointEvaluator):
    """Evaluate point estimates against the truth: exact, and in chunks.

    The table ``summary`` has RAIL's metrics under RAIL's names, and the
    numbers of `vostrel.point_statistics` under the names of its `to_dict`.
    The table ``output`` has e of each object, NaN if it is masked. The bits
    depend neither on the chunk size nor on the number of MPI processes.
    """

    name = "VostrelPointToPointEvaluator"
    interactive_function = "vostrel_point_to_point_evaluator"
    config_options = PointToPointEvaluator.config_options.copy()
    config_options.update(**OWN_OPTIONS)

    def evaluate(self, data: Any, truth: Any, **_: Any) -> dict[str, DataHandle]:
        """Evaluate estimates. Files are read in chunks.

        Parameters
        ----------
        data : qp.Ensemble or DataHandle
            The estimates. Their ancillary table has the point estimates.
        truth : table or DataHandle
            The table of the true values.

        Returns
        -------
        dict of DataHandle
            ``output``, ``summary`` and ``single_distribution_summary``.
        """
        self.set_data("input", data, do_read=False)
        self.set_data("truth", truth, do_read=False)
        self.run()
        self.finalize()
        return {tag: self.get_handle(tag) for tag in self.output_tags()}

    def run(self) -> None:
        """Compute the metrics, and write those of each object."""
        table = Table(self)
        summary = self._summary(table)
        chosen = self._chosen(summary)
        output = self._new_handle("output", {})
        if EZ in chosen:
            _write_by_object(output, table, self.comm, self.config.output_mode == "return")
        self._new_handle(
            "summary", {name: values for name, values in summary.items() if name in chosen}
        )
        self._new_handle("single_distribution_summary", {})

    def finalize(self) -> None:
        """Move the tables to their final places."""
        PipelineStage.finalize(self)

    def _summary(self, table: Table) -> dict[str, Any]:
        """Return all columns of the table ``summary``."""
        comm, nan_policy = self.comm, self.config.nan_policy
        if comm is None:
            result = vostrel.chunked_statistics(table.chunks, nan_policy=nan_policy)
        else:
            from vostrel import mpi

            result = mpi.point_statistics(table.chunks, comm=comm, nan_policy=nan_policy)
        return {name: np.array([value]) for name, value in _numbers(result).items()}

    def _by(self) -> list[str]:
        """Return the column of the truth that the bins are by, if there are bins."""
        return []

    def _chosen(self, summary: dict[str, Any]) -> set[str]:
        """Return the names of the metrics to write."""
        known = {EZ, *summary}
        wanted = set(self.config.metrics)
        unknown = wanted.union(self.config.exclude_metrics) - known - {"all"}
        if unknown:
            raise ValueError(
                f"there is no metric {min(unknown)!r}; there are {', '.join(sorted(known))}"
            )
        always = {name for name in summary if name.startswith("bin_")}
        if "all" in wanted:
            wanted = known
        return wanted - set(self.config.exclude_metrics) | always

    def _new_handle(self, tag: str, data: Any) -> DataHandle:
        self.data_store.pop(self.get_aliased_tag(tag), None)  # from an earlier run
        return self.add_handle(tag, data=data)


class VostrelPointToPointBinnedEvaluator(VostrelPointToPointEvaluator):
    """Evaluate point estimates against the truth, in bins: exact, and in chunks.

    The tables are those of `VostrelPointToPointEvaluator`; ``summary`` has a
    row for each bin. A bin holds its lower edge, and the last bin holds its
    upper edge too. The metrics of an empty bin are NaN.
    """

    name = "VostrelPointToPointBinnedEvaluator"
    interactive_function = "vostrel_point_to_point_binned_evaluator"
    config_options = PointToPointBinnedEvaluator.config_options.copy()
    config_options.update(
        **OWN_OPTIONS,
        nbin=Param(int, 10, required=False, msg="The number of bins of equal width."),
        bin_edges=Param(
            list, [], required=False, msg="The edges of the bins, instead of bin_min to nbin."
        ),
    )

    def _summary(self, table: Table) -> dict[str, Any]:
        config = self.config
        options: dict[str, Any] = {"nan_policy": config.nan_policy}
        if config.bin_edges:
            options["bins"] = [float(edge) for edge in config.bin_edges]
        else:
            options.update(bins=config.nbin, range=(config.bin_min, config.bin_max))
        if self.comm is None:
            result = vostrel.chunked_binned_statistics(table.chunks, **options)
        else:
            from vostrel import mpi

            result = mpi.binned_statistics(table.chunks, comm=self.comm, **options)
        rows = [_numbers(one) for one in result]
        low, high = result.edges[:-1], result.edges[1:]
        columns = {"bin_center": (low + high) / 2, "bin_low": low, "bin_high": high}
        columns.update({name: np.array([row[name] for row in rows]) for name in rows[0]})
        columns["n_masked"] = np.full(len(rows), result.n_masked)
        columns["n_outside"] = np.full(len(rows), result.n_outside)
        return columns

    def _by(self) -> list[str]:
        return [self.config.bin_col]


#: The first row of a chunk, and its columns as vostrel takes them: truth, estimate, perhaps what
#: the bins are by, and the mask or None.
Part = tuple[int, tuple[Any, ...]]

#: The first row of a chunk, the row after its last, and its table.
Chunk = tuple[int, int, Any]


class Table:
    """The rows of this process, in chunks. They are read again for each pass, or kept if few."""

    def __init__(self, stage: VostrelPointToPointEvaluator) -> None:
        self._stage = stage
        self._kept: list[Part] | None = None
        self._room = KEPT_BYTES
        self.length = 0

    def chunks(self) -> Iterator[tuple[Any, ...]]:
        """Return the columns of each chunk."""
        return (columns for _, columns in self.parts())

    def parts(self) -> Iterator[Part]:
        """Return the first row of each chunk and its columns."""
        return self._read() if self._kept is None else iter(self._kept)

    def _read(self) -> Iterator[Part]:
        kept: list[Part] = []
        room = self._room
        self.length = 0
        for start, estimates, truth in self._aligned():
            columns = self._columns(estimates, truth)
            self.length += len(columns[0])
            room -= sum(column.nbytes for column in columns if column is not None)
            if room >= 0:
                kept.append((start, columns))
            else:
                kept.clear()
                self._room = -1  # later passes need not try
            yield start, columns
        if room >= 0:
            self._kept = kept

    def _aligned(self) -> Iterator[tuple[int, Any, Any]]:
        """Return the first row of each chunk, its estimates and its truth."""
        end: Chunk = (-1, -1, None)
        estimates, truth = self._own(self._estimates()), self._own(self._iterator("truth"))
        for one, other in zip_longest(estimates, truth, fillvalue=end):
            if one[:2] != other[:2]:
                raise ValueError(
                    "input and truth differ in length, or their files can't be read in chunks of "
                    f"{self._stage.config.chunk_size} rows"
                )
            yield one[0], one[2], other[2]

    def _own(self, chunks: Iterable[Chunk]) -> Iterator[Chunk]:
        """Return the chunks of this process. Data in memory and some files come whole to each."""
        stage = self._stage
        for chunk in chunks:
            if chunk[0] // stage.config.chunk_size % stage.size == stage.rank:
                yield chunk

    def _estimates(self) -> Iterator[Chunk]:
        """Return the ancillary tables of the ensemble."""
        ensemble = self._handle("input").data
        if ensemble is None:
            for start, end, part in self._iterator("input"):
                yield start, end, part.ancil or {}
        else:  # qp can't slice an ensemble of one object, and would copy the distributions
            ancil, size = ensemble.ancil or {}, self._stage.config.chunk_size
            for start in range(0, ensemble.npdf, size):
                end = min(start + size, ensemble.npdf)
                yield start, end, {name: column[start:end] for name, column in ancil.items()}

    def _iterator(self, tag: str) -> Iterable[Chunk]:
        stage = self._stage
        chunks: Iterable[Chunk] = self._handle(tag).iterator(
            groupname=stage.config.hdf5_groupname,
            chunk_size=stage.config.chunk_size,
            rank=stage.rank,
            parallel_size=stage.size,
        )
        return chunks

    def _handle(self, tag: str) -> DataHandle:
        return self._stage.get_handle(tag, allow_missing=True)

    def _columns(self, estimates: Any, truth: Any) -> tuple[Any, ...]:
        config = self._stage.config
        columns = [
            _column("truth", truth, config.reference_dictionary_key),
            _column("input", estimates, config.point_estimate_key),
            *(_column("truth", truth, name) for name in self._stage._by()),
        ]
        masks = [mask for _, own in columns for mask in own]
        if config.mask_key:
            flags, own = _column("truth", truth, config.mask_key)
            masks += [flags.astype(bool), *own]
        mask = np.logical_or.reduce(masks) if masks else None
        return (*(values for values, _ in columns), mask)


def _column(tag: str, table: Any, name: str) -> tuple[Any, list[Any]]:
    """Return the values of a column and its masks, all in one dimension."""
    try:
        column = table[name]
    except KeyError:
        names = ", ".join(map(str, getattr(table, "keys", lambda: ())()))
        raise ValueError(f"{tag} has no column {name!r}; it has: {names or 'none'}") from None
    data, masks = separate_mask(column)
    values = as_column(f"{tag} {name!r}", np.asarray(data))
    return values, [np.reshape(mask, values.shape) for mask in masks]


def _numbers(result: vostrel.PointStatistics) -> dict[str, Any]:
    """Return RAIL's metrics under RAIL's names, and all numbers of vostrel under theirs."""
    named = {name: getattr(result.lsst, attribute) for name, attribute in RAIL_METRICS.items()}
    return {**named, **result.to_dict()}


def _ez(columns: tuple[Any, ...]) -> Any:
    """Return e of each object, NaN if it is masked."""
    reference, estimate, *_, mask = columns
    reference, estimate = reference.astype(float), estimate.astype(float)
    with np.errstate(all="ignore"):
        ez = (estimate - reference) / (1 + reference)
    if mask is not None:
        ez[mask] = np.nan
    return ez


def _write_by_object(handle: DataHandle, table: Table, comm: Any, in_memory: bool) -> None:
    """Write e of each object. The first process writes for all."""
    length = table.length if comm is None else comm.allreduce(table.length)
    if in_memory:
        handle.set_data({EZ: np.empty(length)})

    def write(start: int, ez: Any) -> None:
        if in_memory:
            handle.data[EZ][start:start + len(ez)] = ez
            return
        handle.set_data({EZ: ez}, partial=True)
        if handle.fileObj is None:  # here, because the other processes hear of errors of `write`
            handle.initialize_write(length)
        handle.write_chunk(start, start + len(ez))

    _bring_together(((start, _ez(columns)) for start, columns in table.parts()), write, comm)
    if handle.fileObj is not None:
        handle.finalize_write()


def _bring_together(parts: Iterator[Any], write: Callable[..., None], comm: Any) -> None:
    """Write the parts of all processes in the first one. If one fails, all raise an error."""
    if comm is None:
        for part in parts:
            write(*part)
        return
    raised: BaseException | None = None
    while True:
        part = None
        if raised is None:
            try:
                part = next(parts, None)
            except BaseException as error:
                raised = error
        failed = raised and f"rank {comm.rank} failed: {type(raised).__name__}: {raised}"
        states = comm.allgather(failed or part is not None)
        if raised is not None:
            raise raised
        errors = [state for state in states if isinstance(state, str)]
        if errors:
            raise RuntimeError(errors[0])
        if not any(states):
            return
        try:
            for one in comm.gather(part) or ():
                if one is not None:
                    write(*one)
        except BaseException as error:  # raised above, after all have heard of it
            raised = error
