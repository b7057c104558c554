"""LSST's metrics against their NumPy formulas, bit for bit."""

import numpy as np
import pytest
import vostrel
from data_sets import LONG, awkward_numbers, redshifts, same_bits


def formulas(reference, estimate):
    e = (estimate - reference) / (1 + reference)
    bias = np.median(e)
    q25, q75 = np.percentile(e, [25, 75])
    sigma_iqr = (q75 - q25) / 1.349
    sigma_mad = 1.4826 * np.median(np.abs(e - np.median(e)))
    outlier_rate = np.mean(np.abs(e) > max(0.06, 3 * sigma_iqr))
    return bias, sigma_iqr, sigma_mad, outlier_rate


def found(reference, estimate):
    m = vostrel.lsst_metrics(reference, estimate)
    return m.bias, m.sigma_iqr, m.sigma_mad, m.outlier_rate


def test_by_hand():
    m = vostrel.lsst_metrics([0.0, 1.0, 0.0, 0.0, 0.0], [0.5, 1.5, 0.0, -1.0, 8.0])
    # e = 0.5, 0.25, 0, -1, 8
    assert m.bias == 0.25
    assert m.sigma_iqr == 0.5 / 1.349
    assert m.sigma_mad == 1.4826 * 0.25
    assert m.outlier_rate == 0.2
    assert (m.n, m.n_masked, m.n_nan) == (5, 0, 0)


def test_same_bits_as_the_formulas(rng):
    for size in [1, 2, 3, 4, 5, 6, 7, 8] * 20 + [4000, 5000, 70_000] * (30 if LONG else 5):
        reference, estimate = redshifts(rng, size)
        if rng.random() < 0.3:
            estimate = np.round(estimate, 2)
            reference = np.round(reference, 2)
        assert same_bits(found(reference, estimate), formulas(reference, estimate))


def test_awkward_numbers(rng):
    for _ in range(2000 if LONG else 300):
        size = int(rng.integers(1, 6000))
        estimate = awkward_numbers(rng, size)
        estimate = np.where(np.abs(estimate) < 1e300, estimate, 0)
        # A zero may come with either sign.
        assert np.array_equal(
            found(np.zeros(size), estimate), formulas(np.zeros(size), estimate), equal_nan=True
        )


def test_a_bias_of_zero_has_no_sign():
    for size in (1, 2, 3, 20_000):
        reference = np.full(size, -2.0)  # e = 0 / -1 = -0
        assert same_bits(found(reference, reference)[0], 0.0)


def test_one_value(rng):
    assert found(np.ones(100_000), np.full(100_000, 1.5)) == (0.25, 0, 0, 1)


def test_nan_among_the_errors():
    assert np.isnan(found([1.0, -1.0], [1.0, -1.0])).all()


def test_masks_and_policies():
    reference, estimate = [1.0, 1.0, np.nan, 1.0], [1.0, 2.0, 1.0, 9.0]
    mask = [False, False, False, True]
    m = vostrel.lsst_metrics(reference, estimate, mask=mask, nan_policy="omit")
    assert (m.n, m.n_masked, m.n_nan, m.bias) == (2, 1, 1, 0.25)
    m = vostrel.lsst_metrics(reference, estimate, mask=mask, nan_policy="propagate")
    assert (m.n, m.n_nan) == (3, 1)
    assert np.isnan([m.bias, m.sigma_iqr, m.sigma_mad, m.outlier_rate]).all()
    with pytest.raises(ValueError, match="1 of 3 objects have NaN"):
        vostrel.lsst_metrics(reference, estimate, mask=mask)
    assert list(m.to_dict()) == [
        "n", "n_masked", "n_nan", "bias", "sigma_iqr", "sigma_mad", "outlier_rate",
    ]
