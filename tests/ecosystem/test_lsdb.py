"""vostrel.dask with catalogues of LSDB, and docs/lsdb.md."""

import pathlib
import re

import lsdb
import numpy as np
import pandas as pd
import pytest
import vostrel
import vostrel.dask
from dask import dataframe

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


def test_arrow_columns_with_missing_values():
    frame = pd.DataFrame(
        {"r": [0.5, 1.0, None, 2.0], "e": [0.4, None, 1.0, 2.3]}, dtype="double[pyarrow]"
    )
    lazy = dataframe.from_pandas(frame, npartitions=2)
    s = vostrel.dask.point_statistics(lazy.r, lazy.e)
    assert (s.n, s.n_masked) == (2, 2)
    assert s.norm == vostrel.chunked_statistics([([0.5, 2.0], [0.4, 2.3])]).norm
