"""The reader of the three-column file."""

import numpy as np
import pytest
from conftest import write
from vostrel.plot import _reading
from vostrel.plot._errors import PlotError
from vostrel.plot._reading import read_internal


@pytest.mark.parametrize("block", [1, 2, 7, 8, 13, 14, 50, 1 << 20])
@pytest.mark.parametrize("ending", ["", "\n", "\n\n", "\n\n9 9 9\n", "\n\n\nwords"])
def test_reader_at_every_block_boundary(monkeypatch, block, ending):
    monkeypatch.setattr(_reading, "BLOCK", block)
    lines = ["0 1 2", "1 nan -nan", "2 inf -inf", "3 1e-05 -1.5e+06",
             "4  5   6", "5 0.123457 7"]
    write("\n".join(lines) + ending)
    zspec, zphot = read_internal("internal.txt")
    np.testing.assert_equal(zspec, [1, np.nan, np.inf, 1e-05, 5, 0.123457])
    np.testing.assert_equal(zphot, [2, np.nan, -np.inf, -1.5e6, 6, 7])


@pytest.mark.parametrize("bad", [
    "5 0.1", "5", "5 0.1 0.2 0.3", "5 0.1 x", "# ID zspec zphot", "x 1 2", " ",
    "5  0.1", "5 0.1 ", "5\t0.1\t0.2", "5,0.1,0.2", "5 0x10 1", "5 1_0 1",
    "5 0.1\x000.2 1", "5 0.1-0.2 1", "5 1 1" * 2000])
@pytest.mark.parametrize("block", [16, 1 << 23])
@pytest.mark.parametrize("before", [0, 1, 100])
def test_line_that_is_not_three_columns(monkeypatch, bad, block, before):
    monkeypatch.setattr(_reading, "BLOCK", block)
    write("0 0.1 0.2\n" * before + bad + "\n0 0.1 0.2\n")
    with pytest.raises(PlotError, match=rf"'internal.txt', line {before + 1}: "
                                           "not three columns"):
        read_internal("internal.txt")


def test_two_lines_with_six_numbers_between_them():
    write("0 1\n2 3 4 5\n")
    with pytest.raises(PlotError, match="line 1:"):
        read_internal("internal.txt")


def test_overlong_line_is_not_split(monkeypatch):
    monkeypatch.setattr(_reading, "BLOCK", 16)
    write("0 1 2" + " " * (11 + _reading.LONGEST_LINE) + "3 4 5\n")
    with pytest.raises(PlotError, match="line 1:"):
        read_internal("internal.txt")


def test_reading_reports_its_progress(monkeypatch):
    monkeypatch.setattr(_reading, "BLOCK", 25)
    write("0 0.1 0.2\n" * 10)
    shares = []
    read_internal("internal.txt", shares.append)
    assert shares == [0.3, 0.6, 0.9, 1.0]
