"""A table that arrives slowly, and the user who loses patience."""

import os
import signal

import pytest
from conftest import BANNER, CREATED, PATIENCE

LOADING = "\nLoad data from file: table.csv\n\n"


class SlowTable:
    """A named pipe as the table. It is held open for both ways, so it stays when a reader leaves."""

    def __init__(self, program):
        path = program.folder / "table.csv"
        os.mkfifo(path)
        self.pipe = os.open(path, os.O_RDWR)

    def send(self, text):
        os.write(self.pipe, text.encode())


@pytest.fixture
def loading(vostrel):
    """A run that has counted the columns and waits for its first row."""
    table = SlowTable(vostrel)
    run = vostrel.start("--stats", "table.csv", "report.txt", "0", "1", "2")
    table.send("a,b\n")
    vostrel.wait_for("console", BANNER + "col number 2\n" + LOADING)
    yield vostrel, run, table
    if run.poll() is None:
        run.kill()
    run.wait()
    run.stderr.close()
    os.close(table.pipe)


def test_rows_appear_as_their_lines_arrive(loading):
    vostrel, run, table = loading
    vostrel.wait_for("internal.txt", "")
    table.send("0.1,0.12\n")
    vostrel.wait_for("internal.txt", "0 0.1 0.12\n")
    table.send("0.2,0.19\n0.3,0.3\n0.4,")
    vostrel.wait_for("internal.txt", "0 0.1 0.12\n1 0.2 0.19\n2 0.3 0.3\n")
    table.send("0.5\n\n")  # an empty line ends the table
    assert run.wait(PATIENCE) == 0
    assert run.stderr.read() == b""
    assert vostrel.read("internal.txt") == "0 0.1 0.12\n1 0.2 0.19\n2 0.3 0.3\n3 0.4 0.5\n"
    assert vostrel.read("report.txt").startswith("Data size  = 4\n")
    assert vostrel.read("error.log") == CREATED


def test_an_interrupt_ends_the_run_with_status_zero(loading):
    vostrel, run, table = loading
    table.send("0.1,0.12\n")
    vostrel.wait_for("internal.txt", "0 0.1 0.12\n")
    run.send_signal(signal.SIGINT)
    assert run.wait(PATIENCE) == 0
    assert run.stderr.read() == b""
    assert vostrel.read("console") == BANNER + "col number 2\n" + LOADING + "SIGINT catched!\n"
    assert vostrel.read("internal.txt") == "0 0.1 0.12\n"
    assert vostrel.read("report.txt") is None
    assert vostrel.read("error.log") is None


def test_any_other_signal_keeps_its_default_action(loading):
    vostrel, run, _ = loading
    run.terminate()
    assert run.wait(PATIENCE) == -signal.SIGTERM
    assert vostrel.read("console") == BANNER + "col number 2\n" + LOADING


def test_a_row_that_raises_leaves_the_rows_before_it(loading):
    vostrel, run, table = loading
    table.send("0.1,0.12\n0.2,\n")
    assert run.wait(PATIENCE) == -signal.SIGABRT
    assert vostrel.read("internal.txt") == "0 0.1 0.12\n"
    assert vostrel.read("report.txt") is None
