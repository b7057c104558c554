"""Medians, percentiles, widths and thresholds: NumPy's bits in memory, and the same in chunks."""

import copy
import pickle

import numpy as np
import pytest
import vostrel
from data_sets import LONG, data_set, redshifts, same_bits
from scipy.stats import binom
from vostrel import _core
from vostrel._results import NAMES
from vostrel._uncertainties import quantile_ranks

ASKED = {"percentiles": (2.5, 16, 50, 84, 97.5, 0, 100, 33.3), "outliers": (0.05, 0.2, 1.0, 0)}


def found(part):
    return [part.median, part.sigma_68, part.sigma_iqr,
            *part.percentiles.values(), *part.outliers.values()]


def by_numpy(r):
    p16, p25, p75, p84 = np.percentile(r, [16, 25, 75, 84])
    return [
        np.median(r), (p84 - p16) / 2, (p75 - p25) / 1.349,
        *np.percentile(r, ASKED["percentiles"]),
        *(np.count_nonzero(abs(r) > bound) / len(r) * 100 for bound in ASKED["outliers"]),
    ]


def residuals(reference, estimate):
    return reference - estimate, (reference - estimate) / (1 + reference)


@pytest.mark.filterwarnings("ignore::RuntimeWarning")
def test_the_same_numbers_in_memory_and_in_chunks(rng):
    for _ in range(2000 if LONG else 60):
        n = int(np.exp(rng.uniform(0, np.log(12_000))))
        columns = data_set(rng, n)
        s = vostrel.point_statistics(*columns, **ASKED)
        order = rng.permutation(n)
        ends = [0, *sorted(rng.integers(0, n + 1, 3).tolist()), n]
        shuffled = [[column[order[a:b]] for column in columns] for a, b in zip(ends, ends[1:])]
        c = vostrel.chunked_statistics(shuffled, **ASKED)
        for r, part, chunked in zip(residuals(*columns), (s.delta, s.norm), (c.delta, c.norm)):
            if np.isnan(r).any():  # the order decides what medians are
                continue
            # The sign of a negative zero depends on the release of NumPy.
            plain = np.isfinite(r).all() and not np.signbit(r[r == 0]).any()
            same = same_bits if plain else lambda a, b: np.array_equal(a, b, equal_nan=True)
            assert same(found(part), by_numpy(r)), columns
            assert same_bits(found(chunked), found(part)), columns
        metrics = list(vostrel.lsst_metrics(*columns).to_dict().values())
        assert same_bits(list(s.lsst.to_dict().values()), metrics)
        if not np.isnan(residuals(*columns)[1]).any():
            assert same_bits(list(c.lsst.to_dict().values()), metrics), columns


def test_bins_and_errors_have_the_same_numbers(rng):
    reference, estimate = redshifts(rng, 3000)
    s = vostrel.point_statistics(reference, estimate, **ASKED)
    edges = [reference.min(), reference.max()]
    for b in (
        vostrel.binned_statistics(reference, estimate, bins=edges, **ASKED),
        vostrel.chunked_binned_statistics([(reference, estimate)], bins=edges, **ASKED),
    ):
        assert same_bits(found(b[0].norm), found(s.norm))
        assert b[0].lsst == s.lsst
        assert b[:1]["norm_p16"] == s.norm.percentiles[16]
        assert b["lsst_outlier_rate"] == s.lsst.outlier_rate
    u = vostrel.uncertainties(reference, estimate, **ASKED)
    assert [float(one) for one in found(u.norm)] == found(s.norm)
    low, high = quantile_ranks(3000, 0.16, u.confidence)
    ordered = np.sort(residuals(reference, estimate)[1])
    assert (u.norm.percentiles[16].low, u.norm.percentiles[16].high) == tuple(ordered[[low, high]])
    assert np.isnan(u.norm.percentiles[100].low) and np.isnan(u.norm.sigma_68.error)


@pytest.mark.parametrize("grouped", [False, True])
@pytest.mark.parametrize("n", [2, 100, 4000, 120_000])
def test_resamples_have_the_same_numbers(rng, n, grouped):
    reference, estimate = redshifts(rng, n)
    groups = np.arange(n) * (2 if n == 2 else 50) // n
    u = vostrel.bootstrap(
        reference, estimate, resamples=5, seed=2, groups=groups if grouped else None, **ASKED
    )
    for k in range(5):
        drawn = _core.resample_indices(2, k, groups[-1] + 1 if grouped else n)
        if grouped:
            drawn = np.concatenate([np.flatnonzero(groups == group) for group in drawn])
        for i, r in enumerate(residuals(reference[drawn], estimate[drawn])):
            assert same_bits(u.replicates[k, i, len(NAMES) :], by_numpy(r))
        metrics = vostrel.lsst_metrics(reference[drawn], estimate[drawn])
        assert same_bits(u.lsst_replicates[k], list(metrics._metrics().values()))
    s = vostrel.point_statistics(reference, estimate, **ASKED)
    assert [float(one) for one in found(u.norm)] == found(s.norm)
    assert u.lsst.outlier_rate.value == s.lsst.outlier_rate
    if n > 1000:
        p16 = u.norm.percentiles[16]
        by_ranks = vostrel.uncertainties(reference, estimate, **ASKED).norm.percentiles[16]
        assert p16.method == ("hall" if grouped else "ranks")
        assert grouped or (p16.low, p16.high) == (by_ranks.low, by_ranks.high)
    d = vostrel.bootstrap_difference(
        reference, {"A": estimate, "B": reference}, resamples=5, seed=2,
        groups=groups if grouped else None, **ASKED
    )
    assert d["A"].norm.percentiles == u.norm.percentiles
    assert d.norm.outliers[0.2].value == s.norm.outliers[0.2]
    assert d.lsst.bias.value == s.lsst.bias


@pytest.mark.parametrize("confidence", [0.683, 0.95])
def test_ranks_hold_the_quantile(confidence):
    for n in (5, 20, 100, 1000, 100_000):
        for p in (0.025, 0.16, 0.5, 0.84, 0.975):
            ranks = quantile_ranks(n, p, confidence)
            tail = (1 - confidence) / 2
            if ranks is None:
                assert max(binom.pmf(0, n, p), binom.pmf(n, n, p)) > tail
                continue
            low, high = ranks
            assert binom.cdf(low, n, p) <= tail < binom.cdf(low + 1, n, p)
            assert binom.sf(high, n, p) <= tail < binom.sf(high - 1, n, p)


def test_names_and_keys(rng):
    s = vostrel.point_statistics(*redshifts(rng, 50), percentiles=[16, 97.5, 16.0], outliers=0.2)
    assert list(s.norm.percentiles) == [16, 97.5]
    names = ["norm_p16", "norm_p97.5", "norm_outliers_0.2"]
    assert [name for name in s.to_dict() if name in names] == names
    assert "outliers >0.2" in str(s) and "P97.5" in str(s)
    assert pickle.loads(pickle.dumps(s)) == copy.deepcopy(s) == s
    assert hash(s) == hash(copy.copy(s))
    with pytest.raises(KeyError, match=r"request it with percentiles=\(50,\)"):
        s.norm.percentiles[50]
    with pytest.raises(TypeError):
        s.norm.percentiles[50] = 1.0


@pytest.mark.parametrize("name, value, error", [
    ("percentiles", 101, ValueError), ("percentiles", [5, np.nan], ValueError),
    ("percentiles", "16", TypeError), ("percentiles", [True], TypeError),
    ("percentiles", None, TypeError), ("outliers", -0.1, ValueError),
    ("outliers", np.inf, ValueError), ("outliers", 10**400, ValueError),
])
def test_invalid_requests_are_refused(name, value, error):
    with pytest.raises(error, match=f"^{name} must be .*, not "):
        vostrel.point_statistics([1.0], [1.0], **{name: value})
    with pytest.raises(error, match=f"^{name} must be .*, not "):
        vostrel.Accumulator(**{name: value})


def test_states_with_other_numbers_are_not_merged():
    with pytest.raises(ValueError, match="must have the same percentiles and outliers"):
        vostrel.Accumulator(percentiles=16).merge(vostrel.Accumulator(percentiles=84))
