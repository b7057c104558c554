"""vostrel.dask with catalogues of LSDB, and docs/lsdb.md."""

import os
import pathlib
import signal
import threading
import time
from contextlib import suppress

import lsdb
import numpy as np
import pandas as pd
import pytest
import vostrel
import vostrel.dask
from dask import dataframe
from dask.distributed import Client, LocalCluster
from data_sets import LONG, redshifts
from support.pages import follow

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "lsdb.md"


def catalogue(table, name):
    """A catalogue of LSDB in several partitions, in a folder of this name."""
    lsdb.from_dataframe(table, partition_rows=len(table) // 4).write_catalog(name)


def test_the_document():
    steps = [(names["table"], names["runs"], names.get("s")) for _, names in follow(DOCUMENT)]
    table, runs, _ = steps[0]

    def expected(rows):
        return vostrel.chunked_statistics([(rows.z_spec, rows.z_phot)])

    found = [s for _, _, s in steps[1:]]
    rows_of = [table, table[table.z_spec < 1.5], table, runs, table]
    assert found == [expected(rows) for rows in rows_of]


def test_columns_of_different_lengths_are_refused(rng):
    table = pd.DataFrame({"id": np.arange(200), "dec": 0.0, "z_spec": rng.random(200)})
    table["ra"] = table.id / 10
    catalogue(table, "objects")
    catalogue(table.loc[np.repeat(table.index, 3)].reset_index(drop=True), "runs")
    objects, runs = (lsdb.open_catalog(name) for name in ("objects", "runs"))
    nested = objects.join_nested(runs, left_on="id", right_on="id", nested_column_name="runs")
    with pytest.raises(Exception, match="differ in length"):
        vostrel.dask.point_statistics(nested["z_spec"], nested["runs.z_spec"])


def new_cluster(workers):
    return LocalCluster(n_workers=workers, threads_per_worker=1, dashboard_address=None)


def die_once(rows, file):
    """The rows. The first call waits to be killed."""
    if len(rows):  # Dask tries functions with a table of no rows
        with suppress(FileExistsError), open(file, "x") as stream:
            print(os.getpid(), file=stream, flush=True)
            time.sleep(60)
    return rows


def kill_whom(file):
    while not (file.exists() and file.read_text().endswith("\n")):
        time.sleep(0.01)
    os.kill(int(file.read_text()), signal.SIGKILL)


def test_workers_and_one_that_is_killed(rng, folder):
    n = 10**7 if LONG else 10**6
    z_spec, z_phot = redshifts(rng, n)
    sky = {"ra": rng.uniform(0, 40, n), "dec": rng.uniform(-20, 20, n)}
    catalogue(pd.DataFrame({"z_spec": z_spec, "z_phot": z_phot, **sky}), "large")
    catalog = lsdb.open_catalog("large", columns=["z_spec", "z_phot"])
    expected = vostrel.chunked_statistics([(z_spec, z_phot)])
    for workers in (1, 2):
        with new_cluster(workers) as cluster, Client(cluster):
            start = time.perf_counter()
            s = vostrel.dask.point_statistics(catalog["z_spec"], catalog["z_phot"])
            print(f"{n} objects, {workers} workers: {time.perf_counter() - start:.1f} s")
        assert s == expected
    file = folder / "whom"
    mortal = catalog.map_partitions(die_once, file)
    killer = threading.Thread(target=kill_whom, args=[file], daemon=True)
    # distributed may lose count of its workers, and then fails to close.
    with suppress(KeyError), new_cluster(2) as cluster, Client(cluster):
        killer.start()
        s = vostrel.dask.point_statistics(mortal["z_spec"], mortal["z_phot"])
        killer.join(10)
    assert not killer.is_alive() and int(file.read_text()) != os.getpid()
    assert s == expected


def test_arrow_columns_with_missing_values():
    frame = pd.DataFrame(
        {"r": [0.5, 1.0, None, 2.0], "e": [0.4, None, 1.0, 2.3]}, dtype="double[pyarrow]"
    )
    lazy = dataframe.from_pandas(frame, npartitions=2)
    s = vostrel.dask.point_statistics(lazy.r, lazy.e)
    assert (s.n, s.n_masked) == (2, 2)
    assert s.norm == vostrel.chunked_statistics([([0.5, 2.0], [0.4, 2.3])]).norm
