"""vostrel.dask with catalogues of LSDB, and docs/lsdb.md."""

import os
import pathlib
import re
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

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "lsdb.md"


def catalogue(table, name):
    """A catalogue of LSDB in several partitions, in a folder of this name."""
    lsdb.from_dataframe(table, partition_rows=len(table) // 4).write_catalog(name)


def test_the_document():
    code = re.findall(r"```python\n(.*?)```", DOCUMENT.read_text(), re.DOTALL)
    whole, filtered, joined, nested, cluster, example = code
    names = {"lsdb": lsdb}
    exec(example, names)
    table = names["table"]
    catalogue(table[["id", "ra", "dec", "z_spec"]], "spectra")
    runs = table.loc[np.repeat(table.index, 3)].reset_index(drop=True)
    runs["z_phot"] += 0.01 * np.random.default_rng(2).standard_normal(len(runs))
    catalogue(runs, "runs")

    def expected(rows):
        return vostrel.chunked_statistics([(rows.z_spec, rows.z_phot)])

    for text, rows in (
        (whole, table), (filtered, table[table.z_spec < 1.5]), (joined, table), (nested, runs),
        (cluster, table),
    ):
        exec(compile(text, "docs/lsdb.md", "exec"), names)
        assert names["s"] == expected(rows), text
    assert names["catalog"].npartitions > 1
    with pytest.raises(Exception, match="differ in length"):
        vostrel.dask.point_statistics(names["nested"]["z_spec"], names["nested"]["runs.z_phot"])


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
