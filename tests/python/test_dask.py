"""vostrel.dask: the bits of chunked_statistics under every scheduler, and when a worker dies."""

import os
import pathlib
import re
import signal
import sys
import threading
import time
from concurrent.futures import ThreadPoolExecutor
from contextlib import suppress
from types import SimpleNamespace

import dask.array as da
import dask.dataframe as dd
import numpy as np
import pandas as pd
import pytest
import vostrel
from dask import config, delayed
from data_sets import LONG, numbers, same_bits
from scale_sets import ASKED, SETS, columns_of, cut, redshifts, scale_sets, ways_to_cut

distributed = pytest.importorskip("distributed")

ON_CLUSTER = SETS if LONG else 3


def collections(chunks):
    """Dask arrays of these chunks."""
    columns = zip(*chunks)
    return [
        da.concatenate([da.from_array(part, chunks=-1) for part in column]) for column in columns
    ]


def new_cluster(workers):
    return distributed.LocalCluster(
        n_workers=workers, threads_per_worker=1, dashboard_address=None
    )


@pytest.fixture(scope="module")
def cluster():
    with new_cluster(1) as cluster:
        yield cluster


@pytest.fixture
def client(cluster):
    with distributed.Client(cluster) as client:  # the scheduler until it is closed
        yield client


def test_same_bits_in_threads(rng):
    with config.set(scheduler="threads"):
        for number, columns in enumerate(scale_sets(rng, SETS if LONG else 9)):
            ways = list(ways_to_cut(rng, columns))
            way, chunks = ways[number % len(ways)]
            if len(chunks) > 64 and not LONG or len(chunks) > 7 and number >= len(ways):
                way, chunks = ways[2]  # a task takes longer than its chunk
            found = numbers(vostrel.dask.point_statistics(*collections(chunks), **ASKED))
            expected = numbers(vostrel.chunked_statistics([columns], **ASKED))
            assert same_bits(found, expected), (way, columns)


@pytest.mark.parametrize("workers", [1, 2, 3, 4])
def test_same_bits_on_a_cluster(workers, client, rng):
    client.cluster.scale(workers)
    client.wait_for_workers(workers, timeout=60)

    def on_the_cluster(columns):
        chunks = cut(columns, 1 + len(columns[0]) % 4)
        return columns, chunks, vostrel.dask.point_statistics(*collections(chunks))

    with ThreadPoolExecutor(8) as several:  # the cluster mostly waits for messages
        for columns, chunks, found in several.map(on_the_cluster, scale_sets(rng, ON_CLUSTER)):
            expected = vostrel.chunked_statistics([columns])
            assert same_bits(numbers(found), numbers(expected)), columns
    later = vostrel.dask.point_statistics(*collections(chunks), compute=False)
    assert same_bits(numbers(later.compute()), numbers(found))
    kept = [column.persist() for column in collections(chunks)]
    assert same_bits(numbers(vostrel.dask.point_statistics(*kept, compute=False).compute()),
                     numbers(found))


def test_processes(rng):
    columns = redshifts(rng, 20_000)
    with config.set(scheduler="processes"):
        found = vostrel.dask.point_statistics(*collections(cut(columns, 2)))
    assert found == vostrel.chunked_statistics([columns])


def die_once(values, folder, wanted, position):
    """The values. The `wanted`-th computation of the first chunk waits to be killed."""
    if position == 0:
        number = len(list(folder.iterdir()))
        (folder / str(number)).write_text(str(os.getpid()))
        if number == wanted:
            time.sleep(60)
    return values


@pytest.mark.parametrize("wanted", [0, 1], ids=["first pass", "second pass"])
def test_a_killed_worker(wanted, rng, tmp_path):
    columns = redshifts(rng, 40_000)
    chunks = cut(columns, 8)
    reference = da.concatenate(
        [
            da.from_delayed(
                delayed(die_once)(chunk[0], pathlib.Path(tmp_path), wanted, i),
                (len(chunk[0]),),
                float,
            )
            for i, chunk in enumerate(chunks)
        ]
    )
    estimate = collections(chunks)[1]
    killed = []

    def kill():
        file = tmp_path / str(wanted)
        while not (file.exists() and file.read_text()):
            time.sleep(0.01)
        killed.append(int(file.read_text()))
        os.kill(killed[0], signal.SIGKILL)

    killer = threading.Thread(target=kill, daemon=True)
    # A cluster of its own: distributed may lose count of its workers, and then fails to close.
    with suppress(KeyError), new_cluster(2) as cluster, distributed.Client(cluster):
        killer.start()
        found = vostrel.dask.point_statistics(reference, estimate)
        killer.join(10)
    assert killed and killed[0] != os.getpid()
    assert found == vostrel.chunked_statistics([columns])


def test_a_block_carries_only_its_own_tasks():
    ones = da.ones(8, chunks=2)
    blocks = vostrel.dask.pair_blocks(reference=ones, estimate=ones)
    assert [len(column.__dask_graph__()) for block in blocks for column in block] == [1] * 8


@pytest.fixture
def two_workers():
    # Workers of a cluster that shrinks may go while a test names them.
    with new_cluster(2) as cluster, distributed.Client(cluster) as client:
        yield client


def test_persisted_blocks_stay_on_their_workers(two_workers, monkeypatch):
    client = two_workers
    workers = list(client.nthreads())
    column = da.concatenate(
        [
            da.from_delayed(client.submit(np.full, 10, i, workers=[workers[i % 2]]), (10,), float)
            for i in range(6)
        ]
    ).persist()
    distributed.wait(column)
    monkeypatch.setattr(vostrel.dask, "BATCH_BYTES", 2 * 80 * 2)  # two blocks of two columns
    blocks = vostrel.dask.pair_blocks(reference=column, estimate=column)
    keys = [[block[0].key[1] for block in blocks] for blocks in vostrel.dask.batches(blocks)]
    assert sorted(keys) == [[0, 2], [1, 3], [4], [5]]
    client.cancel(column)


def test_every_kind_of_collection(rng):
    r, e = redshifts(rng, 20_000)
    expected = vostrel.chunked_statistics([(r, e)])
    a, b = da.from_array(r, chunks=1000), da.from_array(e, chunks=1700)
    frame = dd.from_pandas(pd.DataFrame({"r": r, "e": e}), npartitions=5)
    statistics = vostrel.dask.point_statistics
    assert statistics(a, b) == expected
    assert statistics(a, e) == expected
    assert statistics(frame.r, frame.e) == expected
    assert statistics(frame.r.values, frame.e) == expected
    assert statistics(a[:, None], e[:, None], mask=da.zeros((20_000, 1), dtype=bool)) == expected

    masked = vostrel.chunked_statistics([(r, e, r > 1)])
    assert statistics(a, b, mask=a > 1) == masked
    assert statistics(a, b, mask=r > 1) == masked
    assert statistics(frame.r, frame.e, mask=frame.r > 1) == masked
    assert statistics(da.ma.masked_greater(a, 1), b) == masked

    kept = vostrel.chunked_statistics([(r[r <= 1], e[r <= 1])])
    b = b.rechunk(1000)
    near = frame[frame.r <= 1]
    assert statistics(a[a <= 1], b[a <= 1]) == kept  # unknown sizes
    assert statistics(near.r, near.e) == kept


def test_columns_of_a_frame_are_read_together():
    reads = []

    def read(number):
        reads.append(number)
        return pd.DataFrame({"r": [0.5, number], "e": [0.4, number], "mask": [False, number == 2]})

    meta = pd.DataFrame({"r": [0.5], "e": [0.5], "mask": [True]})
    frame = dd.from_map(read, [1.0, 2.0, 3.0], meta=meta)
    found = vostrel.dask.point_statistics(frame.r, frame.e, mask=frame["mask"])
    assert (found.n, found.n_masked) == (5, 1)
    assert sorted(reads) == [1, 2, 3], "there is one pass, which reads a partition once"


def test_nan(rng):
    r, e = redshifts(rng, 1000)
    e[:10] = np.nan
    a, b = da.from_array(r, chunks=300), da.from_array(e, chunks=300)
    where = r"\(in a chunk: 10 in estimate, the first at index 0\)"
    with pytest.raises(ValueError, match=f"10 of 1000 objects have NaN {where}"):
        vostrel.dask.point_statistics(a, b)
    assert vostrel.dask.point_statistics(a, b, nan_policy="omit").n_nan == 10


def noisy(block):
    return block + np.random.default_rng().standard_normal(len(block))


def test_blocks_that_differ_each_time_they_are_computed_are_rejected():
    reference = da.zeros(20_000, chunks=5000)
    estimate = reference.map_blocks(noisy)
    with pytest.raises(ValueError, match="the data changed between passes"):
        vostrel.dask.point_statistics(reference, estimate)
    with pytest.raises(ValueError, match="the data changed between passes"):
        vostrel.dask.binned_statistics(reference, reference, by=estimate, bins=[-9, 9])


def test_bins(rng):
    r, e = redshifts(rng, 30_000)
    by = rng.uniform(18, 25, 30_000)
    edges = [18, 20, 22, 24]
    expected = vostrel.chunked_binned_statistics([(r, e, by)], bins=edges, **ASKED)
    columns = [da.from_array(column, chunks=7000) for column in (r, e, by)]
    found = vostrel.dask.binned_statistics(*columns, bins=edges, **ASKED)
    later = vostrel.dask.binned_statistics(
        *columns, bins=3, range=(18, 24), compute=False, **ASKED
    )
    for b in (found, later.compute()):
        assert same_bits(columns_of(b), columns_of(expected))
        assert b.n_outside == expected.n_outside > 0


def test_progress(rng, cluster):
    calls = []
    arrays = [da.from_array(column, chunks=2000) for column in redshifts(rng, 20_000)]

    def compute():
        calls.clear()
        vostrel.dask.point_statistics(*arrays, progress=lambda *now: calls.append(now))

    compute()
    assert len(calls) >= 20
    assert calls == [(done, 10) for done in range(1, 11)] * (len(calls) // 10)
    with distributed.Client(cluster):
        compute()
    assert calls == [(10, 10)] * len(calls)
    with pytest.raises(ValueError, match="progress needs compute=True"):
        vostrel.dask.point_statistics(*arrays, progress=True, compute=False)


@pytest.mark.parametrize(
    "reference, estimate, error, message",
    [
        (np.ones(3), np.ones(3), TypeError, "in memory already"),
        (da.ones(3), [1, 1, 1], TypeError, "estimate must be a one-dimensional dask array"),
        (da.ones(3), delayed(5), TypeError, "estimate must be a one-dimensional dask array"),
        (da.ones((3, 2)), da.ones(3), ValueError, "reference must have one dimension, but has 2"),
        (da.ones(3), da.ones(4), ValueError, "reference and estimate differ in length: 3 and 4"),
        (da.ones(0), da.ones(0), ValueError, "there are no objects"),
        (da.ones(3)[da.ones(3) > 0], np.ones(3), ValueError, "call compute_chunk_sizes"),
        (da.ones(4, chunks=2)[da.ones(4, chunks=2) > 0], da.ones(4), ValueError, "2 and 1 chunks"),
        (da.ones(3)[da.ones(3) > 0], da.ones(4), ValueError, "differ in length: 3 and 4"),
    ],
)
def test_wrong_inputs_are_refused(reference, estimate, error, message):
    with pytest.raises(error, match=message):
        vostrel.dask.point_statistics(reference, estimate)


def test_recipe_for_slurm(cluster, monkeypatch):
    """A cluster of this machine stands in for SLURM's."""
    scaled = []
    monkeypatch.setattr(type(cluster), "scale", lambda _, **jobs: scaled.append(jobs))
    jobqueue = SimpleNamespace(SLURMCluster=lambda **_: cluster)
    monkeypatch.setitem(sys.modules, "dask_jobqueue", jobqueue)
    document = pathlib.Path(__file__).resolve().parents[2] / "docs" / "scale.md"
    (code,) = re.findall(r"```python\n(from dask_jobqueue.*?)```", document.read_text(), re.DOTALL)
    names = {"vostrel": vostrel, "table": {"zspec": da.arange(9.0), "zphot": da.ones(9)}}
    exec(code, names)
    assert names["s"].n == 9 and scaled == [{"jobs": 20}]
