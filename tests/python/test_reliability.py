"""Leaks, Ctrl-C, threads and memory."""

import mmap
import multiprocessing
import os
import resource
import signal
import subprocess
import sys
import threading
import time
from contextlib import suppress
from functools import partial

import numpy as np
import pytest
import vostrel
from ctrl_c import wait_after_ctrl_c
from data_sets import LONG, numbers, redshifts, same_bits
from producers import Arrow, ArrowChunks


def resident():
    """Bytes of memory in use by this process."""
    with open("/proc/self/statm", encoding="ascii") as stream:
        return int(stream.read().split()[1]) * resource.getpagesize()


def test_nothing_leaks_in_ten_thousand_calls():
    reference, estimate = np.linspace(0, 3, 200), np.linspace(0, 2, 200)
    masked = np.ma.array(reference.astype(np.float32), mask=reference > 2)

    def call():
        vostrel.point_statistics(masked, estimate)
        vostrel.binned_statistics(reference, estimate, bins=("count", 3))
        vostrel.lsst_metrics(reference, estimate)
        for broken in ([1.0], estimate * np.nan):
            with pytest.raises(ValueError):
                vostrel.point_statistics(reference, broken)

    for _ in range(500):
        call()
    before = resident()
    references = sys.getrefcount(reference), sys.getrefcount(masked)
    for _ in range(10_000):
        call()
    assert (sys.getrefcount(reference), sys.getrefcount(masked)) == references
    assert resident() - before < 1 << 21


def test_ctrl_c_ends_a_long_call():
    wait_after_ctrl_c(
        "reference = np.broadcast_to(np.zeros(1), 40_000_000_000)",
        "vostrel.point_statistics(reference, reference)",
        after=0.3,
    )


def longest_wait(call, enough=1.5):
    """The longest time between two moments at which Ctrl-C would end the call.

    In seconds of this process's CPU time: other work on the machine doesn't count. A call
    that lasts `enough` is ended by Ctrl-C, and the time until it has ended counts, too.
    """
    moments = [time.process_time()]
    is_over = threading.Event()

    def note(*_):
        moments.append(time.process_time())
        if moments[-1] - moments[0] > enough and not is_over.is_set():
            is_over.set()
            raise KeyboardInterrupt

    def press():
        while not is_over.wait(0.01):
            os.kill(os.getpid(), signal.SIGINT)

    before = signal.signal(signal.SIGINT, note)
    keyboard = threading.Thread(target=press)
    keyboard.start()
    try:
        try:
            call()
        finally:
            is_over.set()
            moments.append(time.process_time())
            keyboard.join()
    except (KeyboardInterrupt, ValueError):  # ValueError: NaN is refused
        pass
    finally:
        signal.signal(signal.SIGINT, before)
    return max(np.diff(moments))


class Inputs:
    """What the calls below take: columns in every form, and labels."""

    def __init__(self, n):
        rng = np.random.default_rng(1)
        self.n = n
        self.z, self.p = redshifts(rng, n)
        self.mask = rng.random(n) < 0.1
        self.nan = np.where(self.mask, np.nan, self.p)
        self.infinite = np.where(self.z > 0.01, np.inf, self.z)
        self.by = rng.random(n)
        self.zero = np.zeros(n)
        self.half_gone = np.ma.array(self.z, mask=self.mask)
        self.big_endian = self.z.astype(">f4")
        self.matrix = np.stack([self.z, self.p], 1)

    def list(self):
        return [0.5] * self.n

    def arrow(self):
        return Arrow("g", self.p, valid=~self.mask)

    def arrow_chunks(self):
        return ArrowChunks([Arrow("g", part) for part in np.array_split(self.p, 9)])

    def text(self, number):
        return (np.arange(self.n) % number).astype("U8")


def bootstrapped(inputs, **options):
    return vostrel.bootstrap(inputs.z, inputs.p, resamples=3, **options)


def compared(inputs, **options):
    estimates = {"A": inputs.p, "B": inputs.by, "C": inputs.zero}
    return vostrel.bootstrap_difference(inputs.z, estimates, resamples=3, **options)


def binned(inputs, **options):
    return vostrel.binned_statistics(inputs.z, inputs.p, **options)


MANY = {"percentiles": np.linspace(0, 100, 101), "outliers": [0.1, 0.2]}
EDGES = {"bins": 20, "range": (0, 2)}

# Every function, and every option and kind of input that has work of its own. Each makes its
# inputs, and returns the call.
INTERRUPTED = {
    "point_statistics": lambda i: partial(vostrel.point_statistics, i.z, i.p, **MANY),
    "a mask": lambda i: partial(vostrel.point_statistics, i.z, i.p, mask=i.mask),
    "omit": lambda i: partial(vostrel.point_statistics, i.z, i.nan, nan_policy="omit"),
    "propagate": lambda i: partial(vostrel.point_statistics, i.z, i.nan, nan_policy="propagate"),
    "NaN is refused": lambda i: partial(vostrel.point_statistics, i.z, i.nan),
    "infinite medians": lambda i: partial(vostrel.point_statistics, i.infinite, i.p),
    "one value": lambda i: partial(vostrel.point_statistics, i.zero, i.zero),
    "a masked array": lambda i: partial(vostrel.point_statistics, i.half_gone, i.p),
    "other numbers": lambda i: partial(vostrel.point_statistics, i.big_endian, i.matrix[:, 1]),
    "lists": lambda i: partial(vostrel.point_statistics, i.list(), i.p, mask=[False] * i.n),
    "Arrow": lambda i: partial(vostrel.point_statistics, i.z, i.arrow()),
    "Arrow chunks": lambda i: partial(vostrel.point_statistics, i.z, i.arrow_chunks()),
    "lsst_metrics": lambda i: partial(vostrel.lsst_metrics, i.z, i.p),
    "lsst_metrics omit": lambda i: partial(
        vostrel.lsst_metrics, i.z, i.nan, mask=i.mask, nan_policy="omit"),
    "bins": lambda i: partial(binned, i, bins=1000, range=(0, 2)),
    "very many bins": lambda i: partial(binned, i, bins=40_000, range=(0, 2)),
    "edges": lambda i: partial(binned, i, bins=np.linspace(0, 3, 20)),
    "many bins of equal counts": lambda i: partial(binned, i, bins=("count", 2000)),
    "bins by": lambda i: partial(binned, i, by=i.by, mask=i.mask, nan_policy="omit", **MANY),
    "errors in bins": lambda i: partial(binned, i, bins=2, uncertainties=True, **MANY),
    "uncertainties": lambda i: partial(vostrel.uncertainties, i.z, i.p, **MANY),
    "uncertainties omit": lambda i: partial(
        vostrel.uncertainties, i.z, i.nan, mask=i.mask, nan_policy="omit"),
    "bootstrap": lambda i: partial(bootstrapped, i),
    "bootstrap workers": lambda i: partial(bootstrapped, i, workers=2),
    "bootstrap workers=map": lambda i: partial(bootstrapped, i, workers=map),
    "bootstrap bca": lambda i: partial(bootstrapped, i, interval="bca"),
    "bootstrap percentile": lambda i: partial(bootstrapped, i, interval="percentile"),
    "bootstrap omit": lambda i: partial(
        vostrel.bootstrap, i.z, i.nan, resamples=3, mask=i.mask, nan_policy="omit"),
    "bootstrap of lists": lambda i: partial(vostrel.bootstrap, i.list(), i.p, resamples=3),
    "groups": lambda i: partial(bootstrapped, i, groups=np.arange(i.n)),
    "groups with map": lambda i: partial(
        bootstrapped, i, groups=np.arange(i.n) % 99, workers=map, interval="bca"),
    "groups by text": lambda i: partial(bootstrapped, i, groups=i.text(1000)),
    "groups by different text": lambda i: partial(bootstrapped, i, groups=i.text(i.n)),
    "groups by a list of text": lambda i: partial(bootstrapped, i, groups=i.text(1000).tolist()),
    "groups by objects": lambda i: partial(bootstrapped, i, groups=i.text(1000).astype(object)),
    "bootstrap_difference": lambda i: partial(compared, i),
    "bootstrap_difference groups": lambda i: partial(
        compared, i, groups=i.text(1000), mask=i.mask, workers=2),
    "bootstrap_difference bca": lambda i: partial(compared, i, interval="bca", workers=map),
    "chunks": lambda i: partial(vostrel.chunked_statistics, [(i.z, i.p)], **MANY),
    "chunks omit": lambda i: partial(
        vostrel.chunked_statistics, [(i.z, i.nan, i.mask)], nan_policy="omit"),
    "chunks with NaN": lambda i: partial(vostrel.chunked_statistics, [(i.z, i.nan)]),
    "chunks of lists": lambda i: partial(vostrel.chunked_statistics, [(i.list(), i.list())]),
    "chunks workers": lambda i: partial(vostrel.chunked_statistics, [(i.z, i.p)] * 3, workers=2),
    "chunks in bins": lambda i: partial(
        vostrel.chunked_binned_statistics, [(i.z, i.p, i.by)], workers=2, **EDGES),
    "chunks in very many bins": lambda i: partial(
        vostrel.chunked_binned_statistics,
        [(i.z, i.p, i.by)] * 3, workers=2, bins=40_000, range=(0, 2)),
}


@pytest.fixture(scope="module")
def inputs():
    return Inputs(10_000_000 if LONG else 3_000_000)


@pytest.mark.parametrize("kind", INTERRUPTED)
def test_ctrl_c_is_noticed_soon(kind, inputs):
    # The promise is half a second for 10^7 objects. Fewer leave a margin: a busy machine's caches
    # are slow.
    assert longest_wait(INTERRUPTED[kind](inputs)) < (0.5 if LONG else 0.3)


def test_other_threads_keep_running(rng):
    reference, estimate = redshifts(rng, 100_000)
    expected = numbers(vostrel.point_statistics(reference, estimate))
    results = []

    def work():
        for _ in range(10):
            results.append(numbers(vostrel.point_statistics(reference, estimate)))

    threads = [threading.Thread(target=work) for _ in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert len(results) == 40
    assert all(same_bits(result, expected) for result in results)


def test_the_gil_is_released():
    long = np.broadcast_to(np.zeros(1), 30_000_000)
    done = threading.Event()
    thread = threading.Thread(target=lambda: (vostrel.point_statistics(long, long), done.set()))
    thread.start()
    turns = 0
    while not done.is_set():
        time.sleep(0.001)
        turns += 1
    thread.join()
    assert turns > 5


def test_concurrent_changes_are_harmless(rng):
    reference, estimate = redshifts(rng, 300_000)
    stop = threading.Event()

    def scribble():
        while not stop.is_set():
            estimate[rng.integers(0, estimate.size, 1000)] = rng.choice([np.nan, np.inf, 1e9, 0])

    thread = threading.Thread(target=scribble)
    thread.start()
    try:
        for call in (vostrel.point_statistics, vostrel.lsst_metrics, vostrel.binned_statistics):
            for _ in range(20):
                try:
                    call(reference, estimate, nan_policy="omit")
                except (RuntimeError, ValueError):
                    pass  # an error is a valid answer, a crash is not
    finally:
        stop.set()
        thread.join()


def add_five_for_ever(values):
    while True:
        values += 5


@pytest.fixture
def shared_column():
    """A column of zeros that another process can write to."""
    return np.frombuffer(mmap.mmap(-1, 8 * 1_000_000))


@pytest.mark.parametrize(
    "judge",
    [
        vostrel.point_statistics,
        vostrel.lsst_metrics,
        partial(vostrel.binned_statistics, bins=("count", 10), uncertainties=True),
        vostrel.uncertainties,
        partial(vostrel.bootstrap, resamples=3, seed=1),
    ],
    ids=["point", "lsst", "binned", "uncertainties", "bootstrap"],
)
def test_a_column_that_keeps_changing_takes_no_longer(judge, shared_column, rng):
    reference, shared_column[:] = redshifts(rng, len(shared_column))

    def cost():
        """The CPU time of this process, in which nobody else writes."""
        start = time.process_time()
        for _ in range(4):
            with suppress(ValueError):  # the data changed between passes
                judge(reference, shared_column)
        return time.process_time() - start

    quiet = cost()
    # A process does the same to the memory as a thread, and has CPU time of its own.
    other = multiprocessing.get_context("fork").Process(
        target=add_five_for_ever, args=(shared_column,), daemon=True
    )
    other.start()
    try:
        while shared_column[0] < 20:
            time.sleep(0.01)
        assert cost() < 2 * quiet
    finally:
        other.kill()
        other.join()


MEMORY = """
import ctypes
import numpy as np
import vostrel
n = 4_000_000
rng = np.random.default_rng(1)
reference = rng.gamma(2.0, 0.4, n)
estimate = reference + 0.03 * rng.standard_normal(n)
{prepare}
def used():
    with open("/proc/self/status") as status:
        return {{l.split(":")[0]: l.split()[1] for l in status if l.startswith("Vm")}}
vostrel.point_statistics(reference[:1000], estimate[:1000])
ctypes.CDLL(None).malloc_trim(0)
before = int(used()["VmRSS"])
open("/proc/self/clear_refs", "w").write("5")
{call}
print((int(used()["VmHWM"]) - before) * 1024 / n)
"""


@pytest.mark.skipif(not os.access("/proc/self/clear_refs", os.W_OK), reason="needs Linux")
@pytest.mark.parametrize(
    "prepare, call, bound",
    [
        ("", "vostrel.point_statistics(reference, estimate)", 3),
        ("", "vostrel.lsst_metrics(reference, estimate)", 3),
        ("", "vostrel.binned_statistics(reference, estimate, bins=('count', 10))", 3),
        (
            "reference = reference.astype('>f4'); estimate = estimate.astype('f4')",
            "vostrel.point_statistics(reference, estimate)",
            10,
        ),
        (
            "reference = reference.tolist(); estimate = estimate.tolist()",
            "vostrel.point_statistics(reference, estimate)",
            10,
        ),
    ],
)
def test_memory_beyond_the_inputs(prepare, call, bound):
    script = MEMORY.format(prepare=prepare, call=call)
    result = subprocess.run([sys.executable, "-c", script], capture_output=True, text=True)
    assert result.returncode == 0, result.stderr
    assert float(result.stdout) <= bound
