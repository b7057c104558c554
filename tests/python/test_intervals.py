"""Intervals from resamples: against SciPy, by hand, and what is said about them."""

import math
import pickle
from statistics import NormalDist

import numpy as np
import pytest
import vostrel
from data_sets import redshifts
from vostrel import _core
from vostrel._intervals import t_quantile, two_quantiles
from vostrel._results import NAMES
from vostrel._tails import are_endless

#: The statistics of residuals in the last axis, as they read.
PLAIN = {
    "bias": lambda r: r.mean(-1),
    "sigma": lambda r: r.std(-1),
    "rms": lambda r: np.sqrt((r**2).mean(-1)),
    "mad": lambda r: np.median(abs(r), -1),
    "nmad": lambda r: 1.4826 * np.median(abs(r), -1),
    "mad_delta": lambda r: np.median(abs(r - np.median(r, -1, keepdims=True)), -1),
    "outliers_015": lambda r: 100 * (abs(r) > 0.15).mean(-1),
    **{
        f"outliers_{k}sigma": lambda r, k=k: 100 * (abs(r) > k * r.std(-1, keepdims=True)).mean(-1)
        for k in (1, 2, 3, 4)
    },
    "median": lambda r: np.median(r, -1),
    "sigma_68": lambda r: np.subtract(*np.percentile(r, (84, 16), axis=-1)) / 2,
    "sigma_iqr": lambda r: np.subtract(*np.percentile(r, (75, 25), axis=-1)) / 1.349,
    "p2.5": lambda r: np.percentile(r, 2.5, axis=-1),
    "outliers_0.1": lambda r: 100 * (abs(r) > 0.1).mean(-1),
}
ASKED = {"percentiles": 2.5, "outliers": 0.1}


@pytest.mark.filterwarnings("ignore:invalid value")
@pytest.mark.parametrize("confidence", [0.3, 0.683, 0.95, 1 - 2**-53])
@pytest.mark.parametrize("count", [2, 3, 41, 1000])
def test_two_quantiles_have_the_bits_of_numpy(rng, count, confidence):
    numbers = rng.standard_cauchy((8, count))
    numbers[1] = 0.1
    numbers[2, 0], numbers[3, 1] = np.inf, np.nan
    numbers[4] = np.round(numbers[4]) + 0.0  # NumPy may take either zero
    ends = [(1 - confidence) / 2, (1 + confidence) / 2]
    expected = np.quantile(numbers, ends, axis=-1)
    assert two_quantiles(numbers, confidence).tobytes() == expected.tobytes()
    assert two_quantiles(numbers[0], confidence).tobytes() == expected[:, 0].tobytes()


@pytest.mark.filterwarnings("ignore:The BCa")
@pytest.mark.parametrize("interval", ["percentile", "basic", "bca"])
def test_matches_scipy(rng, interval):
    pytest.importorskip("scipy", minversion="1.10")  # takes an earlier result from there on
    from scipy import stats

    n = 301
    reference, estimate = np.zeros(n), -0.05 * np.exp(rng.standard_normal(n))
    u = vostrel.bootstrap(
        reference, estimate, interval=interval, resamples=500, confidence=0.9, seed=1, **ASKED
    )
    rows = {row.name: row.value for row in u.delta._rows()}
    for i, (name, plain) in enumerate(PLAIN.items()):
        class Drawn:  # what SciPy takes as an earlier result
            bootstrap_distribution = u.replicates[:, 0, i]

        theirs = stats.bootstrap(
            (-estimate,), lambda r, axis: plain(r), n_resamples=0, bootstrap_result=Drawn,
            confidence_level=0.9, method=interval, vectorized=True,
        ).confidence_interval
        ours = rows[name]
        if math.isnan(theirs.low):  # no resample differs, or all are on one side
            assert ours.method == "percentile" != interval
            continue
        scale = max(abs(ours.low), abs(ours.high))
        assert ours.method == interval
        assert ours.low == pytest.approx(theirs.low, rel=0, abs=1e-12 * scale), name
        assert ours.high == pytest.approx(theirs.high, rel=0, abs=1e-12 * scale), name


def lsst_outlier_rate(e, axis):
    lower, upper = np.percentile(e, (25, 75), axis=axis, keepdims=True)
    return (abs(e) > np.maximum(0.06, 3 * (upper - lower) / 1.349)).mean(axis)


def test_errors_of_the_further_numbers_match_scipy(rng):
    from scipy import stats

    r = 0.05 * rng.standard_t(4, 301)
    u = vostrel.bootstrap(np.zeros(301), -r, resamples=10_000, seed=1, **ASKED)
    found = {row.name: row.value.error for row in u.delta._rows()}
    found["outlier_rate"] = u.lsst.outlier_rate.error
    plain = {name: lambda r, axis, f=f: f(r) for name, f in list(PLAIN.items())[len(NAMES):]}
    for name, function in {**plain, "outlier_rate": lsst_outlier_rate}.items():
        theirs = stats.bootstrap((r,), function, n_resamples=10_000, batch=1000, vectorized=True,
                                 method="percentile").standard_error
        assert found[name] == pytest.approx(theirs, rel=0.05), name


def test_studentized_matches_its_definition(rng):
    reference, estimate = np.zeros(80), rng.standard_normal(80)
    r = reference - estimate
    u = vostrel.bootstrap(reference, estimate, resamples=200, confidence=0.9, seed=2)

    def log_error(r):
        squares = (r - r.mean()) ** 2
        return squares.std() / math.sqrt(len(r)) / (2 * squares.mean())

    drawn = [r[_core.resample_indices(2, k, 80)] for k in range(200)]
    ratios = [math.log(some.std() / r.std()) / log_error(some) for some in drawn]
    lower, upper = np.quantile(ratios, [0.05, 0.95])
    assert u.delta.sigma.method == "studentized"
    assert u.delta.sigma.low == pytest.approx(r.std() * math.exp(-upper * log_error(r)))
    assert u.delta.sigma.high == pytest.approx(r.std() * math.exp(-lower * log_error(r)))
    # What follows sigma is studentized; the rest is not.
    logs = np.array([math.log(some.std() / r.std()) for some in drawn])
    beyond = u.delta.outliers_1sigma
    moved = u.replicates[:, 0, NAMES.index("outliers_1sigma")] - beyond.value
    slope = np.polyfit(logs, moved, 1)[0]
    moved = -slope * np.array(ratios) * log_error(r) + (moved - slope * logs)
    assert beyond.method == "studentized"
    assert beyond.low == pytest.approx(beyond.value + np.quantile(moved, 0.05))
    assert beyond.high == pytest.approx(beyond.value + np.quantile(moved, 0.95))
    everything = vostrel.bootstrap(
        reference, estimate, resamples=200, confidence=0.9, seed=2, interval="studentized"
    )
    ratios = [(some.mean() - r.mean()) / some.std() for some in drawn]
    assert everything.delta.bias.low == pytest.approx(
        r.mean() - np.quantile(ratios, 0.95) * r.std()
    )
    assert everything.delta.nmad.method == "percentile"


def test_fractions():
    # 100 residuals, none beyond 4 sigma: Wilson's interval of 0 of 100 ends at q^2 / (n + q^2).
    r = np.linspace(-1, 1, 100)
    u = vostrel.bootstrap(r, np.zeros(100), confidence=0.95, seed=1)
    q = 1.959963984540054
    beyond = u.delta.outliers_4sigma
    assert (beyond.method, beyond.low, beyond.reliable) == ("wilson", 0, False)
    assert beyond.high == pytest.approx(100 * q * q / (100 + q * q))
    # The same if some resamples have an object beyond, because their sigma is smaller.
    r[0] = 2.5
    assert 3.9 < r[0] / r.std() < 4
    u = vostrel.bootstrap(r, np.zeros(100), confidence=0.95, seed=1)
    assert u.delta.outliers_4sigma.high == beyond.high
    assert u.replicates[:, 0, NAMES.index("outliers_4sigma")].any()
    # The scatter of a fraction implies a number of objects: at most n beyond a fixed bound, more
    # beyond 2 sigma, which moves with the fraction. 12 of 100 are beyond both.
    r[:12] = np.linspace(4, 5, 12)
    u = vostrel.bootstrap(r * 0.05, np.zeros(100), confidence=0.95, seed=3)
    for name, most in ("outliers_015", 100), ("outliers_2sigma", math.inf):
        beyond = getattr(u.delta, name)
        scatter = u.replicates[:, 0, NAMES.index(name)].std(ddof=1) / 100
        implied = 0.12 * 0.88 / scatter**2
        assert (beyond.value, beyond.method) == (12, "wilson") and implied > 100
        n = min(implied, most)
        middle, half = 0.12 + q * q / (2 * n), q * math.sqrt(0.1056 / n + q * q / (4 * n * n))
        assert beyond.low == pytest.approx(100 * (middle - half) / (1 + q * q / n))
        assert beyond.high == pytest.approx(100 * (middle + half) / (1 + q * q / n))
    assert u.delta.outliers_015.reliable


def test_student_t():
    # Quantiles of the textbooks.
    assert t_quantile(0.95, 1) == pytest.approx(12.706, abs=5e-4)
    assert t_quantile(0.95, 2) == pytest.approx(4.303, abs=5e-4)
    assert t_quantile(0.9, 9) == pytest.approx(1.833, abs=5e-4)
    assert t_quantile(0.99, 2000) == pytest.approx(2.578, abs=5e-4)
    residuals = np.arange(40.0)
    objects = vostrel.bootstrap(residuals[:10] - 3, np.zeros(10), confidence=0.9, seed=1).delta
    for number, value in (objects.bias, 1.5), (objects.mad_delta, 2.5):
        assert (number.value, number.method) == (value, "t")
        assert number.high == pytest.approx(value + 1.833113 * math.sqrt(10 / 9) * number.error)


def test_groups(rng):
    # Some groups are far off, so the resamples are skew. Hall's cubic of the distance from each
    # end to the value, over the error, is the quantile of Student's t of 19 degrees.
    residuals = 0.1 * rng.standard_normal(400)
    residuals[:80] += 0.3
    u = vostrel.bootstrap(
        residuals, np.zeros(400), groups=np.arange(400) // 20, confidence=0.9, seed=1
    )
    for name in ("bias", "nmad", "mad_delta", "outliers_015", "outliers_1sigma"):
        number, drawn = getattr(u.delta, name), u.replicates[:, 0, NAMES.index(name)]
        assert number.method == "hall"
        assert number.error == pytest.approx(drawn.std(ddof=1))
        skewness = ((drawn - drawn.mean()) ** 3).mean() / drawn.var() ** 1.5
        quantile, factor = (1.644854, 1) if name == "outliers_1sigma" else (1.729133, 20 / 19)
        for end, sign in (number.low, 1), (number.high, -1):
            t = (number.value - end) / (number.error * math.sqrt(factor))
            cubic = t + skewness * t**2 / 3 + skewness**2 * t**3 / 27 + skewness / 6
            limits = 0, 100, drawn.min(), drawn.max()
            assert end in limits or cubic == pytest.approx(sign * quantile), name
    bias = u.delta.bias
    assert bias.high - bias.value > 1.2 * (bias.value - bias.low)
    assert u.delta.sigma.method == "studentized" and u.delta.outliers_3sigma.method == "wilson"
    # One group so far off makes the cubic flat. The end is that of all resamples.
    residuals[:20] += 9
    one = vostrel.bootstrap(
        residuals, np.zeros(400), groups=np.arange(400) // 20, confidence=0.9, seed=1
    )
    assert one.delta.bias.high == one.replicates[:, 0, 0].max()
    # In small groups, few objects decide how skew a median is.
    small = vostrel.bootstrap(residuals, np.zeros(400), groups=np.arange(400) // 9, seed=1).delta
    assert (small.nmad.method, small.bias.method) == ("t", "hall")


@pytest.mark.parametrize("grid", [1.0, 0.5, 0.1])
def test_no_interval_without_width(rng, grid):
    estimate = np.round(rng.standard_normal(400), 0) * grid
    u = vostrel.bootstrap(np.zeros(400), estimate, resamples=100, seed=1)
    for name in NAMES:
        if np.ptp(u.replicates[:, 0, NAMES.index(name)]) == 0:
            assert not getattr(u.delta, name).reliable
        assert getattr(u.delta, name).low < getattr(u.delta, name).high
    # The median of |r| is the grid's; the truth may be nearer to its neighbours.
    assert (u.delta.mad.low, u.delta.mad.high) == (0.5 * grid, 1.5 * grid)
    alone = vostrel.bootstrap([0.0], [0.1], resamples=10, seed=1)
    assert math.isnan(alone.delta.mad.error) and math.isnan(alone.delta.mad.low)
    equal = vostrel.bootstrap(np.zeros(9), np.full(9, 0.125), resamples=10, seed=1)
    assert equal.delta.mad.low == equal.delta.mad.high == 0.125


def test_unreliable_intervals_are_marked(rng):
    ordinary = rng.standard_normal(1000)
    one_far = ordinary.copy()
    one_far[0] = 50
    labels = np.arange(1000) % 29
    plain, far, grouped = (
        vostrel.bootstrap(r, np.zeros(1000), resamples=100, seed=1, groups=groups).delta
        for r, groups in ((ordinary, None), (one_far, None), (ordinary, labels))
    )
    assert plain.sigma.reliable and plain.rms.reliable and plain.outliers_2sigma.reliable
    assert not far.sigma.reliable and not far.rms.reliable and not far.outliers_2sigma.reliable
    assert far.bias.reliable and far.nmad.reliable
    assert grouped.bias.reliable and not grouped.sigma.reliable
    assert plain.outliers_015.reliable and not plain.outliers_4sigma.reliable


def evenly(quantile):
    """1,000 residuals at the quantiles of a distribution, whose abs(r) has this quantile."""
    half = np.array([quantile((k + 0.5) / 500) for k in range(500)])
    return np.concatenate([-half, half])


def test_tails_without_end():
    # Student's t has a fourth moment from 5 degrees on. Outliers that are normal have one.
    endless = evenly(lambda p: t_quantile(p, 3))
    outliers = evenly(lambda p: NormalDist().inv_cdf((1 + p) / 2))
    outliers[::20] *= 5
    assert are_endless(endless) and are_endless(5 + 0.001 * endless)
    assert not are_endless(outliers)
    assert not are_endless(evenly(lambda p: t_quantile(p, 5)))
    assert not are_endless(evenly(lambda p: -math.log(1 - p)))  # Laplace
    # Enough objects make up the fourth moment, whatever the rest looks like.
    assert not are_endless(np.tile(np.clip(endless, -9, 9), 4))
    assert not are_endless(np.zeros(9)) and not are_endless(np.array([0.0, np.inf]))
    u = vostrel.bootstrap(np.zeros(1000), -endless, resamples=50, seed=1).delta
    assert not u.sigma.reliable and not u.outliers_1sigma.reliable
    assert u.nmad.reliable and u.outliers_015.reliable


def test_differences_have_width_too(rng):
    reference, a = redshifts(rng, 300)
    b = a + 0.001 * rng.standard_normal(300)
    d = vostrel.bootstrap_difference(reference, {"A": a, "B": b}, resamples=50, seed=1)
    for name in NAMES:
        assert getattr(d.norm, name).low < getattr(d.norm, name).high
    sigma = d.norm.sigma
    assert sigma.method == "t"
    half = t_quantile(0.683, 299) * math.sqrt(300 / 299) * sigma.error
    assert (sigma.low, sigma.high) == pytest.approx((sigma.value - half, sigma.value + half))
    grouped = vostrel.bootstrap_difference(
        reference, {"A": a, "B": a + 1}, resamples=50, seed=1, groups=np.arange(300) % 9
    )
    assert grouped.norm.nmad.low < grouped.norm.nmad.value < grouped.norm.nmad.high < 0
    again = pickle.loads(pickle.dumps(d))
    assert again.norm == d.norm
    for interval in ("percentile", "basic", "bca", "studentized"):
        other = vostrel.bootstrap_difference(
            reference, {"A": a, "B": b}, resamples=50, seed=1, interval=interval
        )
        assert other.interval == interval
        assert other.norm.nmad.error == d.norm.nmad.error


def test_nan_in_one_of_two_estimates(rng):
    reference, a = redshifts(rng, 100)
    b = a.copy()
    b[3] = np.nan
    d = vostrel.bootstrap_difference(
        reference, {"A": a, "B": b}, resamples=20, seed=1, nan_policy="propagate"
    )
    alone = vostrel.bootstrap(reference, a, resamples=20, seed=1)
    assert d["A"].norm == alone.norm
    for part in (d["B"].norm.nmad, d.norm.nmad, d.delta.bias):
        assert math.isnan(part.value) and math.isnan(part.error) and math.isnan(part.low)
        assert not part.reliable
