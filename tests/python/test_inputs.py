"""Every kind of input gives the numbers of the cleaned plain arrays."""

import array

import numpy as np
import pandas as pd
import pytest
import vostrel
from astropy import units
from astropy.table import Column, MaskedColumn
from astropy.utils.masked import Masked
from data_sets import numbers, redshifts, same_bits
from vostrel import _core

REFERENCE = np.array([0.5, 0.25, 1.5, 2.0, 0.75, 3.0])
ESTIMATE = np.array([0.25, 0.25, 2.0, -1.5, 0.5, 1.0])
HIDDEN = np.array([False, True, False, False, True, False])


def record(values):
    """A column of a packed table: no number of it is aligned."""
    table = np.zeros(len(values), dtype=[("flag", "i1"), ("z", "f8")])
    table["z"] = values
    return table["z"]


PLAIN = {
    "list": lambda v: v.tolist(),
    "list of NumPy's numbers": list,
    "tuple": tuple,
    "float32": lambda v: v.astype(np.float32),
    "float16": lambda v: v.astype(np.float16),
    "longdouble": lambda v: v.astype(np.longdouble),
    "big-endian float64": lambda v: v.astype(">f8"),
    "big-endian float32": lambda v: v.astype(">f4"),
    "big-endian longdouble": lambda v: v.astype(np.dtype(np.longdouble).newbyteorder()),
    "strided": lambda v: np.repeat(v, 3)[::3],
    "reversed": lambda v: v[::-1].copy()[::-1],
    "column of a matrix": lambda v: np.column_stack([v, v + 1, v + 2])[:, 0],
    "of shape (n, 1)": lambda v: v[:, np.newaxis],
    "DataFrame of one column": lambda v: pd.DataFrame({"z": v}),
    "unaligned": record,
    "read-only": lambda v: np.frombuffer(v.tobytes()),
    "array.array": lambda v: array.array("d", v),
    "memoryview": lambda v: memoryview(v),
    "Series": pd.Series,
    "Series with another index": lambda v: pd.Series(v, index=range(len(v), 0, -1)),
    "Series of float32": lambda v: pd.Series(v, dtype="float32"),
    "Series of Float64": lambda v: pd.Series(v, dtype="Float64"),
    "Index": lambda v: pd.Index(v),
    "sparse Series": lambda v: pd.Series(pd.arrays.SparseArray(v)),
    "Column": lambda v: Column(v, name="z"),
    "Column without unit": lambda v: Column(v, unit=""),
    "Quantity": lambda v: v * units.dimensionless_unscaled,
    "MaskedColumn without a mask": lambda v: MaskedColumn(v),
    "masked array without a mask": lambda v: np.ma.array(v),
}


@pytest.mark.parametrize("kind", PLAIN)
def test_kinds_of_columns(kind):
    expected = numbers(vostrel.point_statistics(REFERENCE, ESTIMATE))
    make = PLAIN[kind]
    assert same_bits(numbers(vostrel.point_statistics(make(REFERENCE), make(ESTIMATE))), expected)
    assert same_bits(numbers(vostrel.point_statistics(REFERENCE, make(ESTIMATE))), expected)


@pytest.mark.parametrize(
    "dtype", ["b1", "i1", "i2", "i4", "i8", "u1", "u2", "u4", "u8", ">i2", ">i4", ">i8", ">u8"]
)
def test_integers(dtype):
    reference, estimate = np.array([1, 0, 1, 1]), np.array([0, 0, 1, 0])
    if dtype != "b1":
        reference, estimate = reference * 100, estimate * 50
    expected = numbers(vostrel.point_statistics(reference * 1.0, estimate * 1.0))
    found = vostrel.point_statistics(reference.astype(dtype), estimate.astype(dtype))
    assert same_bits(numbers(found), expected)


def test_a_list_of_several_kinds_of_numbers():
    values = [0.5, 1, True, np.float32(0.1), np.int64(-3), np.longdouble(2), 2**70, np.True_] * 9000
    plain = np.array([float(value) for value in values])
    expected = numbers(vostrel.point_statistics(plain, plain[::-1]))
    assert same_bits(numbers(vostrel.point_statistics(values, values[::-1])), expected)
    assert same_bits(numbers(vostrel.point_statistics(values, plain[::-1])), expected)


def test_a_list_changed_during_the_call():
    class Emptied(list):
        def __getitem__(self, key):
            return []

    with pytest.raises(RuntimeError, match="changed while they were read"):
        vostrel.point_statistics(Emptied([1.0, 2.0]), [1.0, 2.0])


@pytest.mark.parametrize("dtype", ["i8", "u8", "f4", "f2", ">f4"])
def test_extreme_values_are_converted_as_numpy_does(dtype):
    kind = np.dtype(dtype)
    if kind.kind == "f":
        info = np.finfo(kind)
        smallest = np.nextafter(kind.type(0), kind.type(1))
        extremes = [info.max, info.min, info.tiny, smallest, info.eps, np.inf, 1 / 3]
    else:
        extremes = [np.iinfo(kind).max, np.iinfo(kind).min, 2**53 + 1, 2**62 + 257]
    for extreme in extremes:
        column = np.array([extreme], dtype)
        s = vostrel.point_statistics(column, [0.0])
        assert same_bits(s.delta.bias, column.astype(np.float64)[0])


def masked_at_hidden(values):
    return np.ma.array(values, mask=HIDDEN)


def nullable(dtype):
    def make(values):
        series = pd.Series(values, dtype=dtype)
        series[HIDDEN] = pd.NA
        return series

    return make


MASKED = {
    "masked array": masked_at_hidden,
    "masked array of shape (n, 1)": lambda v: masked_at_hidden(v)[:, np.newaxis],
    "masked array of float32": lambda v: masked_at_hidden(v.astype(np.float32)),
    "MaskedColumn": lambda v: MaskedColumn(v, mask=HIDDEN),
    "Masked ndarray": lambda v: Masked(v, mask=HIDDEN),
    "Masked Quantity": lambda v: Masked(v * units.dimensionless_unscaled, mask=HIDDEN),
    "nullable Float64": nullable("Float64"),
    "nullable Float32": nullable("Float32"),
    "array of Float64": lambda v: nullable("Float64")(v).array,
}


@pytest.mark.parametrize("kind", MASKED)
def test_masked_entries_are_left_out(kind):
    expected = numbers(vostrel.point_statistics(REFERENCE[~HIDDEN], ESTIMATE[~HIDDEN]))
    masked = MASKED[kind](REFERENCE)
    for s in (
        vostrel.point_statistics(masked, ESTIMATE),
        vostrel.point_statistics(REFERENCE, MASKED[kind](ESTIMATE)),
        vostrel.point_statistics(masked, MASKED[kind](ESTIMATE)),
    ):
        assert (s.n, s.n_masked, s.n_nan) == (4, 2, 0)
        assert same_bits(numbers(s), expected)


def test_nullable_integers():
    reference = pd.Series([1, 2, None, 4], dtype="Int64")
    s = vostrel.point_statistics(reference, [1.0, 1.0, 1.0, 1.0])
    assert (s.n, s.n_masked, s.delta.bias) == (3, 1, 4 / 3)


def test_nan_in_a_nullable_array_is_nan_and_not_missing():
    values = pd.arrays.FloatingArray(np.array([1.0, np.nan, 2.0]), np.array([False, False, True]))
    s = vostrel.point_statistics(values, [1.0, 1.0, 1.0], nan_policy="omit")
    assert (s.n, s.n_masked, s.n_nan) == (1, 1, 1)


@pytest.mark.parametrize("make", [pd.Series, lambda v: pd.Series(v).array, Column])
def test_nan_of_pandas_and_astropy_is_nan_and_not_missing(make):
    s = vostrel.point_statistics(make(np.array([1.0, np.nan])), [1.0, 1.0], nan_policy="omit")
    assert (s.n, s.n_masked, s.n_nan) == (1, 0, 1)


MASKS = {
    "array": lambda m: m,
    "list": lambda m: m.tolist(),
    "strided": lambda m: np.repeat(m, 2)[::2],
    "of shape (n, 1)": lambda m: m[:, np.newaxis],
    "Series": pd.Series,
    "nullable Series": lambda m: pd.Series(m, dtype="boolean"),
    "Column": Column,
}


@pytest.mark.parametrize("kind", MASKS)
def test_kinds_of_masks(kind):
    expected = numbers(vostrel.point_statistics(REFERENCE[~HIDDEN], ESTIMATE[~HIDDEN]))
    s = vostrel.point_statistics(REFERENCE, ESTIMATE, mask=MASKS[kind](HIDDEN))
    assert (s.n, s.n_masked) == (4, 2)
    assert same_bits(numbers(s), expected)


def test_masks_add_up():
    reference = np.ma.array([1.0, 2.0, 3.0, 4.0], mask=[True, False, False, False])
    estimate = np.ma.array([1.0, 2.0, 3.0, 4.5], mask=[True, True, False, False])
    s = vostrel.point_statistics(reference, estimate, mask=[False, False, True, False])
    assert (s.n, s.n_masked, s.delta.bias) == (1, 3, -0.5)


def test_nomask_of_numpy_is_no_mask():
    assert vostrel.point_statistics([1.0], [1.0], mask=np.ma.nomask).n == 1


def test_nan_policies():
    columns = [1.0, np.nan, 3.0, 4.0], [1.5, 2.0, np.nan, np.nan]
    mask = [False, False, False, True]
    with pytest.raises(ValueError) as error:
        vostrel.point_statistics(*columns, mask=mask)
    assert str(error.value) == (
        "2 of 3 objects have NaN (1 in reference, the first at index 1; 1 in estimate, the first "
        "at index 2); pass nan_policy='omit' to leave them out, 'propagate' to get NaN, or mask "
        "them"
    )
    s = vostrel.point_statistics(*columns, mask=mask, nan_policy="omit")
    assert (s.n, s.n_masked, s.n_nan, s.delta.bias) == (1, 1, 2, -0.5)
    s = vostrel.point_statistics(*columns, mask=mask, nan_policy="propagate")
    assert (s.n, s.n_masked, s.n_nan) == (3, 1, 2)
    assert np.isnan(numbers(s)).all()


@pytest.mark.parametrize("first", [1, np.inf, -1])  # inf - inf and 0 / 0 are NaN, too
def test_nan_is_found_at_each_place(first):
    for n in (2, 3, 4096, 4099, 20_000):
        for place in {1, n // 2 - 1, n // 2, n - 1} - {0}:
            column = np.array([first, *np.ones(n - 1)])
            estimate = column.copy()
            column[place] = np.nan
            for one, other in [(column, estimate), (estimate, column)]:
                assert vostrel.point_statistics(one, other, nan_policy="propagate").n_nan == 1


def test_nan_among_many_objects(rng):
    """A whole pass may be over before a search for NaN begins."""
    reference, estimate = redshifts(rng, 200_000)
    keep = np.ones(200_000, bool)
    keep[[7, -1]] = False
    expected = vostrel.point_statistics(reference[keep], estimate[keep])
    in_chunks = vostrel.chunked_statistics([(reference[keep], estimate[keep])])
    reference[7] = estimate[-1] = np.nan
    s = vostrel.point_statistics(reference, estimate, nan_policy="omit")
    assert (s.n, s.n_nan) == (199_998, 2)
    assert same_bits(numbers(s), numbers(expected))
    s = vostrel.chunked_statistics([(reference, estimate)], nan_policy="omit")
    assert (s.n, s.n_nan) == (199_998, 2)
    assert same_bits(numbers(s), numbers(in_chunks))

    reference[7] = estimate[7] = np.inf  # a residual of NaN, but no missing value
    for s in (
        vostrel.point_statistics(reference, estimate, nan_policy="omit"),
        vostrel.chunked_statistics([(reference, estimate)], nan_policy="omit"),
    ):
        assert s.n_nan == 1 and np.isnan(s.delta.bias)


def test_the_search_for_nan_does_not_wait_for_the_end_of_a_pass():
    column = np.ones(200_000)
    column[5000] = np.nan
    starts = []

    class Reads:
        def __len__(self):
            return len(column)

        def read(self, first, count):
            starts.append(first)
            return column[first : first + count]

    for function in (
        lambda: _core.point_statistics([Reads(), column], [], True, (), ())[2],
        lambda: _core.Accumulator((), ()).add([Reads(), column], [], True, _core.Stop())[1],
    ):
        starts.clear()
        assert function() == 1
        assert starts[:4] == [0, 4096, 0, 4096]


@pytest.mark.parametrize("size, first", [(100, 0), (20_000, 0), (100, np.inf), (20_000, np.inf)])
def test_without_nan_the_policies_agree(size, first):
    reference, estimate = np.resize(REFERENCE, size), np.resize(ESTIMATE, size)
    reference[0] = estimate[0] = first
    results = {
        str(vostrel.point_statistics(reference, estimate, nan_policy=policy))
        for policy in ("raise", "omit", "propagate")
    }
    assert len(results) == 1


def test_infinities_are_numbers():
    s = vostrel.point_statistics([1.0, np.inf, 2.0], [1.5, 0.0, 2.0])
    assert (s.n_nan, s.delta.bias, s.delta.mad) == (0, np.inf, 0.5)


def test_memory_map(tmp_path):
    np.save(tmp_path / "z.npy", REFERENCE)
    mapped = np.load(tmp_path / "z.npy", mmap_mode="r")
    expected = numbers(vostrel.point_statistics(REFERENCE, ESTIMATE))
    assert same_bits(numbers(vostrel.point_statistics(mapped, ESTIMATE)), expected)


def test_large_inputs_of_all_kinds(rng):
    """More than one block, with masks and NaN in some of them."""
    n = 30_000
    reference, estimate = redshifts(rng, n)
    reference = reference.astype(np.float32).astype(np.float64)
    mask = rng.random(n) < 0.1
    estimate[rng.integers(0, n, 50)] = np.nan
    keep = ~mask & ~np.isnan(estimate)
    expected = vostrel.point_statistics(reference[keep], estimate[keep])
    for columns in (
        (reference, estimate),
        (reference.astype(np.float32), estimate.astype(">f8")),
        (np.repeat(reference, 2)[::2], pd.Series(estimate)),
    ):
        s = vostrel.point_statistics(*columns, mask=mask, nan_policy="omit")
        assert same_bits(numbers(s), numbers(expected))
        assert s.n + s.n_masked + s.n_nan == n


class Lazy:
    """As dask's collections are."""

    def __init__(self, graph):
        self.graph = graph

    def __dask_graph__(self):
        return self.graph

    def __array__(self, dtype=None):
        return np.array([1.0, 2.0])


def test_lazy_collections_are_refused():
    with pytest.raises(TypeError, match="vostrel.dask.point_statistics"):
        vostrel.point_statistics(Lazy({"task": 1}), [1.0, 2.0])
    with pytest.raises(TypeError, match="mask is a lazy dask collection"):
        vostrel.point_statistics([1.0], [1.0], mask=Lazy({"task": 1}))
    assert vostrel.point_statistics(Lazy(None), [1.0, 2.0]).n == 2


@pytest.mark.parametrize("library", ["pyspark.sql", "vaex", "ibis.expr"])
def test_other_lazy_collections_are_refused(library):
    kind = type("Column", (), {"__module__": library})
    with pytest.raises(TypeError, match="vostrel.chunked_statistics"):
        vostrel.point_statistics(kind(), [1.0])
