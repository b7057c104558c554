"""Tables that arrive slowly through a pipe, and interrupts."""

import os
import select
import signal
import time

import pytest
from support.programs import BANNER, CREATED, PATIENCE

LOADING = "\nLoad data from file: table.csv\n\n"


class SlowTable:
    """A named pipe as the table. Open for reading and writing, so it stays when a reader leaves."""

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


def test_rows_before_a_missing_field_are_kept(loading):
    vostrel, run, table = loading
    table.send("0.1,0.12\n0.2,\n")
    assert run.wait(PATIENCE) == -signal.SIGABRT
    assert vostrel.read("internal.txt") == "0 0.1 0.12\n"
    assert vostrel.read("report.txt") is None


@pytest.fixture
def reopening(vostrel):
    """A run that has counted the columns and waits for the table to be opened a second time."""
    vostrel.write("internal.txt", "old rows\n")
    path = vostrel.folder / "table.csv"
    os.mkfifo(path)
    run = vostrel.start("--stats", "table.csv", "report.txt", "0", "1", "2")
    with open(path, "w") as first:  # waits for the program to open it, too
        path.unlink()
        os.mkfifo(path)
        first.write("a,b\n")
    vostrel.wait_for("console", BANNER + "col number 2\n" + LOADING)
    yield vostrel, run, path
    if run.poll() is None:
        run.kill()
    run.wait()
    run.stderr.close()


def test_old_rows_stay_until_the_table_is_open_again(reopening):
    vostrel, run, path = reopening
    time.sleep(0.05)  # if this is too short, it hides a fault, but never makes one
    assert vostrel.read("internal.txt") == "old rows\n"
    with open(path, "w") as second:
        vostrel.wait_for("internal.txt", "")
        second.write("0.1,0.12\n")
    assert run.wait(PATIENCE) == 0
    assert vostrel.read("internal.txt") == "0 0.1 0.12\n"


def test_an_interrupt_before_the_table_reopens_keeps_old_rows(reopening):
    vostrel, run, _ = reopening
    run.send_signal(signal.SIGINT)
    assert run.wait(PATIENCE) == 0
    assert vostrel.read("console") == BANNER + "col number 2\n" + LOADING + "SIGINT catched!\n"
    assert vostrel.read("internal.txt") == "old rows\n"


def test_an_interrupt_while_computing_ends_the_run_with_status_zero(vostrel):
    """internal.txt is a pipe. When the run closes it, all rows are loaded and computing begins."""
    path = vostrel.folder / "internal.txt"
    os.mkfifo(path)
    vostrel.write("table.csv", "1,2\n")
    run = vostrel.start("--stats", "table.csv", "report.txt", "0", "1", "2")
    with open(path, "rb") as rows_written:
        assert rows_written.read() == b"0 1 2\n"
    with open(path, "wb") as rows_to_read:
        # Enough for some tenths of a second. An empty line ends them while the pipe stays open.
        rows_to_read.write(b"0 0.5 0.25\n1 0.75 1\n" * 2000000 + b"\n")
        rows_to_read.flush()
        no_reader = select.poll()
        no_reader.register(rows_to_read, 0)
        assert no_reader.poll(PATIENCE * 1000) != []
        time.sleep(0.02)
        run.send_signal(signal.SIGINT)
    assert run.wait(PATIENCE) == 0
    assert run.stderr.read() == b""
    run.stderr.close()
    assert vostrel.read("console") == (
        BANNER
        + "col number 2\n"
        + LOADING
        + "\nLoad data from file: internal.txt\n\n"
        + "SIGINT catched!\n"
    )
    assert vostrel.read("report.txt") is None
    assert vostrel.read("error.log") == CREATED
