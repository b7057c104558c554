"""Errors by formula: by hand, against the exact binomial distribution, and their coverage."""

import math

import numpy as np
import pytest
import vostrel
from data_sets import LONG, redshifts, same_bits
from vostrel._uncertainties import quantile_ranks


def test_by_hand():
    # Residuals -1, 1, 3, 5: bias 2, sigma^2 = 5, m4 about it = 41; rms^2 = 9, fourth 177.
    u = vostrel.uncertainties([0.0] * 4, [1.0, -1.0, -3.0, -5.0], confidence=0.95)
    q = 1.959963984540054
    assert u.delta.bias.value == 2
    assert u.delta.bias.error == pytest.approx(math.sqrt(5 / 4))
    assert u.delta.bias.low == pytest.approx(2 - q * math.sqrt(5 / 4))
    assert u.delta.bias.high == pytest.approx(2 + q * math.sqrt(5 / 4))
    error = math.sqrt((41 - 25) / 4) / (2 * math.sqrt(5))
    assert u.delta.sigma.error == pytest.approx(error)
    assert u.delta.sigma.high == pytest.approx(math.sqrt(5) * math.exp(q * error / math.sqrt(5)))
    assert u.delta.rms.error == pytest.approx(math.sqrt((177 - 81) / 4) / 6)
    # Four values hold the median between the least and the greatest with 1 - 2 / 16 only.
    assert math.isnan(u.delta.mad.low) and math.isnan(u.delta.nmad.high)
    assert u.delta.mad.error == 2  # half of 1 ... 5, which hold it with 0.875
    methods = [getattr(u.delta, name).method for name in ("bias", "sigma", "nmad", "outliers_015")]
    assert methods == ["normal", "log", "ranks", "wilson"]
    # Wilson: 4 of 4, with none within.
    assert not u.delta.outliers_015.reliable
    assert u.delta.outliers_015.value == u.delta.outliers_015.high == 100
    assert u.delta.outliers_015.low == pytest.approx(100 / (1 + q * q / 4))
    for name in ("mad_delta", "outliers_1sigma", "outliers_4sigma"):
        estimate = getattr(u.norm, name)
        assert not math.isnan(estimate.value)
        assert math.isnan(estimate.error) and math.isnan(estimate.low)
    assert "use vostrel.bootstrap" in str(u)


def test_sigma_of_a_few_objects_is_marked():
    # Half are 0, a quarter each 1 and -1: the error of sigma is 0.5 / sqrt(n) of it.
    for n, reliable in (24, False), (28, True):
        u = vostrel.uncertainties(np.zeros(n), np.tile([0.0, 1.0, 0.0, -1.0], n // 4)).delta
        assert u.sigma.error == pytest.approx(0.5 / math.sqrt(n) * u.sigma.value)
        assert (u.sigma.reliable, u.rms.reliable, u.bias.reliable) == (reliable, reliable, True)


def test_wilson_as_in_textbooks():
    # 10 of 100: 5.52 % to 17.44 %.
    reference = np.zeros(100)
    estimate = np.where(np.arange(100) < 10, 1.0, 0.0)
    fraction = vostrel.uncertainties(reference, estimate, confidence=0.95).norm.outliers_015
    assert (round(fraction.low, 2), round(fraction.high, 2)) == (5.52, 17.44)
    assert fraction.reliable


@pytest.mark.parametrize("confidence", [0.5, 0.683, 0.75, 0.9375, 0.95, 0.9973])
def test_ranks_against_the_binomial_distribution(confidence):
    for n in [*range(1, 60), 999, 1000]:
        terms = [math.comb(n, k) for k in range(n + 1)]

        def misses(low):
            """Whether the median is outside the ranks low and n - 1 - low too often."""
            return 2 * sum(terms[: low + 1]) > (1 - confidence) * 2**n * (1 + 1e-12)

        ranks = quantile_ranks(n, 0.5, confidence)
        if ranks is None:
            assert misses(0)
        else:
            low, high = ranks
            assert high == n - 1 - low
            assert not misses(low)
            assert misses(low + 1)


def test_ranks_of_many():
    n = 100_000_000
    low, high = quantile_ranks(n, 0.5, 0.95)
    assert low == pytest.approx(n / 2 - 1.959964 * math.sqrt(n) / 2, abs=2)
    assert low + high == n - 1


def test_same_inputs_as_point_statistics(rng):
    reference, estimate = redshifts(rng, 500)
    mask = rng.random(500) < 0.2
    estimate[3] = np.nan
    mask[3] = False
    with pytest.raises(ValueError, match="1 of .* objects have NaN"):
        vostrel.uncertainties(reference, estimate, mask=mask)
    u = vostrel.uncertainties(reference, estimate, mask=mask, nan_policy="omit")
    keep = ~mask & ~np.isnan(estimate)
    clean = vostrel.uncertainties(reference[keep], estimate[keep])
    assert (u.n, u.n_masked, u.n_nan) == (keep.sum(), mask.sum(), 1)
    assert same_bits(list(u.to_dict().values())[3:], list(clean.to_dict().values())[3:])
    u = vostrel.uncertainties(np.ma.array(reference, mask=mask), estimate, nan_policy="propagate")
    assert math.isnan(u.norm.bias.value) and math.isnan(u.norm.nmad.high)
    for confidence in (0, 1, -0.5, math.nan):
        with pytest.raises(ValueError, match="confidence must be a number between 0 and 1"):
            vostrel.uncertainties(reference, estimate, confidence=confidence)


@pytest.mark.parametrize(
    "estimate, text",
    [
        ((0.021234, 0.0003, 0.02094, 0.02163), "0.0212 +0.0004 -0.0003"),
        ((12345.6, 200, 12145.6, 12545.6), "12300 +200 -200"),
        ((0.5, 0.1, 0.39, 0.62), "0.50 +0.12 -0.11"),
        ((0.5, 0.0997, 0.4003, 0.5997), "0.50 +0.10 -0.10"),
        ((0.0, 0.1, 0.0, 3.2), "0 +3 -0"),
        ((1.0, 0.0, 1.0, 1.0), "1 +0 -0"),
        ((1e-300, 1e-301, 0.9e-300, 1.1e-300), "(1.00 +0.10 -0.10)e-300"),
        ((0.0, 5e-324, -5e-324, 5e-324), "(0 +5 -5)e-324"),
        ((-1.23e20, 1e18, -1.25e20, -1.22e20), "(-1.230 +0.010 -0.020)e+20"),
        ((0.25, math.nan, math.nan, math.nan), "0.25 ?"),
        ((math.nan,) * 4, "nan"),
    ],
)
def test_rounding(estimate, text):
    assert str(vostrel.Uncertain(*estimate)) == text


def test_table_and_names(rng):
    u = vostrel.uncertainties(*redshifts(rng, 500))
    assert list(u.to_dict())[:7] == [
        "n", "n_masked", "n_nan",
        "delta_bias", "delta_bias_error", "delta_bias_low", "delta_bias_high",
    ]
    assert len(u.to_dict()) == 3 + (28 + 4) * 4
    assert list(u.to_dict())[-4:] == [
        "lsst_outlier_rate", "lsst_outlier_rate_error", "lsst_outlier_rate_low",
        "lsst_outlier_rate_high",
    ]
    assert u.lsst.bias.low == -u.norm.median.high
    frame = u.to_frame()
    assert frame.loc["norm_nmad", "high"] == u.norm.nmad.high
    assert str(u).splitlines()[0].endswith("68.3% intervals by formula")


@pytest.mark.skipif(not LONG, reason="takes a minute")
def test_coverage(rng):
    """How often the interval holds what the statistic is of very many objects."""
    hits = np.zeros(10)
    names = ("bias", "sigma", "rms", "mad", "nmad", "outliers_015", "median", "p2.5", "p16",
             "outliers_0.2")
    truth = (0, 0.1, 0.1, 0.06744898, 0.06744898 * 1.4826, 13.361440, 0, -0.1959964, -0.09944579,
             4.550026)
    for _ in range(2000):
        r = 0.1 * rng.standard_normal(1000)
        u = vostrel.uncertainties(
            np.zeros(1000), r, confidence=0.95, percentiles=(2.5, 16), outliers=0.2
        )
        found = u.norm.to_dict()
        hits += [found[f"{name}_low"] <= value <= found[f"{name}_high"]
                 for name, value in zip(names, truth)]
    # Intervals between two ranks hold more, 95.8 % for p2.5. The bounds are 4 sigma away.
    assert (hits / 2000 > 0.925).all() and (hits / 2000 < 0.98).all()


def test_bins_have_the_errors_of_their_objects(rng):
    reference, estimate = redshifts(rng, 2000)
    estimate[7] = np.nan
    b = vostrel.binned_statistics(
        reference, estimate, bins=[0.0, 0.5, 50.0, 60.0], nan_policy="omit", uncertainties=True
    )
    for i, u in enumerate(b.uncertainties):
        inside = (b.edges[i] <= reference) & (reference < b.edges[i + 1])
        assert u.n == b.counts[i]
        if not inside.any():
            assert math.isnan(u.norm.bias.low)
            continue
        alone = vostrel.uncertainties(reference[inside], estimate[inside], nan_policy="omit")
        assert same_bits(list(u.to_dict().values())[3:], list(alone.to_dict().values())[3:])
    frame = b.to_frame()
    assert frame["norm_nmad_high"][0] == b.uncertainties[0].norm.nmad.high
    assert vostrel.binned_statistics(reference[8:], estimate[8:]).uncertainties is None


def test_bins_by_another_quantity_with_masks_and_nan(rng):
    reference, estimate = redshifts(rng, 500)
    by = rng.integers(0, 3, 500).astype(float)
    mask = rng.random(500) < 0.2
    estimate[np.flatnonzero((by == 1) & ~mask)[0]] = np.nan
    b = vostrel.binned_statistics(
        reference, estimate, by, bins=[0, 1, 2, 3], mask=mask, nan_policy="propagate",
        uncertainties=True,
    )
    for i, u in enumerate(b.uncertainties):
        inside = (by == i) & ~mask
        alone = vostrel.uncertainties(reference[inside], estimate[inside], nan_policy="propagate")
        assert (u.n, u.n_masked, u.n_nan) == (inside.sum(), 0, i == 1)
        assert same_bits(list(u.to_dict().values())[3:], list(alone.to_dict().values())[3:])
