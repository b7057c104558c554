"""Columns of pyarrow, polars, DuckDB, nested-pandas, JAX and NumPy, as users have them."""

import subprocess
import sys

import duckdb
import jax
import nested_pandas
import numpy as np
import pandas as pd
import polars as pl
import pyarrow as pa
import pytest
import vostrel

jax.config.update("jax_enable_x64", True)

Z = np.array([0.5, 0.25, 1.5, 2.0, 0.75, 3.0])
P = np.array([0.25, 0.25, 2.0, -1.5, 0.5, 1.0])


def duckdb_column(values):
    table = pa.table({"z": values})
    return duckdb.connect().from_arrow(table).query("t", "select z from t")


def nested_column(values):
    base = pd.DataFrame({"field": range(3)})
    objects = pd.DataFrame({"z": values}, index=np.repeat(range(3), 2))
    return nested_pandas.NestedFrame(base).join_nested(objects, "objects")["objects.z"]


COLUMNS = {
    "pyarrow": pa.array,
    "pyarrow, part of an array": lambda v: pa.array(np.r_[9, v, 9])[1:-1],
    "pyarrow, chunks": lambda v: pa.chunked_array([v[:1], v[1:1], v[1:]]),
    "pyarrow, table": lambda v: pa.table({"z": v}),
    "pyarrow, reader": lambda v: pa.table({"z": v}).to_reader(max_chunksize=2),
    "polars": pl.Series,
    "polars, float32": lambda v: pl.Series(v, dtype=pl.Float32),
    "polars, chunks": lambda v: pl.concat([pl.Series(v[:1]), pl.Series(v[1:])], rechunk=False),
    "polars, frame": lambda v: pl.DataFrame({"z": v}),
    "DuckDB": duckdb_column,
    "pandas of Arrow": lambda v: pd.Series(v, dtype="double[pyarrow]"),
    "nested-pandas": nested_column,
    "JAX": jax.numpy.asarray,
    "JAX, (n, 1)": lambda v: jax.numpy.asarray(v)[:, None],
    "JAX, float16": lambda v: jax.numpy.asarray(v, "float16"),
}


@pytest.mark.parametrize("kind", COLUMNS)
def test_columns(kind):
    make = COLUMNS[kind]
    assert vostrel.point_statistics(make(Z), make(P)) == vostrel.point_statistics(Z, P)


EDGES = np.array([0.25, 0.6, 0.9, 1.5, 2, 3])


@pytest.mark.parametrize("kind", [kind for kind in COLUMNS if "float" not in kind])
def test_edges_and_what_the_bins_are_by(kind):
    make = COLUMNS[kind]
    expected = vostrel.binned_statistics(Z, P, Z + 0.25, bins=EDGES)
    found = vostrel.binned_statistics(Z, P, make(Z + 0.25), bins=make(EDGES))
    assert found.to_frame().equals(expected.to_frame())


NULLS = {
    "pyarrow": pa.array,
    "pyarrow, part of an array": lambda v: pa.array([9.0] * 7 + v + [None])[7:-1],
    "polars": lambda v: pl.Series(v, dtype=pl.Float64),
    "polars, chunks": lambda v: pl.Series(v[:4], dtype=pl.Float64).append(pl.Series(v[4:])),
    "DuckDB": duckdb_column,
    "pandas of Arrow": lambda v: pd.Series(pd.arrays.ArrowExtensionArray(pa.array(v))),
}


@pytest.mark.parametrize("kind", NULLS)
def test_null_is_masked_and_nan_is_nan(kind):
    column = NULLS[kind]([1.0, None, float("nan"), 2.0, 3.0, None])
    s = vostrel.point_statistics(column, np.ones(6), nan_policy="omit")
    assert (s.n, s.n_masked, s.n_nan, s.delta.bias) == (3, 2, 1, 1.0)


MASKS = {
    "pyarrow": pa.array,
    "pyarrow, chunks": lambda m: pa.chunked_array([m[:1], m[1:]]),
    "polars": pl.Series,
    "DuckDB": duckdb_column,
    "JAX": jax.numpy.asarray,
}


@pytest.mark.parametrize("kind", MASKS)
def test_masks(kind):
    hidden = np.array([True, False, False, True, False, False])
    found = vostrel.point_statistics(Z, P, mask=MASKS[kind](hidden))
    assert found == vostrel.point_statistics(Z, P, mask=hidden)


REFUSED = [
    (pa.array(["a"]), "text"),
    (pl.Series(["a"]), "text"),
    (pa.array(["a"]).dictionary_encode(), "categories"),
    (pl.Series(["a"], dtype=pl.Categorical), "categories"),
    (pl.Series([[1.0]]), "nested values"),
    (pa.array([1], pa.date32()), "times"),
    (pl.Series([None]), "the type null: cast it to float64"),
    (duckdb.sql("select 0.5 z"), "decimals: cast them to float64"),
    (jax.numpy.asarray([1.0], "bfloat16"), "bfloat16: convert it to float32 first"),
]


@pytest.mark.parametrize("column, found", REFUSED, ids=[found for _, found in REFUSED])
def test_unsupported_columns_are_refused(column, found):
    with pytest.raises(TypeError, match=f"reference must hold real numbers, not {found}"):
        vostrel.point_statistics(column, [1.0])


def test_a_table_is_refused():
    table = duckdb.sql("select 0.5::double z, 0.25::double p")
    with pytest.raises(TypeError, match="reference is a table .* with the columns 'z', 'p': pass"):
        vostrel.point_statistics(table, [1.0])


def test_a_column_that_fails_while_it_is_computed():
    column = duckdb.sql("select case when i < 5000 then 0.5 else error('no such file') end::double"
                        " from range(10000) t(i)")
    with pytest.raises(TypeError, match="reference can't be made into .*no such file"):
        vostrel.point_statistics(column, np.ones(10_000))


IN_PLACE = """
import resource, sys
import numpy as np, vostrel
{imports}
rng = np.random.default_rng(1)
z = rng.random(10_000_000)
p = z + 0.05 * rng.standard_normal(len(z))
expected = vostrel.point_statistics(z, p)
small = {make}
vostrel.point_statistics(small(z[:100]), small(p[:100]))
columns = small(z), small(p)
before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
assert vostrel.point_statistics(*columns) == expected
print(resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before)
"""

PRODUCERS = {
    "pyarrow": ("import pyarrow", "pyarrow.array"),
    "polars": ("import polars", "polars.Series"),
    "JAX": ("import jax; jax.config.update('jax_enable_x64', True)",
            "lambda v: jax.block_until_ready(jax.numpy.asarray(v))"),
    "numpy": ("", """type("Theirs", (), {
        "__init__": lambda self, v: setattr(self, "v", v),
        "__dlpack__": lambda self, **options: self.v.__dlpack__(**options),
        "__dlpack_device__": lambda self: self.v.__dlpack_device__()})"""),
}


@pytest.mark.parametrize("library", PRODUCERS)
def test_doubles_are_read_in_place(library):
    """A column has 80 MB."""
    imports, make = PRODUCERS[library]
    script = IN_PLACE.format(imports=imports, make=make)
    done = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)
    assert done.returncode == 0, done.stderr
    assert int(done.stdout) < 8 << 10  # KiB
