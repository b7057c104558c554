"""Bins: which object is in which, and the same bits as each bin by itself."""

import numpy as np
import pytest
import vostrel
from astropy import units
from astropy.table import Column
from data_sets import LONG, awkward_numbers, numbers, redshifts, same_bits
from scipy.stats import binned_statistic


def assert_bins_equal_their_objects(b, reference, estimate, by):
    """Each bin against point_statistics of its objects, chosen as the conventions say."""
    for i, (low, high) in enumerate(zip(b.edges[:-1], b.edges[1:])):
        last = i == len(b) - 1
        inside = (by >= low) & ((by <= high) if last else (by < high))
        assert b.counts[i] == inside.sum()
        if inside.any():
            expected = vostrel.point_statistics(reference[inside], estimate[inside])
            assert same_bits(numbers(b[i]), numbers(expected))
        else:
            assert np.isnan(numbers(b[i])).all()


def test_by_hand():
    b = vostrel.binned_statistics(
        [1.0, 2.0, 3.0, 4.0, 9.0], [1.5, 2.0, 2.0, 4.0, 9.0], bins=[1, 2, 4, 4.5], range=None
    )
    assert b.counts.tolist() == [1, 2, 1]
    assert np.diff(b.counts).tolist() == [1, -1]
    assert b.n_outside == 1
    assert b.delta.bias.tolist() == [-0.5, 0.5, 0]
    assert (b[1].n, b[1].delta.mad, b[-1].n) == (2, 0.5, 1)
    assert [s.n for s in b] == [1, 2, 1]


def test_edges_and_counts_are_those_of_numpy_histogram(rng):
    for _ in range(3000 if LONG else 300):
        n = int(rng.integers(1, 300))
        by = awkward_numbers(rng, n)
        by = by[np.abs(by) < 1e15]  # NumPy fails on one greater value: it can't widen the range
        if not by.size:
            continue
        bins = int(rng.integers(1, 40))
        limits = tuple(np.sort(rng.standard_normal(2))) if rng.random() < 0.5 else None
        counts, edges = np.histogram(by, bins, limits)
        b = vostrel.binned_statistics(by, by, bins=bins, range=limits)
        assert np.array_equal(b.edges, edges)  # NumPy's greatest of both zeros has either sign
        assert b.counts.tolist() == counts.tolist()
        assert b.n_outside == by.size - counts.sum()


def test_one_value_too_large_for_a_wider_range():
    b = vostrel.binned_statistics([1.0], [0.5], by=[1e76], bins=3)
    assert b.edges.tolist() == [1e76] * 4
    assert b.counts.tolist() == [0, 0, 1]


def test_values_on_the_edges(rng):
    for bins in (3, 7, 10, 49, 1000):
        edges = np.linspace(0.1, 6.3, bins + 1)
        by = np.concatenate([edges, np.nextafter(edges, 9), np.nextafter(edges, -9)])
        expected, _ = np.histogram(by, bins, (0.1, 6.3))
        found = vostrel.binned_statistics(by, by, bins=bins, range=(0.1, 6.3))
        assert found.counts.tolist() == expected.tolist()
        explicit = vostrel.binned_statistics(by, by, bins=edges)
        assert explicit.counts.tolist() == np.histogram(by, edges)[0].tolist()


def test_repeated_edges_as_in_numpy_histogram(rng):
    for _ in range(100):
        edges = np.sort(rng.integers(0, 4, rng.integers(2, 8)) * 5e-324)
        by = rng.integers(0, 5, 20) * 5e-324
        b = vostrel.binned_statistics(by, by, bins=edges)
        assert b.counts.tolist() == np.histogram(by, edges)[0].tolist()


def test_edges_from_minus_to_plus_infinity():
    b = vostrel.binned_statistics([-5.0, 0.0, 5.0], [0.0, 0.0, 0.0], bins=[-np.inf, 0, np.inf])
    assert b.counts.tolist() == [1, 2]


@pytest.mark.parametrize("bins", [1, 10, [0, 0.1, 0.5, 2, 3], ("count", 7)])
def test_bins_equal_their_objects(bins, rng):
    reference, estimate = redshifts(rng, 20_000)
    b = vostrel.binned_statistics(reference, estimate, bins=bins)
    assert_bins_equal_their_objects(b, reference, estimate, reference)
    assert b.counts.sum() + b.n_outside == 20_000


def test_bins_of_another_quantity(rng):
    for _ in range(200 if LONG else 30):
        n = int(rng.integers(1, 3000))
        reference, estimate = redshifts(rng, n)
        magnitude = rng.choice([rng.normal(22, 2, n), rng.integers(18, 25, n) * 1.0])
        b = vostrel.binned_statistics(reference, estimate, magnitude, bins=8, range=(16, 24))
        assert_bins_equal_their_objects(b, reference, estimate, magnitude)


def test_the_quantity_may_have_a_unit():
    b = vostrel.binned_statistics([1.0, 2.0], [1.0, 2.0], [20, 23] * units.mag, bins=[18, 22, 24])
    assert b.counts.tolist() == [1, 1]
    for edges in ([18000, 22000, 24000] * units.mmag, Column([18.0, 22, 24], unit="mag")):
        b = vostrel.binned_statistics([1.0, 2.0], [1.0, 2.0], [20, 23] * units.mag, bins=edges)
        assert (b.counts.tolist(), b.edges.tolist()) == ([1, 1], [18, 22, 24])
    b = vostrel.binned_statistics([1.0, 2.0], [1.0, 2.0], [20, 23] * units.mag, bins=2,
                                  range=(18000, 24000) * units.mmag)
    assert b.edges.tolist() == [18, 21, 24]


def test_thousands_of_bins(rng):
    reference, estimate = redshifts(rng, 30_000)
    b = vostrel.binned_statistics(reference, estimate, bins=5000)
    assert_bins_equal_their_objects(b, reference, estimate, reference)


def test_equal_counts(rng):
    for n, k in ((10, 3), (1000, 7), (100_000, 10), (50, 50), (12_345, 1000)):
        by = rng.permutation(n) + 0.5
        b = vostrel.binned_statistics(by, by, bins=("count", k))
        assert set(b.counts.tolist()) <= {n // k, n // k + 1, n // k + 2}
        assert b.counts.sum() == n
        ordered = np.sort(by)
        assert b.edges.tolist() == [ordered[i * n // k] for i in range(k)] + [ordered[-1]]


def test_equal_counts_keep_equal_values_together():
    by = np.repeat([1.0, 2.0], [90, 10])
    b = vostrel.binned_statistics(by, by, bins=("count", 4))
    assert b.edges.tolist() == [1, 1, 1, 1, 2]
    assert b.counts.tolist() == [0, 0, 0, 100]
    assert np.isnan(b.norm.bias[:3]).all()


def test_equal_counts_of_awkward_values(rng):
    for _ in range(100):
        by = awkward_numbers(rng, int(rng.integers(1, 20_000)))
        k = int(rng.integers(1, 9))
        b = vostrel.binned_statistics(np.zeros(by.size), np.zeros(by.size), by, bins=("count", k))
        ordered = np.sort(by)
        expected = [ordered[i * by.size // k] for i in range(k)] + [ordered[-1]]
        assert np.array_equal(b.edges, expected)


def test_all_values_are_equal():
    b = vostrel.binned_statistics([2.0, 2.0], [1.0, 2.0], bins=4)
    assert b.edges.tolist() == [1.5, 1.75, 2, 2.25, 2.5]
    assert b.counts.tolist() == [0, 0, 2, 0]


def test_against_scipy(rng):
    reference, estimate = redshifts(rng, 50_000)
    residual = (reference - estimate) / (1 + reference)
    b = vostrel.binned_statistics(reference, estimate, bins=15)
    median = binned_statistic(reference, np.abs(residual), "median", 15)
    mean = binned_statistic(reference, residual, "mean", 15)
    assert same_bits(b.edges, median.bin_edges)
    filled = b.counts > 0
    assert same_bits(b.norm.mad[filled], median.statistic[filled])
    np.testing.assert_allclose(b.norm.bias[filled], mean.statistic[filled], rtol=1e-12)


@pytest.mark.parametrize(("bins", "limits", "counts"), [
    ([0, 1, 2], None, [1, 3]), (2, (0, 2), [1, 3]), (2, None, [1, 3]), (("count", 2), None, [2, 2]),
])
def test_nan_for_each_kind_of_bins(bins, limits, counts):
    columns = [0.0, 0.5, 1.0, 1.5, 2.0], [0.0, np.nan, 1.0, 1.5, 2.0]
    b = vostrel.binned_statistics(*columns, bins=bins, range=limits, nan_policy="omit")
    assert (b.counts.tolist(), b.nan_counts.tolist(), b.n_nan) == (counts, [1, 0], 1)
    assert b.delta.bias.tolist() == [0, 0]
    b = vostrel.binned_statistics(*columns, bins=bins, range=limits, nan_policy="propagate")
    assert (b.counts.tolist(), b.n_nan) == ([counts[0] + 1, counts[1]], 1)
    assert np.isnan(b.delta.bias).tolist() == [True, False]
    with pytest.raises(ValueError, match="^1 of 5 objects have NaN"):
        vostrel.binned_statistics(*columns, bins=bins, range=limits)


@pytest.mark.parametrize("bins", [[0, 1, 2], 2, ("count", 7)])
@pytest.mark.parametrize("place", [5, 15_000, 20_009])
@pytest.mark.parametrize("mask", [None, np.arange(20_010) == 17])
def test_one_nan_among_few_objects_among_many_and_outside(bins, place, mask, rng):
    reference, estimate = redshifts(rng, 20_010)
    by = np.repeat([1.5, 0.5, 2.5], [10, 20_000 - 10, 10]) + 0.4 * rng.random(20_010)
    columns = [reference, estimate, by]
    left_out = place if mask is None else [place, 17]
    without = [np.delete(column, left_out) for column in columns]
    expected = vostrel.binned_statistics(*without, bins=bins)
    for i, column in enumerate(columns):
        with_nan = column.copy()
        with_nan[place] = np.nan
        given = [*columns[:i], with_nan, *columns[i + 1 :]]
        b = vostrel.binned_statistics(*given, bins=bins, mask=mask, nan_policy="omit")
        assert (b.n_nan, b.n_outside) == (1, expected.n_outside)
        assert same_bits(b.edges, expected.edges)
        assert all(same_bits(numbers(x), numbers(y)) for x, y in zip(b, expected))
        with pytest.raises(ValueError, match="^1 of 200(10|09) objects have NaN"):
            vostrel.binned_statistics(*given, bins=bins, mask=mask)


def test_masked_and_nan():
    nan = np.nan
    columns = [1.0, 1.5, 2.5, 2.5, 2.7, nan], [1.0, nan, 2.5, 9.0, 2.0, 1.0]
    mask = [False, False, False, True, False, False]
    b = vostrel.binned_statistics(*columns, bins=[1, 2, 3], mask=mask, nan_policy="omit")
    assert (b.n_masked, b.n_nan, b.n_outside) == (1, 2, 0)
    assert b.counts.tolist() == [1, 2]
    assert b.nan_counts.tolist() == [1, 0]
    b = vostrel.binned_statistics(*columns, bins=[1, 2, 3], mask=mask, nan_policy="propagate")
    assert b.counts.tolist() == [2, 2]
    assert (b[0].n, b[0].n_nan) == (2, 1)
    assert np.isnan(numbers(b[0])).all()
    assert b.delta.bias[1] == (2.7 - 2.0) / 2
    with pytest.raises(ValueError, match="2 of 5 objects have NaN"):
        vostrel.binned_statistics(*columns, bins=[1, 2, 3], mask=mask)


def test_results_cannot_be_changed():
    edges = np.array([0.0, 1, 2])
    b = vostrel.binned_statistics([1.0, 2.0], [1.0, 2.0], bins=edges)
    edges[0] = 0.5  # the caller's own
    assert b.edges[0] == 0
    for array in (b.edges, b.counts, b.norm.nmad):
        with pytest.raises(ValueError, match="read-only"):
            array[0] = 1


def test_frame(rng):
    reference, estimate = redshifts(rng, 100)
    b = vostrel.binned_statistics(reference, estimate, bins=3)
    frame = b.to_frame()
    assert frame.shape == (3, 36)
    assert frame["norm_nmad"].tolist() == b.norm.nmad.tolist()
    assert frame["low"].tolist() + [frame["high"].iloc[-1]] == b.edges.tolist()


def test_printed():
    b = vostrel.binned_statistics([1.0, 2.0, 3.0], [1.5, 2.0, 1.0], bins=[1, 2, 3])
    assert str(b) == "\n".join(
        [
            "3 objects in 2 bins, 0 outside, 0 masked, 0 with NaN",
            "from  to  n  bias norm  NMAD norm  outliers norm >0.15",
            "   1   2  1      -0.25    0.37065                 100%",
            "   2   3  2       0.25    0.37065                  50%",
        ]
    )


def test_infinite_values_need_a_range():
    b = vostrel.binned_statistics([1.0, np.inf], [1.0, 1.0], range=(0, 2), bins=1)
    assert (b.counts.tolist(), b.n_outside) == ([1], 1)
