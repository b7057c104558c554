"""Runs that a batch system ends while they write internal.txt leave whole rows only."""

import os
import signal
import subprocess
import time

import pytest
from support.programs import PATIENCE, RUN, wait_until

ROWS = 3_000_000
RUNS = int(os.environ.get("VOSTREL_ENDED_RUNS") or 40)
SIGNALS = (signal.SIGTERM, signal.SIGHUP, signal.SIGXCPU)


def start(vostrel, prepare=lambda: None):
    return subprocess.Popen(
        [vostrel.path, *RUN],
        cwd=vostrel.folder,
        stdout=subprocess.DEVNULL,
        stderr=subprocess.DEVNULL,
        preexec_fn=prepare,
    )


def writing_begins(internal):
    wait_until(lambda: internal.exists() and internal.stat().st_size > 0)


def test_a_run_ended_while_it_writes_leaves_whole_rows(vostrel, chance):
    lines = [f"{chance.random():.6f},{chance.random():.6f}\n" for _ in range(1000)]
    vostrel.write("table.csv", "".join(lines) * (ROWS // len(lines)))
    internal = vostrel.folder / "internal.txt"
    run = start(vostrel)
    writing_begins(internal)
    begin = time.monotonic()
    wait_until((vostrel.folder / "error.log").exists)  # written after the last row
    duration = time.monotonic() - begin
    assert run.wait(PATIENCE) == 0
    whole = internal.read_bytes()
    assert whole.count(b"\n") == ROWS

    ended_early = 0
    for i in range(RUNS):
        internal.unlink()
        end = SIGNALS[i % len(SIGNALS)]
        run = start(vostrel)
        writing_begins(internal)
        time.sleep(chance.random() * duration)
        run.send_signal(end)
        status = run.wait(PATIENCE)
        rows = internal.read_bytes()
        cut = not (whole.startswith(rows) and rows.endswith(b"\n"))
        assert not cut, (i, end, rows[-60:])
        assert status == -end or len(rows) == len(whole)
        ended_early += len(rows) < len(whole)
    print(f"{RUNS} runs ended, no fault: {ended_early} while they wrote")
    assert ended_early > RUNS / 4


@pytest.mark.parametrize("end", SIGNALS)
def test_a_signal_that_the_parent_ignores_stays_ignored(vostrel, end):
    vostrel.write("table.csv", "0.1,0.12\n")
    os.mkfifo(vostrel.folder / "internal.txt")
    run = start(vostrel, lambda: signal.signal(end, signal.SIG_IGN))
    with open(vostrel.folder / "internal.txt", "rb") as rows:  # the program has begun to write
        run.send_signal(end)
        assert rows.read() == b"0 0.1 0.12\n"
    with open(vostrel.folder / "internal.txt", "wb") as rows:
        rows.write(b"0 0.1 0.12\n")
    assert run.wait(PATIENCE) == 0
