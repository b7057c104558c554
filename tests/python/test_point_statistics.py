"""All numbers against the class UTILS, the program's report, and the libraries of the field."""

import numpy as np
import pytest
import vostrel
from data_sets import LONG, data_set, numbers, redshifts, same_bits
from hypothesis import given, settings
from hypothesis.strategies import floats, lists, tuples
from scipy.stats import median_abs_deviation
from sklearn.metrics import median_absolute_error
from vostrel import _core

CASES = 300_000 if LONG else 100_000


def core_numbers(reference, estimate):
    """The numbers of the report by the core alone, which takes no objects too."""
    _, _, _, (delta, norm, _) = _core.point_statistics([reference, estimate], [], False, [], [])
    return delta[:11] + norm[:11]


def test_by_hand():
    s = vostrel.point_statistics([1.0, 1.0, 3.0, 3.0], [0.5, 1.25, 3.0, 5.0])
    # Residuals 0.5, -0.25, 0, -2; normalized 0.25, -0.125, 0, -0.5.
    assert (s.n, s.n_masked, s.n_nan) == (4, 0, 0)
    assert s.delta.bias == -0.4375
    assert s.delta.rms == np.sqrt(4.3125 / 4)
    assert s.delta.sigma == pytest.approx(np.sqrt(4.3125 / 4 - 0.4375**2))
    assert s.delta.mad == 0.375
    assert s.delta.nmad == 0.375 * 1.4826
    assert s.delta.mad_delta == 0.375  # about -0.125: 0.625, 0.125, 0.125, 1.875
    assert s.delta.outliers_015 == 75
    assert s.delta.outliers_1sigma == s.delta.outliers_2sigma == 25
    assert s.delta.outliers_3sigma == s.delta.outliers_4sigma == 0
    assert s.norm.bias == -0.09375
    assert s.norm.mad == 0.1875
    assert s.norm.outliers_015 == 50


def test_matches_utils_bit_for_bit(rng, utils_results):
    for _ in range(CASES // 10_000):
        data_sets = []
        while len(data_sets) < 10_000:
            reference, estimate = data_set(rng, 4000)
            ends = np.cumsum([0, *rng.integers(0, 60, 99), rng.integers(0, 1000)])
            data_sets += [(reference[a:b], estimate[a:b]) for a, b in zip(ends, ends[1:])]
        found = np.array([core_numbers(*columns) for columns in data_sets])
        expected = utils_results(data_sets)
        if not same_bits(found, expected):
            different = next(i for i, numbers in enumerate(found)
                             if not same_bits(numbers, expected[i]))
            raise AssertionError((data_sets[different], found[different], expected[different]))


@pytest.mark.parametrize("n", [4095, 4096, 4097, 65_536, 100_000])
def test_matches_utils_bit_for_bit_for_large_sets(n, rng, utils_results):
    data_sets = [data_set(rng, n) for _ in range(40 if LONG else 8)]
    for (reference, estimate), expected in zip(data_sets, utils_results(data_sets)):
        assert same_bits(core_numbers(reference, estimate), expected)


def test_one_object():
    s = vostrel.point_statistics([1.0], [0.5])
    assert (s.delta.bias, s.delta.sigma, s.delta.mad, s.norm.bias) == (0.5, 0, 0.5, 0.25)


def test_matches_the_libraries_of_the_field(rng):
    for n in (1, 2, 1001, 20_000):
        reference, estimate = redshifts(rng, n)
        s = vostrel.point_statistics(reference, estimate)
        for part, r in ((s.delta, reference - estimate),
                        (s.norm, (reference - estimate) / (1 + reference))):
            assert same_bits(part.mad, np.median(np.abs(r)))
            assert same_bits(part.mad, median_absolute_error(r, np.zeros(n)))
            assert same_bits(part.mad_delta, median_abs_deviation(r))
            # A mean is small compared with the values that are summed.
            assert part.bias == pytest.approx(np.mean(r), rel=0, abs=1e-12 * np.std(r) + 1e-15)
            assert part.sigma == pytest.approx(np.std(r), rel=1e-12, abs=1e-15)
            assert part.rms == pytest.approx(np.sqrt(np.mean(r**2)), rel=1e-12)
            assert part.outliers_015 == pytest.approx(np.mean(np.abs(r) > 0.15) * 100)
        assert same_bits(s.delta.mad, median_absolute_error(reference, estimate))


@given(
    lists(
        tuples(
            floats(allow_nan=False, width=64), floats(allow_nan=False, width=64)
        ),
        min_size=1,
        max_size=30,
    )
)
@settings(max_examples=2000 if LONG else 200, deadline=None, database=None)
def test_all_paths_agree_on_any_numbers(pairs):
    reference, estimate = np.array(pairs).T.copy()
    plain = numbers(vostrel.point_statistics(reference, estimate))
    strided = np.column_stack([reference, estimate])
    again = vostrel.point_statistics(strided[:, 0], strided[:, 1].astype(">f8"))
    assert same_bits(numbers(again), plain)
    one_bin = vostrel.binned_statistics(reference, estimate, np.zeros(len(pairs)), bins=1)
    assert same_bits(numbers(one_bin[0]), plain)
