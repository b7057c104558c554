"""Tests of vostrel-plot: what the figure shows, and how failures are told.

Run with Debian's Python, which has numpy and matplotlib:

    /usr/bin/python3 -m pytest plot

With VOSTREL naming a built vostrel, the numbers are compared with its report
as well.
"""

import io
import math
import os
import resource
import signal
import subprocess
import sys
import time
from importlib.machinery import SourceFileLoader
from types import ModuleType

import numpy as np
import pytest
from matplotlib.text import Text

SCRIPT = os.path.join(os.path.dirname(os.path.abspath(__file__)), "vostrel-plot")
VOSTREL = os.environ.get("VOSTREL")
if VOSTREL is not None:  # the tests run in folders of their own
    VOSTREL = os.path.abspath(VOSTREL)

# Four objects of zspec 1, so that the second residual is half the first:
# 0.1, 0.2, 0.4 and -0.5. The report below was worked out by hand from these.
ZPHOT = (0.9, 0.8, 0.6, 1.5)
FOUR = "".join(f"{i} 1 {z:g}\n" for i, z in enumerate(ZPHOT))
REPORT = """\
Data size  = 4

Statistics on delta [col1 - col2]:
bias             = 0.05
sigma            = 0.33541
RMS              = 0.339116
MAD              = 0.3
NMAD             = 0.44478
MAD(Delta)       = 0.15
outliers >0.15   = 75%
outliers >1sigma = 50%
outliers >2sigma = 0%
outliers >3sigma = 0%
outliers >4sigma = 0%

Statistics on normalized delta [(col1 - col2) / (1 + col1)]:
bias norm             = 0.025
sigma norm            = 0.167705
RMS norm              = 0.169558
MAD norm              = 0.15
NMAD norm             = 0.22239
MAD(Delta norm)       = 0.075
outliers norm >0.15   = 50%
outliers norm >1sigma = 50%
outliers norm >2sigma = 0%
outliers norm >3sigma = 0%
outliers norm >4sigma = 0%
"""


def load():
    """Return the program as a module; importing must leave no file behind."""
    keep, sys.dont_write_bytecode = sys.dont_write_bytecode, True
    loader = SourceFileLoader("vostrel_plot", SCRIPT)
    module = ModuleType(loader.name)
    loader.exec_module(module)
    sys.dont_write_bytecode = keep
    return module


vp = load()


@pytest.fixture(autouse=True)
def folder(tmp_path, monkeypatch):
    """Run every test in an empty folder of its own."""
    monkeypatch.chdir(tmp_path)
    keep = signal.getsignal(signal.SIGTERM)
    yield tmp_path
    signal.signal(signal.SIGTERM, keep)


def write(text, name="internal.txt"):
    """Write TEXT to the file NAME."""
    with open(name, "w") as stream:
        stream.write(text)
    return name


def write_table(zspec, zphot, name="internal.txt"):
    """Write the objects as a run of vostrel does."""
    return write("".join(f"{i} {s:g} {p:g}\n"
                         for i, (s, p) in enumerate(zip(zspec, zphot))), name)


def catalogue(count, seed=1):
    """Return zspec and zphot of COUNT objects of a plausible survey."""
    rng = np.random.default_rng(seed)
    zspec = rng.gamma(2, 0.35, count)
    return zspec, zspec + 0.03 * (1 + zspec) * rng.normal(size=count)


def run(*words, **options):
    """Run the program as a user does."""
    return subprocess.run([SCRIPT, *words], capture_output=True, text=True,
                          timeout=120, **options)


def failure(*words, **options):
    """Run the program, check that it fails as promised, return its one line."""
    before = sorted(os.listdir("."))
    done = run(*words, **options)
    assert done.returncode == 2
    assert done.stdout == ""
    assert done.stderr.startswith("vostrel-plot: ")
    assert done.stderr.count("\n") == 1 and done.stderr.endswith("\n")
    assert sorted(os.listdir(".")) == before, "a failure leaves no file"
    return done.stderr


@pytest.fixture
def figure_of(monkeypatch):
    """Return a function that runs the program and returns the drawn figure."""
    def draw(*words):
        figures = []
        with monkeypatch.context() as patch:
            patch.setattr(vp, "save", lambda figure, *_: figures.append(figure))
            assert vp.main(list(words)) == 0
        return figures[0]
    return draw


def by_gid(parent, gid):
    """Return what the program drew on PARENT under the name GID."""
    return [a for a in parent.findobj() if a.get_gid() == gid]


def numbers_of(figure):
    """Return the lines of the text block, each as its list of cells."""
    lines = {}
    for text in by_gid(figure, "numbers"):
        lines.setdefault(text.get_position()[1], []).append(text.get_text())
    return list(lines.values())


def rows_of(figure):
    """Return the statistics in the text block, the two numbers by their name."""
    return {line[0]: tuple(line[1:]) for line in numbers_of(figure)
            if len(line) == 3 and line[0]}


def outside(axes):
    """Return what a panel says about the objects outside it."""
    return [t.get_text() for t in by_gid(axes, "outside")]


# ------------------------------------------------------------ the panels

def test_few_objects_are_points(figure_of):
    write("0 0.5 0.4\n1 1 1.2\n2 2 1.4\n")
    panels = figure_of().axes
    assert len(panels) == 3
    first, = by_gid(panels[0], "objects")
    assert first.get_xydata() == pytest.approx(
        np.array([(0.5, 0.4), (1, 1.2), (2, 1.4)]))
    third, = by_gid(panels[2], "objects")
    assert third.get_xydata() == pytest.approx(
        np.array([(0.5, 0.1 / 1.5), (1, -0.1), (2, 0.2)]))


def test_guide_lines(figure_of):
    write(FOUR)
    panel = figure_of().axes[0]
    x, y = by_gid(panel, "one-to-one")[0].get_data()
    assert x == pytest.approx(y)
    bounds = by_gid(panel, "bound")
    assert len(bounds) == 2
    reached = sorted(float(((x - y) / (1 + x))[i]) for x, y in
                     (b.get_data() for b in bounds) for i in (0, 1))
    assert reached == pytest.approx([-0.15, -0.15, 0.15, 0.15])


def test_labels(figure_of):
    write(FOUR)
    panels = figure_of().axes
    reference, estimate = r"$z_{\rm spec}$", r"$z_{\rm phot}$"
    norm = r"$\Delta z/(1+z_{\rm spec})$"
    assert [(a.get_xlabel(), a.get_ylabel()) for a in panels] == [
        (reference, estimate), (norm, "objects per bin"), (reference, norm)]
    legends = [[t.get_text() for t in a.get_legend().get_texts()] for a in panels]
    assert legends == [["one to one", r"$|\Delta z|/(1+z_{\rm spec})=0.15$"],
                       ["zero", "bias", "±σ", "±NMAD"],
                       ["running median", "running ±NMAD", "±0.15"]]


def test_histogram_and_its_marks(figure_of):
    write(FOUR)
    panel = figure_of().axes[1]
    counts, edges, _ = by_gid(panel, "histogram")[0].get_data()
    assert counts.sum() == 4
    for low, high, count in zip(edges, edges[1:], counts):
        assert count == sum(low <= x < high for x in (-0.25, 0.05, 0.1, 0.2))
    assert edges[len(edges) // 2 - 1] < 0 < edges[len(edges) // 2], "a bin about zero"
    marks = {gid: [line.get_xdata()[0] for line in by_gid(panel, gid)]
             for gid in ("zero", "bias", "sigma", "NMAD")}
    assert marks == {"zero": [0], "bias": [0.025], "sigma": [0.167705, -0.167705],
                     "NMAD": [0.22239, -0.22239]}
    low, high = panel.get_xlim()
    assert low < -0.25 and high > 0.25
    assert low == -high


def test_running_statistics(figure_of):
    # Sixteen objects make two bins of eight; their order in the file is mixed.
    z = np.r_[np.linspace(0, 0.7, 8), np.linspace(1, 1.7, 8)]
    residual = np.r_[-3, -1, 1, 2, 4, 5, 7, 9, 10, 11, 12, 14, 16, 20, 30, -40] / 100
    mixed = np.random.default_rng(5).permutation(16)
    write_table(z[mixed], (z - residual * (1 + z))[mixed])
    panel = figure_of().axes[2]
    median = by_gid(panel, "running median")[0].get_xydata()
    assert median == pytest.approx(np.array([(0.35, 0.03), (1.35, 0.13)]), abs=1e-5)
    upper, lower = by_gid(panel, "running NMAD")
    nmad = 1.4826 * np.array([0.035, 0.15])
    assert upper.get_ydata() == pytest.approx(nmad, abs=1e-5)
    assert lower.get_ydata() == pytest.approx(-nmad, abs=1e-5)


def test_bins_of_equal_count():
    zspec, zphot = catalogue(10000)
    norm = (zspec - zphot) / (1 + zspec)
    z, median, nmad = vp.running(zspec, norm)
    assert len(z) == 50
    share = np.sort(zspec).reshape(50, 200)
    assert z == pytest.approx(np.median(share, axis=1))
    assert nmad == pytest.approx(0.03, abs=0.01)
    assert median == pytest.approx(0, abs=0.01)


def test_equal_redshifts_share_a_bin():
    zspec = np.repeat([0.1, 0.2, 0.3], 1000)
    norm = np.tile([0.01, 0.02], 1500)
    z, median, _ = vp.running(zspec, norm)
    assert list(z) == [0.1, 0.2, 0.3]
    assert median == pytest.approx(0.015)


def test_many_objects_are_a_density(figure_of):
    zspec, zphot = catalogue(vp.MANY + 1)
    write_table(zspec, zphot)
    figure = figure_of()
    assert len(figure.axes) == 4
    assert figure.axes[3].get_ylabel() == "objects per cell"
    for panel in figure.axes[0], figure.axes[2]:
        image, = by_gid(panel, "objects")
        assert image.get_cmap().name == "cividis"
        assert isinstance(image.norm, vp.LogNorm)
        assert image.get_array().sum() == vp.MANY + 1
        assert image.norm.vmax >= image.get_array().max()


def test_cells_count_each_object_where_it_lies():
    x, y = np.array([0, 0.5, 0.5, 2, 1.99]), np.array([0, 0.1, 0.9, 1, 5.0])
    assert vp.cells(x, y, (0, 2), (0, 1), (2, 4)).tolist() == [
        [1, 1, 0, 0], [0, 1, 0, 1]]


def test_cells_of_more_than_one_piece():
    count = (1 << 20) + 7
    assert vp.cells(np.zeros(count), np.zeros(count), (-1, 1), (-1, 1),
                    (3, 3)).tolist() == [[0, 0, 0], [0, count, 0], [0, 0, 0]]


def test_density_of_one_value_can_be_seen(figure_of):
    write_table([0.5] * 6000, [0.6] * 6000)
    image, = by_gid(figure_of().axes[0], "objects")
    assert image.get_array().shape == (27, 27)
    assert image.get_array().max() == 6000


@pytest.mark.parametrize("count", [2000, 6000])
def test_wild_outliers_do_not_set_the_limits(figure_of, count):
    zspec, zphot = catalogue(count)
    zphot[:40] = -99
    zphot[40:45] = 1e6
    zspec[50] = 9e9
    write_table(zspec, zphot)
    panels = figure_of().axes
    for panel in panels[:3]:
        assert outside(panel) == ["46 outside"]
    for limits in (panels[0].get_xlim(), panels[0].get_ylim(), panels[2].get_xlim()):
        assert -0.5 < limits[0] < 0 and 3 < limits[1] < 6
    assert panels[0].get_xlim() == panels[0].get_ylim()
    for limits in panels[1].get_xlim(), panels[2].get_ylim():
        assert 0.15 < limits[1] < 0.3
    labels = [t.get_text() for t in panels[1].get_legend().get_texts()]
    assert labels == ["zero", "bias (not in view)", "±σ (not in view)", "±NMAD"]


def test_limits_of_data_that_are_mostly_one_value():
    values = np.r_[np.full(700, 0.5), 0.3, 0.4, 0.7, 5, 1e6]
    assert vp.robust_range(values) == (0.3, 0.7)
    assert vp.robust_range(np.r_[np.full(700, 0.5), 1e6]) == (0.5, 0.5)


def test_limits_never_overflow():
    assert vp.robust_range(np.array([-1e307, 1e307])) == (-1e300, 1e300)


def test_tame_data_are_all_in_view(figure_of):
    write_table(*catalogue(2000))
    panels = figure_of().axes
    assert outside(panels[0]) == outside(panels[1]) == outside(panels[2]) == []


def test_large_numbers_go_into_the_label(figure_of):
    zspec, zphot = catalogue(100)
    write_table(1e10 * zspec, 1e10 * zphot)
    panel = figure_of().axes[0]
    assert panel.get_xlabel() == r"$z_{\rm spec}$ / $10^{10}$"
    format_tick = panel.xaxis.get_major_formatter()
    assert format_tick(2e10, 0) == "2" and format_tick(-2e10, 0) == "−2"


@pytest.mark.parametrize("zspec, zphot", [
    ([0.5], [0.55]), ([0.5], [0.5]), ([0.5] * 50, [0.6] * 50), ([0], [0]),
    ([-0.5] * 3, [7] * 3), ([0.3] * 99 + [1e6], [0.3] * 98 + [1e6, 2]),
    ([1e300, 2e300], [2e300, 1e300]), ([1e-300], [2e-300]),
    ([1, 2, 3], [1e308, -1e308, 1e308])])
def test_degenerate_data_give_a_figure(figure_of, zspec, zphot):
    write_table(zspec, zphot)
    figure = figure_of()
    for panel in figure.axes:
        for low, high in panel.get_xlim(), panel.get_ylim():
            assert math.isfinite(low) and math.isfinite(high) and low < high
    assert len(by_gid(figure.axes[0], "objects")[0].get_xydata()) == len(zspec)
    figure.savefig(io.BytesIO(), format="png", dpi=60)


def test_one_object_in_the_middle(figure_of):
    write("0 0.5 0.55\n")
    figure = figure_of()
    low, high = figure.axes[0].get_xlim()
    assert low < 0.4 and high > 0.65
    assert rows_of(figure)["bias"] == ("-0.05", "-0.0333333")
    assert rows_of(figure)["σ"] == ("0", "0")
    assert by_gid(figure.axes[1], "histogram")[0].get_data()[0].sum() == 1
    assert all(tick == int(tick) for tick in figure.axes[1].get_yticks())


# --------------------------------------------------------- what is left out

def test_what_is_not_finite_is_left_out_and_counted(figure_of):
    write("0 0.5 0.4\n1 nan 1\n2 1 -nan\n3 inf 1\n4 1 -inf\n5 -1 0.3\n6 nan inf\n"
          "7 1 1.2\n8 inf inf\n9 -1 -1\n")
    figure = figure_of()
    points = by_gid(figure.axes[0], "objects")[0].get_xydata()
    assert points.tolist() == [[0.5, 0.4], [1, 1.2]]
    lines = [line[0] for line in numbers_of(figure)]
    assert "left out: 3 not-a-number, 5 infinite" in lines
    assert any("N = 10" in line for line in lines)
    assert rows_of(figure)["bias"] == ("-0.05", "-0.0166667")


def test_nothing_left_out_is_not_mentioned(figure_of):
    write(FOUR)
    assert not any("left out" in line[0] for line in numbers_of(figure_of()))


def test_file_ends_at_its_first_empty_line(figure_of):
    write(FOUR + "\nnot read any more\n0 1 2\n")
    assert len(by_gid(figure_of().axes[0], "objects")[0].get_xydata()) == 4


# ------------------------------------------------------------- the numbers

NAMES = ("bias", "σ", "RMS", "MAD", "NMAD", "MAD(Δ)", "outliers > 0.15",
         "outliers > 1σ", "outliers > 2σ", "outliers > 3σ", "outliers > 4σ")


def rows_of_report(text):
    """Return the numbers of a report in the form of rows_of()."""
    values = [line.split("=")[1].strip() for line in text.splitlines() if "=" in line]
    return dict(zip(NAMES, zip(values[1:12], values[12:])))


def test_computed_numbers_are_those_of_a_report(figure_of):
    write(FOUR)
    figure = figure_of()
    assert rows_of(figure) == rows_of_report(REPORT)
    assert tuple(rows_of(figure)) == NAMES
    assert numbers_of(figure)[-1] == ["numbers computed from internal.txt"]


def test_outliers_are_strictly_beyond_and_measured_from_zero():
    at_bound = vp.statistics(np.array([0.15, -0.15, 0.2]))
    assert at_bound["outliers >0.15"] == f"{100 / 3:g}%"
    same = vp.statistics(np.array([0.25, 0.25]))
    assert same["sigma"] == "0" and same["outliers >4sigma"] == "100%"
    assert vp.statistics(np.zeros(2))["outliers >1sigma"] == "0%"


def test_numbers_and_marks_come_from_the_report(figure_of):
    write(FOUR)
    # A report that no calculation would give tells where a number came from.
    text = (REPORT.replace("0.167705", "0.111").replace("= 0.025", "= -0.0625")
            .replace("0.22239", "0.2").replace("0.33541", "7.5e-05"))
    write(text, "other.txt")
    figure = figure_of("--report", "other.txt")
    assert rows_of(figure) == rows_of_report(text)
    panel = figure.axes[1]
    assert [a.get_xdata()[0] for a in by_gid(panel, "sigma")] == [0.111, -0.111]
    assert [a.get_xdata()[0] for a in by_gid(panel, "bias")] == [-0.0625]
    assert [a.get_xdata()[0] for a in by_gid(panel, "NMAD")] == [0.2, -0.2]
    assert numbers_of(figure)[-1] == ["numbers of the report other.txt"]


def test_report_with_numbers_that_are_none(figure_of):
    write("0 nan 1\n" + FOUR[:-8])
    write(REPORT.replace("0.167705", "-nan").replace("= 0.025", "= inf")
          .replace("norm >0.15   = 50%", "norm >0.15   = nan%"), "r")
    figure = figure_of("--report", "r")
    assert rows_of(figure)["σ"][1] == "-nan"
    assert rows_of(figure)["outliers > 0.15"][1] == "nan%"
    labels = [t.get_text() for t in figure.axes[1].get_legend().get_texts()]
    assert labels == ["zero", "bias (inf)", "±σ (-nan)", "±NMAD"]
    figure.savefig(io.BytesIO(), format="png", dpi=60)


@pytest.mark.skipif(VOSTREL is None, reason="VOSTREL names no vostrel")
@pytest.mark.parametrize("kind", ["catalogue", "constant", "outliers"])
def test_agreement_with_vostrel_itself(figure_of, kind):
    zspec, zphot = catalogue(501)
    if kind == "constant":
        zspec[:], zphot[:] = 0.5, 0.6
    if kind == "outliers":
        zphot[::20], zphot[7] = -99, 1234567
    with open("table.csv", "w") as stream:
        stream.writelines(f"x,{s:.9f},{p:.9f}\n" for s, p in zip(zspec, zphot))
    subprocess.run([VOSTREL, "--stats", "table.csv", "report.txt", "0", "2", "3"],
                   check=True, stdout=subprocess.DEVNULL, timeout=60)
    with open("report.txt") as stream:
        expected = rows_of_report(stream.read())
    assert len(expected) == 11
    assert rows_of(figure_of()) == expected
    assert rows_of(figure_of("--report", "report.txt")) == expected


# ------------------------------------------------------------- the reader

class Silent:
    """A progress that tells nothing."""

    def tell(self, text):
        pass


@pytest.mark.parametrize("block", [1, 2, 7, 8, 13, 14, 50, 1 << 20])
@pytest.mark.parametrize("ending", ["", "\n", "\n\n", "\n\n9 9 9\n", "\n\n\nwords"])
def test_reader_at_every_block_boundary(monkeypatch, block, ending):
    monkeypatch.setattr(vp, "BLOCK", block)
    lines = ["0 1 2", "1 nan -nan", "2 inf -inf", "3 1e-05 -1.5e+06",
             "4  5   6", "5 0.123457 7"]
    write("\n".join(lines) + ending)
    zspec, zphot = vp.read_internal("internal.txt", Silent())
    np.testing.assert_equal(zspec, [1, np.nan, np.inf, 1e-05, 5, 0.123457])
    np.testing.assert_equal(zphot, [2, np.nan, -np.inf, -1.5e6, 6, 7])


@pytest.mark.parametrize("bad", [
    "5 0.1", "5", "5 0.1 0.2 0.3", "5 0.1 x", "# ID zspec zphot", "x 1 2", " ",
    "5  0.1", "5 0.1 ", "5\t0.1\t0.2", "5,0.1,0.2", "5 0x10 1", "5 1_0 1",
    "5 0.1\x000.2 1", "5 0.1-0.2 1", "5 1 1" * 2000])
@pytest.mark.parametrize("block", [16, 1 << 23])
@pytest.mark.parametrize("before", [0, 1, 100])
def test_line_that_is_not_three_columns(monkeypatch, bad, block, before):
    monkeypatch.setattr(vp, "BLOCK", block)
    write("0 0.1 0.2\n" * before + bad + "\n0 0.1 0.2\n")
    with pytest.raises(vp.PlotError, match=rf"'internal.txt', line {before + 1}: "
                                           "not three columns"):
        vp.read_internal("internal.txt", Silent())


def test_lines_that_only_together_hold_six_numbers():
    write("0 1\n2 3 4 5\n")
    with pytest.raises(vp.PlotError, match="line 1:"):
        vp.read_internal("internal.txt", Silent())


def test_overlong_line_is_not_two(monkeypatch):
    monkeypatch.setattr(vp, "BLOCK", 16)
    write("0 1 2" + " " * (11 + vp.LONGEST_LINE) + "3 4 5\n")
    with pytest.raises(vp.PlotError, match="line 1:"):
        vp.read_internal("internal.txt", Silent())


# ------------------------------------------------------------- the errors

def test_no_such_file():
    assert failure() == ("vostrel-plot: cannot read 'internal.txt': "
                         "No such file or directory\n")
    assert "cannot read '.'" in failure(".")
    write(FOUR)
    assert "cannot read 'none'" in failure("--report", "none")


def test_bad_line_is_told_by_its_number():
    write(FOUR + "4 1\n")
    assert failure() == ("vostrel-plot: 'internal.txt', line 5: not three columns "
                         "of numbers (ID zspec zphot)\n")


@pytest.mark.parametrize("text", ["", "\n", "\n0 1 2\n"])
def test_no_objects(text):
    write(text)
    assert failure() == "vostrel-plot: 'internal.txt' holds no objects\n"


def test_no_finite_objects():
    write("0 nan 1\n1 -1 2\n")
    assert "no objects with finite values" in failure()


@pytest.mark.parametrize("name", ["a.jpg", "a", "png", ".png", "a.png.", ""])
def test_unknown_ending(name):
    write(FOUR)
    assert "must end in .png, .pdf or .svg" in failure("--output", name)


def test_target_is_checked_before_the_data_are_read():
    assert "must end in .png, .pdf or .svg" in failure("--output", "a.jpg")
    assert "no such folder" in failure("--output", "none/a.png")


def test_folder_that_cannot_be_written():
    write(FOUR)
    assert "no such folder" in failure("--output", "none/a.png")
    assert "no such folder" in failure("--output", "internal.txt/a.png")
    assert "cannot write" in failure("--output", "/proc/a.png")
    os.mkdir("a.png")
    assert "it is a folder" in failure("--output", "a.png")


def test_folder_without_permission(monkeypatch, capsys):
    write(FOUR)  # the superuser may write everywhere, hence the pretence
    monkeypatch.setattr(os, "access", lambda *_: False)
    assert vp.main([]) == 2
    assert "the folder is not writable" in capsys.readouterr().err


@pytest.mark.parametrize("text", [
    "", "words\n", FOUR, REPORT[:300], REPORT.replace("MAD(Delta norm)", "x"),
    REPORT.replace("= 0.3\n", "= much\n"), "\x00\xff" * 1000,
    REPORT.replace("Data size", "Size")])
def test_report_that_is_not_one(text):
    write(FOUR)
    write(text, "report.txt")
    assert "'report.txt' is not a report of vostrel: no number for '" in failure(
        "--report", "report.txt")


def test_report_of_another_run():
    write(FOUR + "4 1 1\n")
    write(REPORT, "report.txt")
    assert "not of one run" in failure("--report", "report.txt")


@pytest.mark.parametrize("module", ["numpy", "matplotlib"])
def test_missing_module_names_its_package(module, tmp_path):
    write(FOUR)
    elsewhere = tmp_path / "modules"
    elsewhere.mkdir()
    (elsewhere / f"{module}.py").write_text(
        f"raise ModuleNotFoundError('No module', name='{module}')\n")
    environment = {**os.environ, "PYTHONPATH": str(elsewhere),
                   "PYTHONDONTWRITEBYTECODE": "1"}
    assert f"install the Debian package python3-{module}\n" in failure(env=environment)
    assert run("--help", env=environment).returncode == 0


@pytest.mark.parametrize("words", [
    ["--dpi", "0"], ["--dpi", "many"], ["--dpi", "5000"], ["--wrong"], ["a", "b"],
    ["--output"]])
def test_wrong_command_line(words):
    assert "see vostrel-plot --help" in failure(*words)


@pytest.mark.parametrize("ending", ["png", "pdf", "svg"])
def test_disk_that_fills_up_leaves_the_old_figure(ending):
    write(FOUR)
    write("old", f"a.{ending}")

    def limit():
        signal.signal(signal.SIGXFSZ, signal.SIG_IGN)
        resource.setrlimit(resource.RLIMIT_FSIZE, (5000, 5000))

    assert "cannot write" in failure("--output", f"a.{ending}", preexec_fn=limit)
    with open(f"a.{ending}") as stream:
        assert stream.read() == "old"


def test_interruption_leaves_nothing(monkeypatch):
    class Figure:
        def savefig(self, stream, **_):
            stream.write(b"half")
            assert len(os.listdir(".")) == 1
            raise KeyboardInterrupt

    with pytest.raises(KeyboardInterrupt):
        vp.save(Figure(), "a.png", 100)
    assert os.listdir(".") == []
    monkeypatch.setattr(vp, "plot", lambda *_: os.kill(os.getpid(), signal.SIGTERM)
                        or time.sleep(5))
    with pytest.raises(SystemExit) as stop:
        vp.main([])
    assert stop.value.code == 143


def test_not_enough_memory_is_told(monkeypatch, capsys):
    def fail(*_):
        raise MemoryError
    monkeypatch.setattr(vp, "plot", fail)
    assert vp.main([]) == 2
    assert capsys.readouterr().err == "vostrel-plot: not enough memory\n"


# ------------------------------------------------------------- the program

@pytest.mark.parametrize("name, magic", [
    ("a.png", b"\x89PNG"), ("b.PNG", b"\x89PNG"), ("c.pdf", b"%PDF"),
    ("d.svg", b"<?xml")])
def test_format_follows_the_ending(name, magic):
    write(FOUR)
    environment = {k: v for k, v in os.environ.items() if k != "DISPLAY"}
    environment["MPLBACKEND"] = "nonsense"  # a choice that must not matter
    done = run("--output", name, env=environment)
    assert (done.returncode, done.stdout, done.stderr) == (0, "", "")
    assert sorted(os.listdir(".")) == sorted([name, "internal.txt"])
    with open(name, "rb") as stream:
        content = stream.read()
    assert content.startswith(magic)
    assert run("--output", "again" + name, env=environment).returncode == 0
    with open("again" + name, "rb") as stream:
        assert stream.read() == content, "equal data give an equal file"


def test_default_name_permissions_and_size():
    write(FOUR, "other file.txt")
    assert run("other file.txt", "--dpi", "100",
               preexec_fn=lambda: os.umask(0o027)).returncode == 0
    assert os.stat("vostrel.png").st_mode & 0o777 == 0o640
    with open("vostrel.png", "rb") as stream:
        assert int.from_bytes(stream.read(20)[16:], "big") == 345


def test_link_is_written_through():
    write(FOUR)
    os.mkdir("real")
    os.symlink("real/a.png", "a.png")
    assert run("--output", "a.png").returncode == 0
    assert os.path.islink("a.png") and os.listdir("real") == ["a.png"]


def test_a_style_of_the_user_does_not_matter():
    write(FOUR)
    assert run().returncode == 0
    write("figure.figsize: 20, 2\nfont.size: 40\naxes.grid: True\n", "matplotlibrc")
    assert run("--output", "styled.png").returncode == 0
    with open("vostrel.png", "rb") as one, open("styled.png", "rb") as other:
        assert one.read() == other.read()


def test_version_and_help():
    assert run("--version").stdout == f"vostrel-plot {vp.VERSION}\n"
    text = run("--help").stdout
    for word in ("--report", "--output", "--title", "--dpi", "--version", "INTERNAL",
                 "internal.txt", "vostrel.png", "Exit status"):
        assert word in text


def test_titles(figure_of):
    write(FOUR)
    assert by_gid(figure_of(), "title") == []
    for title, shown, mathematics in (
            ("A run", "A run", True), (r"$z_{\rm phot}$", r"$z_{\rm phot}$", True),
            ("costs $5", "costs $5", False), (r"$\nonsense$", r"$\nonsense$", False),
            ("word " * 15, "word " * 9 + "word\n" + "word " * 4 + "word", True)):
        figure = figure_of("--title", title)
        text, = by_gid(figure, "title")
        assert (text.get_text(), text.get_parse_math()) == (shown, mathematics)
        figure.savefig(io.BytesIO(), format="png", dpi=60)


def test_odd_file_names(figure_of):
    name = write(FOUR, "a $b$_" + "c" * 60 + "\n.txt")
    figure = figure_of(name)
    last, = numbers_of(figure)[-1]
    assert by_gid(figure, "numbers")[-1].get_parse_math() is False
    assert last == "numbers computed from a $b$_" + "c" * 11 + "…" + "c" * 13 + "?.txt"
    figure.savefig(io.BytesIO(), format="png", dpi=60)


# --------------------------------------------------------- the look of it

def seen_texts(figure):
    """Return every text that is drawn and the box that it takes."""
    renderer = figure.canvas.get_renderer()
    figure.draw(renderer)
    texts = []
    for text in figure.findobj(match=Text):
        tick = [a for axes in figure.axes for axis in (axes.xaxis, axes.yaxis)
                for t in axis.get_major_ticks() + axis.get_minor_ticks()
                for a in (t.label1, t.label2) if a is text]
        if tick and not any(text in axis.get_ticklabels(minor=minor)
                            and within_view(axis, text) for axes in figure.axes
                            for axis in (axes.xaxis, axes.yaxis)
                            for minor in (False, True)):
            continue
        if text.get_visible() and text.get_text().strip():
            texts.append((text, text.get_window_extent(renderer)))
    return texts


def within_view(axis, label):
    """Return whether the tick LABEL of AXIS lies within the axis' limits."""
    place = label.get_position()[0 if axis.axis_name == "x" else 1]
    low, high = axis.get_view_interval()
    return low <= place <= high


@pytest.mark.parametrize("kind", [
    "points", "density", "wild", "one", "constant", "constant density", "huge",
    "large span", "tiny residual", "negative", "not-a-number", "report"])
def test_no_text_is_clipped_or_overlaps(figure_of, kind):
    zspec, zphot = catalogue(
        20000 if kind in ("density", "wild", "constant density") else 1000)
    words = ["--title", "A title that is long enough to be broken into two lines"]
    if kind == "wild":
        zphot[:5000], zspec[5000] = -99, 1e9
    elif kind == "one":
        zspec, zphot = [0.5], [0.55]
    elif kind.startswith("constant"):
        zspec[:], zphot[:] = 0.5, 0.6
    elif kind == "huge":
        zspec, zphot = 1e100 * zspec, -1e100 * zphot
    elif kind == "large span":
        zspec, zphot = 9000 + 300 * zspec, 9000 + 300 * zphot
    elif kind == "tiny residual":
        zphot = zspec * (1 + 1e-5)
    elif kind == "negative":
        zspec, zphot = -1000 * zspec, -1000 * zphot
    elif kind == "not-a-number":
        zphot[:300], zphot[300:500] = np.nan, -np.inf
    elif kind == "report":
        zspec, zphot = [1] * 4, ZPHOT
        write(REPORT.replace("0.167705", "-1.23457e+123"), "a" * 80)
        words += ["--report", "a" * 80]
    write_table(zspec, zphot)
    figure = figure_of(*words)
    width, height = figure.bbox.width, figure.bbox.height
    texts = seen_texts(figure)
    assert len(texts) > 50
    for text, box in texts:
        assert (box.x0 >= 0 and box.y0 >= 0 and box.x1 <= width
                and box.y1 <= height), f"clipped: {text}"
        assert text.get_fontsize() >= 6 or "^" in text.get_text(), text
    for i, (text, box) in enumerate(texts):
        for other, place in texts[:i]:
            across = min(box.x1, place.x1) - max(box.x0, place.x0)
            down = min(box.y1, place.y1) - max(box.y0, place.y0)
            assert across <= 1 or down <= 1.5, f"{text} overlaps {other}"


# ------------------------------------------------------------- the progress

class Terminal(io.StringIO):
    """A standard error that is a terminal."""

    def isatty(self):
        return True


def test_progress_is_for_a_patient_terminal():
    quick, slow, file = Terminal(), Terminal(), io.StringIO()
    vp.Progress(quick, patience=60).tell("reading")
    assert quick.getvalue() == ""
    vp.Progress(file, patience=0).tell("reading")
    assert file.getvalue() == ""
    progress = vp.Progress(slow, patience=0)
    progress.tell("reading")
    assert slow.getvalue().endswith("vostrel-plot: reading")
    progress.clear()
    assert slow.getvalue().endswith("\r\033[K")


def test_progress_tells_how_far_the_reading_is(monkeypatch):
    class Told(list):
        tell = list.append

    told = Told()
    monkeypatch.setattr(vp, "BLOCK", 25)
    write("0 0.1 0.2\n" * 10)
    vp.read_internal("internal.txt", told)
    assert told == [f"reading internal.txt, {n}%" for n in (30, 60, 90, 100)]


@pytest.mark.parametrize("text, status, last", [
    (FOUR, 0, ""), (FOUR + "4 1", 2, "vostrel-plot: 'internal.txt', line 5: ")])
def test_terminal_is_left_clean(monkeypatch, text, status, last):
    write(text)
    terminal, patient = Terminal(), vp.Progress
    monkeypatch.setattr(sys, "stderr", terminal)
    monkeypatch.setattr(vp, "Progress", lambda: patient(patience=0))
    monkeypatch.setattr(vp, "BLOCK", 8)
    assert vp.main([]) == status
    *told, end = terminal.getvalue().split("\r\033[K")
    assert any("reading" in t for t in told)
    assert end.startswith(last) and bool(end) == bool(last)
