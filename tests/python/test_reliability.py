"""Leaks, Ctrl-C, threads and memory."""

import os
import resource
import signal
import subprocess
import sys
import threading
import time

import numpy as np
import pytest
import vostrel
from ctrl_c import wait_after_ctrl_c
from data_sets import LONG, numbers, redshifts, same_bits


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


def longest_wait(call):
    """The longest time between two moments at which Ctrl-C would end the call.

    In seconds of CPU time, so that other work on the machine doesn't count.
    """
    moments = [time.thread_time()]
    before = signal.signal(signal.SIGPROF, lambda *_: moments.append(time.thread_time()))
    signal.setitimer(signal.ITIMER_PROF, 0.01, 0.01)
    try:
        call()
    finally:
        signal.setitimer(signal.ITIMER_PROF, 0)
        signal.signal(signal.SIGPROF, before)
    return max(np.diff([*moments, time.thread_time()]))


INTERRUPTED = {
    "point_statistics": lambda r, e: vostrel.point_statistics(r, e),
    "medians of NaN": lambda r, e: vostrel.point_statistics(np.where(r > 2, np.inf, r),
                                                            np.where(r > 2, np.inf, e)),
    "lsst_metrics": lambda r, e: vostrel.lsst_metrics(r, e),
    "bins": lambda r, e: vostrel.binned_statistics(r, e, bins=1000, range=(0, 2)),
    "bins of equal counts": lambda r, e: vostrel.binned_statistics(r, e, bins=("count", 1000)),
    "errors in bins": lambda r, e: vostrel.binned_statistics(r, e, bins=2, uncertainties=True),
    "uncertainties": lambda r, e: vostrel.uncertainties(r, e),
    "chunks": lambda r, e: vostrel.chunked_statistics([(r, e)]),
    "lists": lambda r, e, mask: vostrel.point_statistics(r, e, mask=mask),
}


@pytest.mark.parametrize("kind", INTERRUPTED)
def test_ctrl_c_is_noticed_soon(kind, rng):
    # The promise is half a second. What takes longer the more objects there are shows in more.
    n = 30_000_000 if LONG else 3_000_000
    columns = redshifts(rng, n)
    if kind == "lists":
        columns = [[0.5] * n, columns[1], [False] * n]
    assert longest_wait(lambda: INTERRUPTED[kind](*columns)) < (0.3 if LONG else 0.15)


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
