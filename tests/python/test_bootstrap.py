"""The bootstrap: against the plain loop and SciPy, groups, workers, Ctrl-C and memory."""

import concurrent.futures
import contextlib
import math
import multiprocessing
import subprocess
import sys
import types

import numpy as np
import pandas as pd
import pytest
import vostrel
from astropy.table import Table
from ctrl_c import wait_after_ctrl_c
from data_sets import redshifts, report_numbers, same_bits
from vostrel import _core
from vostrel._groups import read_groups
from vostrel._results import NAMES


@pytest.mark.parametrize("n", [2, 50, 256, 5000, 200_000])
def test_matches_the_plain_loop(n, rng):
    reference, estimate = redshifts(rng, n)
    u = vostrel.bootstrap(reference, estimate, resamples=3, seed=7)
    for k, found in enumerate(u.replicates):
        drawn = _core.resample_indices(7, k, n)
        expected = report_numbers(vostrel.point_statistics(reference[drawn], estimate[drawn]))
        for got, want in zip(found[:, : len(NAMES)], np.reshape(expected, (2, len(NAMES)))):
            assert got[:3] == pytest.approx(want[:3], rel=0, abs=1e-12 * want[2])
            assert same_bits(got[3:], want[3:])


def test_same_bits_for_any_workers(rng):
    data = redshifts(rng, 3000)
    one = vostrel.bootstrap(*data, resamples=300, seed=3)
    for workers in (2, 3, -1):
        many = vostrel.bootstrap(*data, resamples=300, seed=3, workers=workers)
        assert same_bits(one.replicates, many.replicates)
    with concurrent.futures.ThreadPoolExecutor(2) as pool:
        mapped = vostrel.bootstrap(*data, resamples=300, seed=3, workers=pool.map)
    assert same_bits(one.replicates, mapped.replicates)
    assert same_bits(
        one.replicates[:100], vostrel.bootstrap(*data, resamples=100, seed=3).replicates
    )
    drawn = vostrel.bootstrap(*data, resamples=2)
    again = vostrel.bootstrap(*data, resamples=2, seed=drawn.seed)
    assert same_bits(drawn.replicates, again.replicates)


def twice_and_backwards(function, pieces):
    """A map that does each piece two times, the last one first."""
    return [function(piece) for piece in [*pieces, *pieces][::-1]]


@pytest.mark.parametrize(
    "pool",
    [
        lambda: multiprocessing.get_context("spawn").Pool(2),
        lambda: concurrent.futures.ThreadPoolExecutor(2),
        lambda: concurrent.futures.ProcessPoolExecutor(
            2, mp_context=multiprocessing.get_context("spawn")
        ),
        lambda: contextlib.nullcontext(types.SimpleNamespace(map=twice_and_backwards)),
    ],
)
def test_same_bits_for_any_map(rng, pool):
    reference, estimate = redshifts(rng, 500)
    options = {"resamples": 40, "seed": 3, "mask": rng.random(500) < 0.1}
    fields = rng.integers(0, 60, 500)
    with pool() as workers:
        for groups in (None, fields):
            one = vostrel.bootstrap(reference, estimate, groups=groups, **options)
            mapped = vostrel.bootstrap(
                reference, estimate, groups=groups, workers=workers.map, **options
            )
            assert same_bits(one.replicates, mapped.replicates)
            assert one.norm == mapped.norm


@pytest.mark.parametrize(
    "lossy",
    [lambda work, pieces: [], lambda work, pieces: [work(piece) for piece in pieces if piece[0]]],
)
def test_workers_that_lose_pieces(lossy):
    values = np.arange(10.0)
    with pytest.raises(RuntimeError, match="workers lost .* of 100 resamples"):
        vostrel.bootstrap(values, values[::-1], resamples=100, workers=lossy)


def test_same_bits_on_every_machine():
    assert _core.resample_indices(1, 2, 12).tolist() == [0, 1, 1, 2, 3, 4, 5, 7, 7, 8, 10, 10]
    drawn = _core.resample_indices(2**64 - 1, 5, 1_000_000)
    some = drawn[0], drawn[500_000], drawn[-1], drawn.sum()
    assert some == (0, 500280, 999998, 500029801530)


def test_errors_and_intervals_are_those_of_the_replicates(rng):
    reference, estimate = redshifts(rng, 400)
    u = vostrel.bootstrap(reference, estimate, resamples=200, confidence=0.9, seed=1)
    s = vostrel.point_statistics(reference, estimate)
    nmads = np.sort(u.replicates[:, 1, 4])
    assert u.norm.nmad.value == s.norm.nmad
    assert u.norm.nmad.error == pytest.approx(np.std(nmads, ddof=1))
    assert u.norm.nmad.low == pytest.approx(np.percentile(nmads, 5))
    assert u.norm.nmad.high == pytest.approx(np.percentile(nmads, 95))


def test_groups_are_drawn_whole():
    # Residuals 1, 2, 4, 8, 16 in the fields a, b, a, c, b.
    estimate = [-1.0, -2.0, -4.0, -8.0, -16.0]
    fields = ["a", "b", "a", "c", "b"]
    u = vostrel.bootstrap([0.0] * 5, estimate, groups=fields, resamples=30, seed=4)
    for k, replicate in enumerate(u.replicates):
        drawn = [[1, 4], [2, 16], [8]]
        residuals = sum((drawn[g] for g in _core.resample_indices(4, k, 3)), [])
        assert replicate[0, 0] == pytest.approx(np.mean(residuals))
        assert replicate[0, 3] == np.median(residuals)


def test_groups_of_one_are_objects(rng):
    reference, estimate = redshifts(rng, 300)
    one = vostrel.bootstrap(reference, estimate, resamples=20, seed=1)
    other = vostrel.bootstrap(reference, estimate, resamples=20, seed=1,
                              groups=np.arange(300)[:, None])
    assert one.replicates == pytest.approx(other.replicates, abs=1e-11)


@pytest.mark.parametrize("kind", ["few", "many", "text", "objects"])
def test_groups_are_numbered_in_the_order_of_their_labels(rng, kind):
    n = 200_000
    values = rng.integers(0, 500 if kind == "few" else 150_000, n)
    labels = values.astype(str) if kind in ("text", "objects") else values
    labels = labels.astype(object) if kind == "objects" else labels
    sample = _core.Sample([np.zeros(n), np.zeros(n)], [], False)
    numbers, count = read_groups(labels, sample, n)
    names, expected = np.unique(labels, return_inverse=True)
    assert count == len(names)
    assert np.array_equal(numbers, expected)


def test_groups_that_are_refused():
    values = [0.0, 1.0, 2.0]
    for groups, message in (
        (np.ma.array([1, 2, 3], mask=[0, 1, 0]), "missing labels"),
        (np.array(["a", None, "b"], object), "missing labels"),
    ):
        with pytest.raises(ValueError, match=message):
            vostrel.bootstrap(values, values, groups=groups)
    with pytest.raises(ValueError, match="all objects are in one group"):
        vostrel.bootstrap(values, values, groups=[1, 1, 2], mask=[False, False, True])


def test_masks_and_nan(rng):
    reference, estimate = redshifts(rng, 500)
    mask = rng.random(500) < 0.3
    fields = np.arange(500) % 7
    estimate[2] = np.nan
    mask[2] = False
    keep = ~mask & ~np.isnan(estimate)
    clean = vostrel.bootstrap(
        reference[keep], estimate[keep], resamples=10, seed=1, groups=fields[keep]
    )
    u = vostrel.bootstrap(
        reference, estimate, resamples=10, seed=1, groups=fields, mask=mask, nan_policy="omit"
    )
    assert same_bits(u.replicates, clean.replicates)
    assert (u.n, u.n_masked, u.n_nan) == (keep.sum(), mask.sum(), 1)
    with pytest.raises(ValueError, match="have NaN"):
        vostrel.bootstrap(reference, estimate, mask=mask)
    u = vostrel.bootstrap(reference, estimate, resamples=10, mask=mask, nan_policy="propagate")
    assert np.isnan(u.replicates).all() and math.isnan(u.delta.bias.error)


def test_differences_are_paired(rng):
    reference, a = redshifts(rng, 1000)
    b = a + 0.002 * rng.standard_normal(1000)
    d = vostrel.bootstrap_difference(reference, {"A": a, "B": b, "C": a}, resamples=100, seed=5)
    alone = vostrel.bootstrap(reference, a, resamples=100, seed=5)
    assert same_bits(d["A"].replicates, alone.replicates)
    assert same_bits(d["C"].replicates, alone.replicates)
    assert d["A", "C"].norm.nmad == vostrel.Uncertain(0, 0, 0, 0, "t")
    assert d["A", "B"].norm.bias.error < d["A"].norm.bias.error / 10
    assert d["A", "B"].norm.nmad.value == d["A"].norm.nmad.value - d["B"].norm.nmad.value
    with pytest.raises(AttributeError, match="choose two estimates"):
        d.norm
    two = vostrel.bootstrap_difference(reference, {"A": a, "B": b}, resamples=100, seed=5)
    assert two.norm == d["A", "B"].norm
    a[0] = np.nan
    two = vostrel.bootstrap_difference(
        reference, {"A": a, "B": b}, resamples=100, nan_policy="omit"
    )
    assert two["A"].n == two["B"].n == 999


@pytest.mark.parametrize("table", [pd.DataFrame, Table])
def test_differences_of_the_columns_of_a_table(table, rng):
    reference, a = redshifts(rng, 100)
    columns = {"A": a, "B": reference}
    d = vostrel.bootstrap_difference(reference, columns, resamples=20, seed=1)
    found = vostrel.bootstrap_difference(reference, table(columns), resamples=20, seed=1)
    assert same_bits(found["A", "B"].replicates, d["A", "B"].replicates)


def test_progress():
    calls = []
    values = np.arange(10.0)
    vostrel.bootstrap(
        values, values[::-1], resamples=500, workers=2,
        progress=lambda *numbers: calls.append(numbers),
    )
    done = [number for number, _ in calls]
    assert done == sorted(done) and done[-1] == 500
    assert {number for _, number in calls} == {500}


def test_a_bar_is_shown(capsys):
    pytest.importorskip("tqdm")
    values = np.arange(10.0)
    vostrel.bootstrap_difference(
        values, {"A": values[::-1], "B": values}, resamples=50, progress=True
    )
    assert "50/50" in capsys.readouterr().err


def test_an_error_in_progress_ends_the_work():
    def fail(done, resamples):
        raise KeyError("enough")

    with pytest.raises(KeyError):
        vostrel.bootstrap(np.arange(100.0), np.zeros(100), resamples=100_000, progress=fail)


ENDLESS = """
n = 10_000_000
reference = np.linspace(0, 1, n)
estimate = reference + 0.1 * np.sin(1e5 * reference)
"""
TEXT = ENDLESS + """
labels = np.arange(n).astype("U8")
"""


@pytest.mark.parametrize(
    "data, options",
    [
        (ENDLESS, ""),
        (ENDLESS, "workers=2"),
        (ENDLESS, "workers=map"),
        (ENDLESS, "groups=np.arange(n)"),
        (ENDLESS, "interval='bca'"),
        (TEXT, "groups=labels"),
    ],
)
@pytest.mark.parametrize("after", [0.7, 2.5])
def test_ctrl_c(data, options, after):
    call = f"vostrel.bootstrap(reference, estimate, resamples=10**6, {options})"
    wait = wait_after_ctrl_c(data, call, after)
    assert wait < 5  # half a second is the promise; the rest is for a busy machine


MEMORY = """
import resource
import numpy as np
import vostrel
peak = lambda: resource.getrusage(resource.RUSAGE_SELF).ru_maxrss << 10
n = 2_000_000
reference = np.linspace(0, 1, n)
estimate = np.sin(1e5 * reference)
estimate *= 0.1
estimate += reference
vostrel.bootstrap(reference[:1000], estimate[:1000], resamples=2)
before = peak()
vostrel.bootstrap({reference}, estimate, resamples=8, workers={workers})
print((peak() - before) / n)
"""


@pytest.mark.parametrize("workers, reference", [(1, "reference"), (1, "reference[::-1]"),
                                                (2, "reference")])
def test_memory(workers, reference):
    code = MEMORY.format(workers=workers, reference=reference)
    bytes_an_object = float(subprocess.check_output([sys.executable, "-c", code]))
    assert bytes_an_object <= 24 * workers + 1
