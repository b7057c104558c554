"""The program's numbers, and reading its reports."""

import math
import os
import subprocess

import numpy as np
import pytest
import vostrel
from data_sets import LONG, redshifts, report_numbers, same_bits
from vostrel import _core

PROGRAM = os.environ["VOSTREL"]


def run(folder, reference, estimate):
    """Runs the program on the columns. Returns the texts of the report and the console."""
    rows = (f"{i},{r:.6g},{e:.6g}" for i, (r, e) in enumerate(zip(reference, estimate)))
    (folder / "table.csv").write_text("\n".join(rows) + "\n")
    console = subprocess.run(
        [PROGRAM, "--stats", "table.csv", "report.txt", "0", "2", "3"],
        cwd=folder, capture_output=True, text=True, check=True,
    ).stdout
    return (folder / "report.txt").read_text(), console


def lines_of(statistics):
    """The lines of the report, made from our numbers."""
    lines = [f"Data size  = {statistics.n}"]
    values = report_numbers(statistics)
    labels = [(label, unit) for label, _, _, unit in _core.STATISTICS]
    labels += [(label, unit) for _, label, _, unit in _core.STATISTICS]
    for (label, unit), value in zip(labels, values):
        width = 17 if len(lines) <= 11 else 22
        lines.append(f"{label:<{width}}= {value:.6g}{unit}")
    return lines


def test_the_same_text_as_the_report(tmp_path, rng):
    for i in range(200 if LONG else 30):
        folder = tmp_path / str(i)
        folder.mkdir()
        six_digits = np.vectorize(lambda value: float(f"{value:.6g}"))
        columns = [six_digits(column) for column in redshifts(rng, int(rng.integers(1, 3000)))]
        report, _ = run(folder, *columns)
        found = vostrel.point_statistics(*columns)
        assert [line for line in report.splitlines() if "= " in line] == lines_of(found)


@pytest.fixture
def report(tmp_path):
    text, console = run(tmp_path, [0.5, 1.0, 1.5, 2.0], [0.4, 1.1, 1.4, 2.3])
    (tmp_path / "console.txt").write_text(console)
    return tmp_path / "report.txt"


def test_a_report_is_read(report):
    r = vostrel.read_report(report)
    assert (r.n, r.n_masked, r.n_nan) == (4, 0, 0)
    assert (r.delta.bias, r.delta.sigma, r.delta.outliers_015) == (-0.05, 0.165831, 25)
    assert (r.norm.nmad, r.norm.mad_delta, r.norm.outliers_4sigma) == (0.086485, 0.0583333, 0)


def test_a_console_output_is_a_report_too(report):
    assert vostrel.read_report(report.with_name("console.txt")) == vostrel.read_report(str(report))


def test_nan_and_infinity_are_read(tmp_path):
    (tmp_path / "table.csv").write_text("")
    subprocess.run(
        [PROGRAM, "--stats", "table.csv", "report.txt", "0", "1", "2"],
        cwd=tmp_path, capture_output=True,
    )
    text, _ = run(tmp_path, [1.0, -1.0], [1.0, 1.0])
    r = vostrel.read_report(tmp_path / "report.txt")
    assert "inf" in text and "nan" in text
    assert math.isinf(r.norm.bias) and math.isnan(r.norm.sigma)
    assert same_bits(r.delta.bias, -1.0)


@pytest.mark.parametrize(
    "old, new, words",
    [
        ("NMAD norm             = 0.086485\n", "", "it has no line 'NMAD norm'"),
        ("0.086485", "much", "'NMAD norm' is 'much'"),
        ("25%", "25", "'outliers >0.15' is '25'"),
        ("= 4\n", "= 4.5\n", "'Data size' is '4.5'"),
        ("Data size  = 4\n", "Data size  = 4\n" * 2, "it has 2 lines 'Data size'"),
    ],
)
def test_wrong_reports_are_refused(report, old, new, words):
    text = report.read_text()
    assert old in text
    report.write_text(text.replace(old, new))
    with pytest.raises(ValueError) as error:
        vostrel.read_report(report)
    assert words in str(error.value)
    assert "report.txt' is not a report" in str(error.value)


def test_a_missing_report(tmp_path):
    with pytest.raises(FileNotFoundError):
        vostrel.read_report(tmp_path / "none.txt")
