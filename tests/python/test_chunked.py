"""Statistics of chunks: the same bits however the objects are cut, ordered and shared."""

import math
import pickle
import subprocess
import sys
import threading
import time
from fractions import Fraction

import numpy as np
import pytest
import vostrel
from ctrl_c import wait_after_ctrl_c
from data_sets import LONG, numbers, same_bits
from scale_sets import SETS, cut, redshifts, scale_sets, shares, ways_to_cut

MOMENTS = ("bias", "sigma", "rms")
AS_IN_MEMORY = ("mad", "nmad", "mad_delta", "outliers_015")


def by_workers(chunks, workers):
    """The statistics by states that are pickled, sent to workers and merged."""
    passes = vostrel.Accumulator()
    while passes.needs_another_pass:
        start = pickle.dumps(passes.fresh())
        merged = passes.fresh()
        for share in shares(chunks, workers):
            part = pickle.loads(start)
            for chunk in share:
                part.add(*chunk)
            merged.merge(pickle.loads(pickle.dumps(part)))
        passes = merged  # it has the results of all earlier passes
        passes.end_pass()
    return passes.result()


@pytest.fixture
def small_parts(monkeypatch):
    """Workers share a chunk in parts of 500 objects."""
    monkeypatch.setattr(vostrel._chunked, "PART", 500)


def test_result_independent_of_chunking(rng, small_parts):
    for number, columns in enumerate(scale_sets(rng, SETS)):
        expected = None
        for way, chunks in ways_to_cut(rng, columns):
            if len(chunks) == 1000 and number % 4 > 0 and not LONG:  # takes as long as all others
                continue
            found = numbers(vostrel.chunked_statistics(chunks))
            expected = found if expected is None else expected
            assert same_bits(found, expected), (way, columns)
        for workers in (1, 4):
            assert same_bits(numbers(by_workers(cut(columns, 7), workers)), expected), columns
        for workers in (2, 3, -1):
            for parts in (1, 7):
                found = vostrel.chunked_statistics(
                    lambda: iter(cut(columns, parts)), workers=workers
                )
                assert same_bits(numbers(found), expected), (workers, parts, columns)


def test_order_statistics_have_the_bits_of_the_function_in_memory(rng):
    for reference, estimate in scale_sets(rng, SETS):
        with np.errstate(all="ignore"):
            residual = reference - estimate
            residuals = {"delta": residual, "norm": residual / (1 + reference)}
            medians = {part: np.median(values) for part, values in residuals.items()}
        chunked = vostrel.chunked_statistics(cut((reference, estimate), 5))
        in_memory = vostrel.point_statistics(reference, estimate)
        for part, values in residuals.items():
            if np.isnan(values).any():
                assert math.isnan(getattr(chunked, part).mad)
                continue
            for name in AS_IN_MEMORY:
                if name == "mad_delta" and not np.isfinite(medians[part]):
                    assert math.isnan(getattr(chunked, part).mad_delta)
                    continue
                assert same_bits(
                    getattr(getattr(chunked, part), name), getattr(getattr(in_memory, part), name)
                ), (part, name)


def test_moments_are_near_those_of_the_function_in_memory(rng):
    columns = redshifts(rng, 300_000)
    chunked = vostrel.chunked_statistics(cut(columns, 5))
    in_memory = vostrel.point_statistics(*columns)
    for part in ("delta", "norm"):
        for name in MOMENTS:
            # The bias is small compared with the residuals that are summed.
            assert getattr(getattr(chunked, part), name) == pytest.approx(
                getattr(getattr(in_memory, part), name), rel=1e-12, abs=1e-13
            )


def test_against_exact_rational_numbers(rng):
    for _ in range(30):
        n = int(rng.integers(1, 60))
        residual = np.round(rng.standard_normal(n), 3) * 10.0 ** rng.integers(-12, 12, n)
        s = vostrel.chunked_statistics(cut((residual, np.zeros(n)), 3)).delta

        def total(values):
            return float(sum(map(Fraction, values.tolist())))  # rounds once

        assert s.bias == total(residual) / n
        assert s.rms == math.sqrt(total(residual**2) / n)
        assert s.sigma == math.sqrt(total((residual - s.bias) ** 2) / n)
        absolute = sorted(abs(Fraction(r)) for r in residual.tolist())
        assert s.mad == float((absolute[(n - 1) // 2] + absolute[n // 2]) / 2)
        for name, bound in (("015", 0.15), ("1sigma", s.sigma), ("3sigma", 3 * s.sigma)):
            beyond = sum(r > Fraction(bound) for r in absolute)
            assert getattr(s, f"outliers_{name}") == beyond / n * 100


def test_against_fsum(rng):
    n = 400_000
    residual = rng.standard_normal(n) * 10.0 ** rng.integers(-8, 8, n)
    s = vostrel.chunked_statistics(cut((residual, np.zeros(n)), 64)).delta
    assert s.bias == math.fsum(residual) / n
    assert s.rms == math.sqrt(math.fsum(residual**2) / n)
    assert s.sigma == math.sqrt(math.fsum((residual - s.bias) ** 2) / n)


def test_masks_and_nan_are_counted(rng, small_parts):
    reference, estimate = redshifts(rng, 20_000)
    mask = rng.random(20_000) < 0.2
    estimate[rng.random(20_000) < 0.1] = np.nan
    chunks = cut((reference, estimate, mask), 7)
    s = vostrel.chunked_statistics(chunks, nan_policy="omit")
    kept = ~mask & ~np.isnan(estimate)
    n_nan = (np.isnan(estimate) & ~mask).sum()
    assert (s.n, s.n_masked, s.n_nan) == (kept.sum(), mask.sum(), n_nan)
    assert s.norm == vostrel.chunked_statistics([(reference[kept], estimate[kept])]).norm
    assert vostrel.chunked_statistics(chunks, nan_policy="omit", workers=3) == s
    lists = [(z.tolist(), *others) for z, *others in chunks]
    assert vostrel.chunked_statistics(lists, nan_policy="omit", workers=3) == s

    passes = vostrel.Accumulator(nan_policy="omit")
    while passes.needs_another_pass:
        for chunk in chunks:
            part = passes.fresh()
            part.add(*chunk)
            passes.merge(part)
        passes.end_pass()
    assert passes.result() == s


def test_nan_is_refused_and_counted():
    masked = ([1.0, np.nan], [1.0, 1.0], [False, True])
    chunks = [([1.0, np.nan], [1.0, 1.0]), ([1.0], [np.nan]), masked]
    with pytest.raises(ValueError, match="2 of 4 objects have NaN .*at index 1"):
        vostrel.chunked_statistics(chunks)


def test_nan_is_named_by_its_index_in_the_chunk(small_parts):
    values = np.zeros(2000)
    values[[700, 1300]] = np.nan
    for workers in (1, 2):
        with pytest.raises(ValueError, match=r"\(in a chunk: 2 in estimate, .* at index 700\)"):
            vostrel.chunked_statistics([(np.zeros(2000), values)], workers=workers)


def test_workers_share_a_chunk(monkeypatch, small_parts):
    together = threading.Barrier(2)  # two threads pass it at the same time
    add = vostrel.Accumulator._add

    def wait_and_add(*arguments):
        together.wait(timeout=60)
        add(*arguments)

    monkeypatch.setattr(vostrel.Accumulator, "_add", wait_and_add)
    vostrel.chunked_statistics([(np.zeros(1000), np.zeros(1000))], workers=2)


@pytest.mark.parametrize(
    "chunks", [[], [([], [])], [([1.0], [1.0], [True])], lambda: iter(())], ids=str
)
def test_no_objects(chunks):
    with pytest.raises(ValueError, match="no objects"):
        vostrel.chunked_statistics(chunks)


def test_a_function_must_return_new_chunks(rng):
    columns = redshifts(rng, 20_000)
    generator = (lambda: (chunk for chunk in cut(columns, 3)))
    assert vostrel.chunked_statistics(generator) == vostrel.chunked_statistics([columns])


# Each keeps the number of objects.
CHANGES = {
    "a value": lambda z, p, by: [(z, np.where(by == by[7], p + 1e-14, p), by)],
    "NaN": lambda z, p, by: [(z, np.where(by == by[7], np.nan, p), by)],
    "two estimates swapped": lambda z, p, by: [(z, p[[1, 0, *range(2, len(p))]], by)],
    "a chunk twice": lambda z, p, by: [
        (z[:9], p[:9], by[:9]), (z[:9], p[:9], by[:9]), (z[18:], p[18:], by[18:])
    ],
    "the mask": lambda z, p, by: [(z[:1], p[:1], by[:1]), (z, p, by, by == by[1])],
}


@pytest.mark.parametrize("change", CHANGES)
def test_data_that_change_between_passes_are_refused(rng, change):
    columns = *redshifts(rng, 20_000), np.arange(20_000.0)
    other = CHANGES[change](*columns)
    assert sum(len(z) - sum(map(np.sum, mask)) for z, _, _, *mask in other) == 20_000
    passes = iter([[columns], other])
    with pytest.raises(ValueError, match="the data changed between passes"):
        vostrel.chunked_binned_statistics(lambda: next(passes), bins=[0, 19_000, 19_900])
    passes = iter([[columns[:2]], [(z, p, *mask) for z, p, _, *mask in other]])
    with pytest.raises(ValueError, match="the data changed between passes"):
        vostrel.chunked_statistics(lambda: next(passes))


def test_bins_whose_quantity_changes_between_passes_are_refused(rng):
    z, p = redshifts(rng, 20_000)
    z[:2] = 0.5  # so a swap of their bins keeps the pairs of by and z, and those of z and p
    by = np.arange(20_000.0)
    for other in (by[::-1], by[[1, 0, *range(2, 20_000)]]):
        passes = iter([[(z, p, by)], [(z, p, other)]])
        with pytest.raises(ValueError, match="the data changed between passes"):
            vostrel.chunked_binned_statistics(lambda: next(passes), bins=[0, 20_000])


@pytest.mark.parametrize("workers", [1, 2, 5])
def test_progress_is_reported(rng, workers, small_parts):
    calls = []
    chunks = cut(redshifts(rng, 20_000), 3)
    vostrel.chunked_statistics(chunks, workers=workers, progress=lambda *now: calls.append(now))
    assert len(calls) >= 6
    assert calls == [(1, 3), (2, 3), (3, 3)] * (len(calls) // 3)
    calls.clear()
    vostrel.chunked_statistics(lambda: iter(chunks), progress=lambda *now: calls.append(now))
    assert calls[:6] == [(1, None), (2, None), (3, None), (1, 3), (2, 3), (3, 3)]


# Takes a minute or more.
LARGE = (np.broadcast_to(np.zeros(1), 40_000_000_000),) * 2
BROKEN = {
    "generator": (lambda: (LARGE if i == 0 else 1 // 0 for i in range(3)), ZeroDivisionError),
    "chunk": ([LARGE, ([1.0], [1.0, 2.0])], ValueError),
    "progress": ([(np.zeros(100_000),) * 2, LARGE], ZeroDivisionError),
}


@pytest.mark.parametrize("broken", BROKEN)
def test_an_exception_ends_all_workers(broken):
    chunks, error = BROKEN[broken]
    threads = threading.enumerate()
    start = time.monotonic()
    with pytest.raises(error):
        vostrel.chunked_statistics(chunks, workers=2, progress=lambda done, total: 1 // 0)
    with pytest.raises(error):
        vostrel.chunked_binned_statistics(
            chunks, bins=[-1, 1], workers=2, progress=lambda done, total: 1 // 0
        )
    assert time.monotonic() - start < 5
    assert threading.enumerate() == threads


@pytest.mark.parametrize(
    "chunks",
    ["[(large, large)] * 3", "lambda: ((large, large) if i else time.sleep(60) for i in (1, 0))"],
    ids=["they add", "a chunk is read"],
)
def test_ctrl_c_ends_all_workers(chunks):
    data = f"import time\nlarge = np.broadcast_to(np.zeros(1), {len(LARGE[0])})\nchunks = {chunks}"
    call = "vostrel.chunked_statistics(chunks, workers=2)"
    assert wait_after_ctrl_c(data, call, after=0.3) < 0.5  # a thread would keep the process


@pytest.mark.parametrize(
    "workers, error", [(0, ValueError), (-2, ValueError), (1.5, TypeError), (map, TypeError)]
)
def test_workers_are_a_number_of_threads(workers, error):
    for call in (
        lambda: vostrel.chunked_statistics([([1.0], [1.0])], workers=workers),
        lambda: vostrel.chunked_binned_statistics([([1.0], [1.0])], bins=[0, 2], workers=workers),
    ):
        with pytest.raises(error, match="workers must be"):
            call()


def test_a_bar_is_shown(rng, capsys):
    pytest.importorskip("tqdm")
    vostrel.chunked_statistics(cut(redshifts(rng, 20_000), 3), progress=True)
    shown = capsys.readouterr().err
    assert "pass 1" in shown and "pass 2" in shown and "3/3" in shown


def test_a_state_is_small(rng):
    passes = vostrel.Accumulator()
    while passes.needs_another_pass:
        passes.add(*redshifts(np.random.default_rng(1), 1_000_000))
        assert len(pickle.dumps(passes)) < 4e6
        passes.end_pass()


def test_a_pickle_of_another_version_is_refused(monkeypatch):
    monkeypatch.setattr(vostrel._accumulator, "PICKLE_VERSION", 99)
    pickled = pickle.dumps(vostrel.Accumulator())
    monkeypatch.undo()
    with pytest.raises(ValueError, match="version 99, and this release of vostrel reads version 3"):
        pickle.loads(pickled)


def test_a_damaged_state_is_refused(rng):
    passes = vostrel.Accumulator()
    passes.add([0.5, 1.0, np.nan], [0.4, 1.1, 1.0], [False, True, False])
    state = passes.__getstate__()
    vostrel.Accumulator().__setstate__(state)
    flips = [(i, 1 << bit) for i in range(len(state)) for bit in range(8)]
    if LONG:
        flips += zip(*rng.integers([[0], [1]], [[len(state)], [256]], (2, 1_000_000)).tolist())
    damaged = (state[:i] + bytes([state[i] ^ flip]) + state[i + 1 :] for i, flip in flips)
    for one in (state[:-1], state[1:], state + b"\0", state[:32], b"", {"version": 1}, *damaged):
        with pytest.raises(ValueError, match="its bytes were changed"):
            vostrel.Accumulator().__setstate__(one)


def test_misuse_of_a_state_is_refused(rng):
    columns = redshifts(rng, 20_000)
    passes = vostrel.Accumulator()
    early = passes.fresh()
    with pytest.raises(RuntimeError, match="another pass is needed"):
        passes.result()
    with pytest.raises(ValueError, match="itself"):
        passes.merge(passes)
    with pytest.raises(ValueError, match="one nan_policy, not 'raise' and 'omit'"):
        passes.merge(vostrel.Accumulator(nan_policy="omit"))
    with pytest.raises(TypeError, match="Accumulator can't be merged with int"):
        passes.merge(5)
    passes.add(*columns)
    passes.end_pass()
    with pytest.raises(ValueError):
        passes.merge(early)
    with pytest.raises(ValueError, match="this pass had 0 objects"):
        passes.end_pass()
    while passes.needs_another_pass:
        passes.add(*columns)
        passes.end_pass()
    for call in (passes.end_pass, lambda: passes.add(*columns), lambda: passes.merge(early)):
        with pytest.raises(RuntimeError, match="no further pass is needed"):
            call()


def test_threads_share_a_state(rng):
    columns = redshifts(rng, 200_000)
    passes = vostrel.Accumulator()

    def work(chunks):
        for chunk in chunks:
            passes.add(*chunk)

    while passes.needs_another_pass:
        threads = [
            threading.Thread(target=work, args=(share,)) for share in shares(cut(columns, 64), 4)
        ]
        for thread in threads:
            thread.start()
        for thread in threads:
            thread.join()
        passes.end_pass()
    assert passes.result() == vostrel.chunked_statistics([columns])


def test_bins_independent_of_chunking(rng, small_parts):
    edges = [0, 0.2, 0.5, 0.5 + 1e-9, 3]
    for i in range(100 if LONG else 10):
        reference, estimate = redshifts(rng, int(rng.integers(1, 60_000)))
        estimate[rng.random(len(estimate)) < 0.01] = np.nan
        by = rng.choice([-1, np.nan, 0.5, 3, 4], len(estimate)) if i % 2 else reference
        columns = (reference, estimate, by)
        in_memory = vostrel.binned_statistics(
            reference, estimate, by=by, bins=edges, nan_policy="omit"
        )
        expected = None
        for way, chunks in ways_to_cut(rng, columns):
            workers = 1 + len(chunks) % 3
            b = vostrel.chunked_binned_statistics(
                chunks, bins=edges, nan_policy="omit", workers=workers
            )
            found = [numbers(part) for part in b]
            expected = found if expected is None else expected
            assert same_bits(found, expected), way
            for name in ("edges", "counts", "nan_counts"):
                assert np.array_equal(getattr(b, name), getattr(in_memory, name)), name
            for name in ("n_masked", "n_nan", "n_outside"):
                assert getattr(b, name) == getattr(in_memory, name), name
        for name in AS_IN_MEMORY:
            assert same_bits(getattr(b.norm, name), getattr(in_memory.norm, name))
        part = 1
        inside = (by >= edges[part]) & (by < edges[part + 1])
        if inside.any():
            alone = vostrel.chunked_statistics(
                [(reference[inside], estimate[inside])], nan_policy="omit"
            )
            assert (b[part].delta, b[part].norm) == (alone.delta, alone.norm)


def test_bins_of_equal_width(rng):
    columns = redshifts(rng, 1000)
    chunked = vostrel.chunked_binned_statistics([columns], bins=5, range=(0, 2))
    in_memory = vostrel.binned_statistics(*columns, bins=5, range=(0, 2))
    assert np.array_equal(chunked.edges, in_memory.edges)


def test_bins_that_depend_on_the_data_are_refused():
    for bins in (10, ("count", 5)):
        with pytest.raises(ValueError, match="chunks need fixed bins"):
            vostrel.chunked_binned_statistics([([1.0], [1.0])], bins=bins)


def test_a_binned_chunk_has_its_own_form():
    chunk = ([1.0], [1.0], None, [False])
    assert vostrel.chunked_binned_statistics([chunk], bins=[0, 2]).counts.tolist() == [1]
    with pytest.raises(TypeError, match=r"\(reference, estimate\[, by, mask\]\), not"):
        vostrel.chunked_binned_statistics([5], bins=[0, 2])


@pytest.mark.parametrize("module, needed", [("dask", "dask"), ("mpi", "mpi4py")])
def test_an_engine_is_imported_when_it_is_used(module, needed):
    script = (
        "import sys, vostrel\n"
        f"assert not {{'dask', 'distributed', 'mpi4py', 'tqdm'}} & set(sys.modules)\n"
        f"sys.modules['{needed}'] = None\n"
        "try:\n"
        f"    vostrel.{module}\n"
        "except ImportError as error:\n"
        "    print(error)\n"
    )
    printed = subprocess.run(
        [sys.executable, "-c", script], capture_output=True, text=True, check=True
    ).stdout
    assert printed == f"vostrel.{module} needs {needed}, which is not installed\n"
