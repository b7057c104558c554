"""The figures: what their panels show, and that nothing on them is hidden."""

import math

import matplotlib
import numpy as np
import pytest
import vostrel
from conftest import FOUR, REPORT, ZPHOT, by_gid, catalogue, write, write_table
from matplotlib.colors import LogNorm, to_rgb
from matplotlib.figure import Figure
from matplotlib.text import Text
from vostrel import _core
from vostrel.plot import (
    compare_figure,
    diagnostic_figure,
    plot_estimates,
    plot_residual_histogram,
    plot_residuals,
)
from vostrel.plot._limits import histogram_bins, robust_range, spread_of
from vostrel.plot._objects import objects_of
from vostrel.plot._panels import MANY
from vostrel.plot._running import running
from vostrel.plot._format import MissingGlyphs, at_point, percent, three_digits, wrapped


def note_of(figure):
    """Return the lines of the note in the first panel."""
    (note,) = by_gid(figure, "note")
    return note.get_text().split("\n")


def outside(axes):
    """Return what a panel says about the objects outside it."""
    return [text.get_text() for text in by_gid(axes, "outside")]


@pytest.fixture(scope="module")
def four():
    """Return the figure of the four objects."""
    return diagnostic_figure(np.ones(4), ZPHOT)


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


def test_guide_lines(four):
    panel = four.axes[0]
    x, y = by_gid(panel, "one-to-one")[0].get_data()
    assert x == pytest.approx(y)
    (line,), (objects,) = by_gid(panel, "one-to-one"), by_gid(panel, "objects")
    assert line.get_zorder() < objects.get_zorder(), "it hides no object"
    bounds = by_gid(panel, "bound")
    assert len(bounds) == 2
    reached = sorted(float(((x - y) / (1 + x))[i]) for x, y in
                     (b.get_data() for b in bounds) for i in (0, 1))
    assert reached == pytest.approx([-0.15, -0.15, 0.15, 0.15])


def test_labels(four):
    panels = four.axes
    reference, estimate = r"$z_{\rm spec}$", r"$z_{\rm phot}$"
    norm = r"$(z_{\rm spec}-z_{\rm phot})\,/\,(1+z_{\rm spec})$"
    assert [(a.get_xlabel(), a.get_ylabel()) for a in panels] == [
        (reference, estimate), (norm, "objects per bin"), (reference, norm)]
    legends = [[t.get_text() for t in a.get_legend().get_texts()] for a in panels]
    assert legends == [["one to one", norm + " = ±0.15"],
                       ["bias", "±σ", "±NMAD about 0", "normal (median, 1.4826 MAD(Δ))"],
                       ["running median", "±running NMAD about 0", "±0.15", "68.3 % confidence"]]
    assert note_of(four)[1:3] == [
        r"$\Delta z=z_{\rm spec}-z_{\rm phot}$", r"of $\Delta z/(1+z_{\rm spec})$:"]


def test_histogram_and_its_marks(four):
    panel = four.axes[1]
    counts, edges, _ = by_gid(panel, "histogram")[0].get_data()
    assert counts.sum() == 4
    for low, high, count in zip(edges, edges[1:], counts):
        assert count == sum(low <= x < high for x in (-0.25, 0.05, 0.1, 0.2))
    assert edges[len(edges) // 2 - 1] < 0 < edges[len(edges) // 2], "a bin about zero"
    for gid, places in (
        ("zero", [0]), ("bias", [0.025]), ("sigma", [0.167705, -0.167705]),
        ("nmad", [0.22239, -0.22239]),
    ):
        drawn = [line.get_xdata()[0] for line in by_gid(panel, gid)]
        assert drawn == pytest.approx(places, abs=1e-6), gid
    low, high = panel.get_xlim()
    assert low < -0.25 and high > 0.25
    assert low == -high


def test_width_of_bins():
    """Freedman and Diaconis: 2 IQR / n^(1/3), here 2 * 0.5 / 10 on 1000 values from 0 to 1."""
    spread = spread_of(np.linspace(0, 1, 1000))
    assert histogram_bins(spread, 1000, 1.0) == 21
    assert histogram_bins(spread, 1000, 0.1) == 9
    assert histogram_bins(spread, 1000, 100.0) == 199


@pytest.mark.parametrize("share, log", [(0.005, False), (0.02, True)])
def test_counts_are_logarithmic_when_the_tail_matters(share, log):
    zspec, zphot = catalogue(1000)
    zphot[: int(1000 * share)] += 3
    reach = {}
    for asked, scale in ((None, log), (True, True), (False, False)):
        panel = Figure().add_subplot()
        plot_residual_histogram(panel, zspec, zphot, log=asked)
        assert panel.get_yscale() == ("log" if scale else "linear")
        reach[asked] = panel.get_xlim()[1]
    # On the logarithmic scale there is more of the tail to be seen.
    assert reach[True] >= reach[False]


def test_option_for_logarithmic_counts(figure_of):
    write(FOUR)
    assert figure_of("--log").axes[1].get_yscale() == "log"


def test_a_few_outliers_do_not_squeeze_the_core():
    zspec, zphot = catalogue(500)
    widths = []
    for outliers in (9, 10):
        zphot[:outliers] = zspec[:outliers] + 0.4 * (1 + zspec[:outliers])
        panel = Figure().add_subplot()
        plot_residual_histogram(panel, zspec, zphot)
        assert panel.get_yscale() == "log"
        widths.append(panel.get_xlim()[1])
    assert widths[0] < 0.25 and widths[1] > 0.4


def test_normal_curve_is_not_cut_off():
    panel = Figure().add_subplot()
    drawn = plot_residual_histogram(panel, np.zeros(9), np.linspace(-0.4, 0.4, 9))
    assert max(drawn["histogram"][0].get_data()[0]) == 3
    peak = drawn["normal"][0].get_ydata().max()
    assert 3.9 < peak < panel.get_ylim()[1]


def test_normal_curve_shows_the_core_of_a_biased_estimator():
    """Its centre is the median, its width 1.4826 MAD(Delta), its area that of the histogram."""
    panel = Figure().add_subplot()
    zspec, zphot = catalogue(1001)
    zphot += 0.2 * (1 + zspec)
    drawn = plot_residual_histogram(panel, zspec, zphot, log=False)
    x, y = drawn["normal"][0].get_data()
    _, edges, _ = drawn["histogram"][0].get_data()
    assert np.sum(y) * (x[1] - x[0]) == pytest.approx(1001 * (edges[1] - edges[0]), rel=1e-3)
    norm = (zspec - zphot) / (1 + zspec)
    centre = np.median(norm)
    assert x[np.argmax(y)] == pytest.approx(centre, abs=x[1] - x[0])
    sigma = 1.4826 * np.median(np.abs(norm - centre))
    peak = 1001 * (edges[1] - edges[0]) / (sigma * np.sqrt(2 * np.pi))
    assert np.interp(centre + sigma, x, y) / peak == pytest.approx(np.exp(-0.5), rel=1e-2)


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
    lines = running(objects_of(*catalogue(10000)))
    assert list(lines.counts) == [200] * 50
    zspec, zphot = catalogue(10000)
    order = np.argsort(zspec)
    shares = ((zspec - zphot) / (1 + zspec))[order].reshape(50, 200)
    assert lines.reference == pytest.approx(np.median(zspec[order].reshape(50, 200), axis=1))
    assert list(lines.median) == list(np.median(shares, axis=1))
    assert list(lines.nmad) == list(1.4826 * np.median(np.abs(shares), axis=1))


def test_bands_are_the_intervals_of_the_formulas():
    zspec, zphot = catalogue(10000)
    lines = running(objects_of(zspec, zphot))
    binned = vostrel.binned_statistics(zspec, zphot, bins=("count", 50), uncertainties=True)
    assert lines.nmad.tolist() == binned.norm.nmad.tolist()
    assert lines.nmad_band.T.tolist() == [
        [u.norm.nmad.low, u.norm.nmad.high] for u in binned.uncertainties
    ]
    # The interval of the median has the same ranks: at most 92 heads in 200 throws of a coin have a
    # probability of 14.3 %, at most 93 heads of 17.9 %.
    order = np.argsort(zspec)
    ranked = np.sort(((zspec - zphot) / (1 + zspec))[order].reshape(50, 200))
    assert lines.median_band.tolist() == [ranked[:, 92].tolist(), ranked[:, 107].tolist()]


@pytest.mark.parametrize("count, low", [(3, 0), (8, 2), (9, 2)])
def test_median_bounds_of_few_objects(count, low):
    """At most so many heads: 2 of 8 14.5 %, 3 of 8 36.3 %; 2 of 9 9.0 %, 3 of 9 25.4 %; 0 of 3
    12.5 %.
    """
    zphot = -np.arange(1.0, count + 1)
    lines = running(objects_of(np.zeros(count), zphot))
    assert lines.median_band.ravel().tolist() == [low + 1, count - low]


def test_two_objects_have_no_median_bounds():
    lines = running(objects_of([0.0, 0.0], [-1.0, -2.0]))
    assert lines.median.tolist() == [1.5]
    assert np.isnan(lines.median_band).all() and np.isnan(lines.nmad_band).all()


def test_equal_redshifts_share_a_bin():
    zspec = np.repeat([0.1, 0.2, 0.3], 1000)
    lines = running(objects_of(zspec, zspec - np.tile([0.01, 0.02], 1500) * (1 + zspec)))
    assert list(lines.reference) == [0.1, 0.2, 0.3]
    assert list(lines.counts) == [1000] * 3
    assert lines.median == pytest.approx(0.015)


def test_many_objects_are_a_density(figure_of):
    zspec, zphot = catalogue(MANY + 1)
    write_table(zspec, zphot)
    figure = figure_of()
    assert len(figure.axes) == 4
    assert figure.axes[3].get_ylabel() == "objects per cell, both panels"
    for panel in figure.axes[0], figure.axes[2]:
        image, = by_gid(panel, "objects")
        assert image.get_cmap().name == "cividis"
        assert isinstance(image.norm, LogNorm)
        assert image.get_array().sum() == MANY + 1
        assert image.norm.vmax >= image.get_array().max()


def test_cells_count_each_object_where_it_lies():
    x, y = np.array([0, 0.5, 0.5, 2, 1.99]), np.array([0, 0.1, 0.9, 1, 5.0])
    counts = _core.count_in_cells(x, y, [0, 0.5, 1, 1.5, 2], [0, 0.5, 1])
    assert counts.tolist() == [[1, 1, 0, 0], [0, 1, 0, 1]]


def test_counts_of_more_than_one_block():
    values = np.tile([0.0, 1.0, 2.5, -1.0, np.nan], 2000)
    assert _core.count_in_bins(values, [0, 1, 2]).tolist() == [2000, 2000]
    assert _core.count_in_cells(values, values, [0, 1, 2], [0, 3]).tolist() == [[2000, 2000]]


def test_density_of_one_value_is_visible(figure_of):
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
    panels = figure_of("--no-log").axes
    assert [outside(panel) for panel in panels[:3]] == [
        ["46 outside"], ["46 outside"], ["46 outside (triangles)"]]
    # The object at z_spec 9e9 is beyond the other axis.
    above, below = by_gid(panels[2], "beyond")
    assert set(above.get_ydata()) == {0.97} and set(below.get_ydata()) == {0.03}
    for drawn, objects in ((above, zspec[:40]), (below, zspec[40:45])):
        distances = np.abs(drawn.get_xdata() - objects[:, np.newaxis])
        low, high = panels[2].get_xlim()
        assert (distances.min(axis=1) <= (high - low) / 400).all()
        assert (distances.min(axis=0) <= (high - low) / 400).all()
    for limits in (panels[0].get_xlim(), panels[0].get_ylim(), panels[2].get_xlim()):
        assert -0.5 < limits[0] < 0 and 3 < limits[1] < 6
    assert panels[0].get_xlim() == panels[0].get_ylim()
    for limits in panels[1].get_xlim(), panels[2].get_ylim():
        assert 0.15 < limits[1] < 0.3
    labels = [t.get_text() for t in panels[1].get_legend().get_texts()]
    assert [label[:4] for label in labels] == ["bias", "±σ =", "±NMA", "norm"]
    assert "=" in labels[0] and "=" in labels[1] and "=" not in labels[2]


def test_triangle_at_the_edge_for_an_object_just_beyond_it():
    zspec, zphot = catalogue(400)
    zphot[7] = zspec[7] - 0.25 * (1 + zspec[7])
    panel = Figure().add_subplot()
    (above,) = plot_residuals(panel, zspec, zphot)["beyond"]
    low, high = panel.get_xlim()
    assert 0.15 < panel.get_ylim()[1] < 0.25
    assert above.get_xydata() == pytest.approx(np.array([[zspec[7], 0.97]]), abs=(high - low) / 400)


def test_limits_of_data_that_are_mostly_one_value():
    values = np.r_[np.full(700, 0.5), 0.3, 0.4, 0.7, 5, 1e6]
    assert robust_range(values) == (0.3, 0.7)
    assert robust_range(np.r_[np.full(700, 0.5), 1e6]) == (0.5, 0.5)


def test_limits_never_overflow():
    assert robust_range(np.array([-1e307, 1e307])) == (-1e300, 1e300)


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
    figure.draw_without_rendering()


def test_one_object_in_the_middle(figure_of):
    write("0 0.5 0.55\n")
    figure = figure_of()
    low, high = figure.axes[0].get_xlim()
    assert low < 0.4 and high > 0.65
    lines = note_of(figure)
    assert [lines[0], *lines[3:]] == [
        "$n$ = 1", "NMAD = 0.0494", "bias = −0.0333", "outliers beyond ±0.15: 0\u2009%"]
    assert by_gid(figure.axes[1], "histogram")[0].get_data()[0].sum() == 1
    assert all(tick == int(tick) for tick in figure.axes[1].get_yticks())


# --------------------------------------------------------- what is left out

def test_values_that_are_not_finite_are_left_out_and_counted(figure_of):
    write("0 0.5 0.4\n1 nan 1\n2 1 -nan\n3 inf 1\n4 1 -inf\n5 -1 0.3\n6 nan inf\n"
          "7 1 1.2\n8 inf inf\n9 -1 -1\n")
    figure = figure_of()
    points = by_gid(figure.axes[0], "objects")[0].get_xydata()
    assert points.tolist() == [[0.5, 0.4], [1, 1.2]]
    assert note_of(figure)[0] == "$n$ = 2 (8 left out)"
    assert note_of(figure)[4] == "bias = −0.0167"
    texts = [text.get_text() for text in by_gid(figure_of("--table"), "numbers")]
    assert "left out: 3 with NaN, 5 infinite" in texts


def test_nothing_left_out_is_not_mentioned(four):
    assert not any("left out" in line for line in note_of(four))


def test_file_ends_at_its_first_empty_line(figure_of):
    write(FOUR + "\nnot read any more\n0 1 2\n")
    assert len(by_gid(figure_of().axes[0], "objects")[0].get_xydata()) == 4


# --------------------------------------------------------- layout and legibility


def seen_texts(figure):
    """Return every text that is drawn, and its bounding box."""
    renderer = figure.canvas.get_renderer()
    figure.draw_without_rendering()
    hidden = set()
    for axis in (axis for axes in figure.axes for axis in (axes.xaxis, axes.yaxis)):
        ticks = {text for tick in axis.get_major_ticks() + axis.get_minor_ticks()
                 for text in (tick.label1, tick.label2)}
        seen = {text for minor in (False, True) for text in axis.get_ticklabels(minor=minor)
                if within_view(axis, text)}
        hidden |= ticks - seen
    return [(text, text.get_window_extent(renderer)) for text in figure.findobj(match=Text)
            if text not in hidden and text.get_visible() and text.get_text().strip()]


def within_view(axis, label):
    """Return whether the tick label lies within the limits of its axis."""
    place = label.get_position()[0 if axis.axis_name == "x" else 1]
    low, high = axis.get_view_interval()
    return low <= place <= high


@pytest.mark.parametrize(
    "kind, layout, table",
    [
        ("points", "page", "--no-table"),
        ("points", "column", "--table"),
        ("density", "page", "--table"),
        ("wild", "column", "--table"),
        ("one", "page", "--no-table"),
        ("constant density", "page", "--no-table"),
        ("huge", "column", "--table"),
        ("large span", "page", "--no-table"),
        ("tiny residual", "column", "--table"),
        ("negative", "page", "--no-table"),
        ("NaN", "column", "--table"),
        ("report", "page", "--table"),
    ],
)
def test_no_text_is_clipped_or_overlaps(figure_of, kind, layout, table):
    zspec, zphot = catalogue(
        8000 if kind in ("density", "wild", "constant density") else 1000)
    argv = ["--title", "A title that is long enough to be broken into two lines",
            "--layout", layout, table]
    if kind == "wild":
        zphot[:2000], zspec[2000] = -99, 1e9
    elif kind == "one":
        zspec, zphot = [0.5], [0.55]
    elif kind == "constant density":
        zspec[:], zphot[:] = 0.5, 0.6
    elif kind == "huge":
        zspec, zphot = 1e100 * zspec, -1e100 * zphot
    elif kind == "large span":
        zspec, zphot = 9000 + 300 * zspec, 9000 + 300 * zphot
    elif kind == "tiny residual":
        zphot = zspec * (1 + 1e-5)
    elif kind == "negative":
        zspec, zphot = -1000 * zspec, -1000 * zphot
    elif kind == "NaN":
        zphot[:300], zphot[300:500] = np.nan, -np.inf
    elif kind == "report":
        zspec, zphot = [1] * 4, ZPHOT
        write(REPORT, "a" * 80)
        argv += ["--report", "a" * 80]
    write_table(zspec, zphot)
    check_texts(figure_of(*argv))


def check_texts(figure):
    """Check that texts are within the figure, legible, and apart from each other."""
    width, height = figure.bbox.width, figure.bbox.height
    texts = seen_texts(figure)
    assert len(texts) > 30
    for text, box in texts:
        assert (box.x0 >= 0 and box.y0 >= 0 and box.x1 <= width
                and box.y1 <= height), f"clipped: {text}"
        assert text.get_fontsize() >= 6 or "^" in text.get_text(), text
    for i, (text, box) in enumerate(texts):
        for other, place in texts[:i]:
            across = min(box.x1, place.x1) - max(box.x0, place.x0)
            down = min(box.y1, place.y1) - max(box.y0, place.y0)
            assert across <= 1 or down <= 1.5, f"{text} overlaps {other}"


# ------------------------------------------------------------- the numbers


def test_three_digits():
    for value, text in (
        (0.0305899, "0.0306"), (-0.0250888, "−0.0251"), (0.03, "0.0300"), (100.0, "100"),
        (0.0, "0"), (-0.0, "0"), (12345.0, "1.23×10⁴"), (-2e-7, "−2.00×10⁻⁷"),
        (math.nan, "NaN"), (-math.inf, "−∞"), (4.35, "4.35"),
    ):
        assert three_digits(value) == text
    assert percent(3.15) == "3.15\u2009%"
    assert at_point("−1.23×10⁴") == ("−1", ".23×10⁴")
    assert at_point("100\u2009%") == ("100", "\u2009%")
    assert at_point("0") == ("0", "")


def test_table_aligns_the_decimal_points(figure_of):
    write(FOUR)
    write(REPORT, "report.txt")
    texts = by_gid(figure_of("--table", "--report", "report.txt"), "numbers")
    cells_ = {}
    for text in texts:
        x, y = text.get_position()
        cells_.setdefault(round(y, 6), []).append((x, text.get_ha(), text.get_text()))
    (sigma,) = [row for row in cells_.values() if any(cell[2] == "σ" for cell in row)]
    numbers = [cell for cell in sigma if cell[1] == "right" or cell[2].startswith(".")]
    assert [text for _, _, text in numbers] == ["0", ".335", "0", ".168", "50", ".0\u2009%",
                                                "50", ".0\u2009%"]
    whole = {x for row in cells_.values() for x, ha, text in row if ha == "right"}
    assert len(whole) == 4, "each column has one place for its points"
    assert texts[-1].get_text() == "numbers of the report report.txt"
    assert by_gid(figure_of("--table"), "note") == []


# ------------------------------------------------------------- from Python


def test_sizes():
    zspec, zphot = catalogue(6000)
    for layout, width, highest in (("page", 7.1, 5.0), ("column", 3.45, 7.0)):
        for table in (False, True):
            figure = diagnostic_figure(zspec, zphot, layout=layout, table=table,
                                       title="word " * 20)
            assert figure.get_figwidth() == width
            assert figure.get_figheight() <= highest
    figure = Figure(figsize=(5, 4))
    assert diagnostic_figure(zspec, zphot, figure=figure) is figure
    assert tuple(figure.get_size_inches()) == (5, 4)


def test_a_part_of_a_figure_can_be_drawn_on():
    figure = Figure(figsize=(8, 4))
    left, right = figure.subfigures(1, 2)
    diagnostic_figure(*catalogue(100), figure=left, layout="column", panels=["histogram"])
    compare_figure(catalogue(100)[0], {"one": catalogue(100)[1]}, figure=right)
    assert len(left.axes) == 1 and len(right.axes) == 3
    figure.draw_without_rendering()


def test_panels_can_be_chosen():
    zspec, zphot = catalogue(100)
    for panels in (["estimates"], ["histogram"], ["residuals"], ["residuals", "estimates"]):
        for layout in ("page", "column"):
            figure = diagnostic_figure(zspec, zphot, panels=panels, layout=layout)
            assert len(figure.axes) == len(panels)
    for wrong in ([], ["nothing"], ["histogram", "histogram"]):
        with pytest.raises(ValueError, match="panels must be some of"):
            diagnostic_figure(zspec, zphot, panels=wrong)
    with pytest.raises(ValueError, match="layout must be"):
        diagnostic_figure(zspec, zphot, layout="poster")


def test_panels_on_axes_of_the_caller_change_no_settings():
    zspec, zphot = catalogue(50)
    before = dict(matplotlib.rcParams)
    axes = Figure().subplots(3)
    drawn = plot_estimates(axes[0], zspec, zphot, color="red", note=False, legend=False)
    assert drawn["objects"][0].get_color() == "red"
    assert axes[0].get_legend() is None and by_gid(axes[0], "note") == []
    drawn = plot_residual_histogram(axes[1], zspec, zphot, facecolor="blue")
    assert drawn["histogram"][0].get_facecolor() == (0, 0, 1, 1)
    drawn = plot_residuals(axes[2], zspec, zphot, marker="x", fontsize=5)
    assert drawn["objects"][0].get_marker() == "x"
    assert axes[2].get_legend().get_texts()[0].get_fontsize() == 5
    diagnostic_figure(zspec, zphot)
    assert dict(matplotlib.rcParams) == before


def test_masked_entries_and_nan_are_left_out():
    reference = np.ma.array([0.5, 1.0, 2.0, 3.0], mask=[False, True, False, False])
    figure = diagnostic_figure(reference, [0.4, 1.0, np.nan, 3.5])
    assert by_gid(figure, "objects")[0].get_xydata().tolist() == [[0.5, 0.4], [3, 3.5]]
    with pytest.raises(ValueError, match="no objects with finite values"):
        diagnostic_figure([np.nan], [1.0])
    with pytest.raises(ValueError, match="differ in length"):
        diagnostic_figure([1.0, 2.0], [1.0])


def test_mask_and_nan_policy():
    reference, estimate = [0.5, 1.0, 2.0, 3.0], [0.4, 1.0, np.nan, 3.5]
    mask = [False, True, False, False]
    lines = note_of(diagnostic_figure(reference, estimate, mask=mask, nan_policy="propagate"))
    assert lines[0] == "$n$ = 3 (1 left out)" and "bias = NaN" in lines
    axes = Figure().subplots(3)
    for panel, draw in zip(axes, (plot_estimates, plot_residual_histogram, plot_residuals)):
        draw(panel, reference, estimate, mask=mask)
        with pytest.raises(ValueError, match="nan_policy='omit'"):
            draw(panel, reference, estimate, mask=mask, nan_policy="raise")
    for panel in axes[0], axes[2]:
        assert by_gid(panel, "objects")[0].get_xdata().tolist() == [0.5, 3]
    figure = compare_figure(reference, {"one": estimate}, mask=mask)
    assert "2" in [text.get_text() for text in by_gid(figure, "numbers")]


def estimates_in(kind):
    """Return two estimates of three references in a collection of this kind."""
    columns = {"one": [0.4, 1.1, 1.4], "two": [0.5, 1.2, 1.4]}
    if kind == "mapping":
        return columns
    module = pytest.importorskip(kind)
    return module.DataFrame(columns) if kind == "pandas" else module.Table(columns)


@pytest.mark.parametrize("kind", ["mapping", "pandas", "astropy.table"])
def test_estimators_in_a_collection(kind):
    figure = compare_figure([0.5, 1.0, 1.5], estimates_in(kind))
    texts = [text.get_text() for text in by_gid(figure, "numbers")]
    assert "one" in texts and "two" in texts


def test_figure_shows_itself_in_a_notebook():
    """By the method that IPython calls for an object whose class it doesn't know."""
    for figure in (diagnostic_figure([1.0], [1.5]), compare_figure([1.0], {"one": [1.5]})):
        picture, size = figure._repr_png_()
        assert picture.startswith(b"\x89PNG")
        assert int.from_bytes(picture[16:20], "big") == 2 * size["width"] == 1420


@pytest.mark.parametrize("options, message", [
    ({"labels": "redshift"}, "labels must be two texts"),
    ({"labels": ("a", 1)}, "labels must be two texts"),
    ({"labels": 5}, "labels must be two texts"),
    ({"statistics": 0.05}, "statistics must be what vostrel.point_statistics returns, not float"),
    ({"title": 5}, "title must be a text, not int"),
    ({"panels": None}, "panels must be some of estimates, histogram, residuals, not None"),
    ({"layout": np.ones(9)}, r"layout must be 'page' or 'column', not ndarray of shape \(9,\)"),
    ({"table": "no"}, "table must be True or False, not 'no'"),
    ({"log": np.ones(9)}, "log must be True or False, not ndarray"),
    ({"figure": 3}, "figure must be a Figure or SubFigure of matplotlib, not int"),
])
def test_wrong_option_is_named(options, message):
    with pytest.raises(TypeError, match=message):
        diagnostic_figure([1.0], [1.5], **options)


def test_wrong_order_is_explained():
    with pytest.raises(TypeError, match="axes must be Axes of matplotlib, not list"):
        plot_residuals([1.0], [1.5], None)
    with pytest.raises(ValueError, match="reference and estimate 'one' differ in length: 2 and 1"):
        compare_figure([1.0, 2.0], {"one": [1.0]})
    with pytest.raises(ValueError, match="and estimate 'long long long long long lo...' differ"):
        compare_figure([1.0, 2.0], {"long " * 99: [1.0]})
    with pytest.raises(TypeError, match="a mapping of names .* after the reference"):
        compare_figure({"one": [1.0]}, [1.5])


def test_numbers_of_the_caller_are_shown():
    zspec, zphot = catalogue(100)
    other = vostrel.point_statistics(zspec, zphot + 0.5)
    lines = note_of(diagnostic_figure(zspec, zphot, statistics=other))
    assert lines[3] == f"NMAD = {three_digits(other.norm.nmad)}"


def test_labels_of_other_quantities(figure_of):
    write(FOUR)
    panels = figure_of("--labels", "dose", "predicted $5").axes
    assert panels[0].get_xlabel() == "dose" and panels[0].get_ylabel() == r"predicted \$5"
    assert panels[1].get_xlabel() == r"(dose−predicted \$5)/(1+dose)"
    panels = figure_of("--labels", "a reference with a long name", "b").axes
    assert panels[2].get_ylabel() == "(reference−estimate)/(1+reference)"


@pytest.mark.parametrize("layout", ["page", "column"])
def test_long_names_are_neither_cut_nor_overlap(layout):
    names = ("spectroscopic redshift of the Legacy Survey, ninth data release, quality 4",
             "photometric redshift of a template fit, version 2.3, with $z \\in [0, 3]$ priors")
    zspec, zphot = catalogue(6000)
    zphot[::20] += 1
    figure = diagnostic_figure(zspec, zphot, labels=names, title=30 * "word ", layout=layout)
    check_texts(figure)
    shown = figure.axes[0].get_xlabel(), figure.axes[0].get_ylabel()
    assert tuple(name.replace("\n", " ") for name in shown) == names
    estimates = {f"{i}: {name}": zphot for i, name in enumerate(names)}
    check_texts(compare_figure(zspec, estimates, labels=names, layout=layout))


def test_names_break_at_spaces_outside_of_mathematics():
    """At 7 points a letter is about a twentieth of an inch wide."""
    assert wrapped("one two three", 0.5, 7) == "one two\nthree"
    assert wrapped("at $x + y + z = 0$ here", 0.4, 7) == "at\n$x + y + z = 0$\nhere"
    assert wrapped("abcdefghijkl", 0.5, 7).replace("\n", "") == "abcdefghijkl"
    assert "\n" in wrapped("abcdefghijkl", 0.5, 7)
    assert wrapped("a b c d e f", 0.05, 7, most=3) == "a\nb\nc…"


def test_characters_without_glyphs_are_named():
    with pytest.warns(MissingGlyphs, match="the font has no 測 光; add a font"):
        diagnostic_figure([1.0], [1.5], labels=("z", "z 測光測"))


@pytest.mark.parametrize("style", ["dark_background", "Solarize_Light2", "ggplot", "grayscale"])
def test_lines_stand_out_in_every_style(style):
    """Against the paper, by the contrast ratio of the web's accessibility guidelines."""
    def brightness(colour):
        linear = [c / 12.92 if c <= 0.03928 else ((c + 0.055) / 1.055) ** 2.4
                  for c in to_rgb(colour)]
        return np.dot(linear, (0.2126, 0.7152, 0.0722))

    zspec, zphot = catalogue(400)
    with matplotlib.style.context(style):
        one = diagnostic_figure(zspec, zphot)
        eight = compare_figure(zspec, {str(i): zphot for i in range(8)})
    for axes in one.axes + eight.axes:
        paper = brightness(axes.get_facecolor())
        for line in axes.get_lines():
            light = sorted((brightness(line.get_color()), paper))
            assert (light[1] + 0.05) / (light[0] + 0.05) > 1.9, (line.get_gid(), line.get_color())


def test_running_lines_and_bands_are_steps():
    """Redshifts of one digit give bins of very different counts, and slopes would be diamonds."""
    zspec, zphot = catalogue(3000)
    drawn = plot_residuals(Figure().add_subplot(), np.round(zspec, 1), zphot)
    for line in drawn["running median"] + drawn["running NMAD"]:
        assert line.get_drawstyle() == "steps-mid"
    for band in drawn["band"]:
        (path,) = band.get_paths()
        x, y = path.vertices.T
        assert ((np.diff(x) == 0) | (np.diff(y) == 0)).all()


# ------------------------------------------------------------- several estimators


def test_comparison(figure_of):
    zspec, zphot = catalogue(2000)
    write_table(zspec, zphot, "a")
    write_table(zspec, 2 * zphot - zspec, "b")
    figure = figure_of("--compare", "one=a", "two=b")
    medians, nmads, histograms = figure.axes
    for axes, name in ((medians, "median"), (nmads, "nmad")):
        one, two = by_gid(axes, "running")
        lines = running(objects_of(*_rounded(zspec, zphot)))
        assert one.get_ydata() == pytest.approx(getattr(lines, name))
        for look in "linestyle", "marker", "color":
            assert getattr(one, f"get_{look}")() != getattr(two, f"get_{look}")()
        assert len(by_gid(axes, "band")) == 2
    assert [np.nansum(h.get_ydata()) for h in by_gid(histograms, "histogram")] == [2000, 2000]
    (legend,) = figure.legends
    assert [t.get_text() for t in legend.get_texts()] == ["one", "two", "68.3 % confidence"]
    norm = r"$\Delta z/(1+z_{\rm spec})$"
    assert histograms.get_xlabel() == rf"{norm}, $\Delta z=z_{{\rm spec}}-z_{{\rm phot}}$"
    assert [axes.get_ylabel() for axes in figure.axes] == [
        f"running median of\n{norm}", f"running NMAD of\n{norm}", "objects per bin"]
    texts = [text.get_text() for text in by_gid(figure, "numbers")]
    assert texts[0] == (r"$\Delta z=z_{\rm spec}-z_{\rm phot}$; NMAD, bias, and outliers beyond "
                        r"±0.15, of $\Delta z/(1+z_{\rm spec})$")
    assert texts[1:7] == ["estimator", "$n$", "NMAD", "bias", "outliers", "one"]
    assert "2,000" in texts and "two" in texts
    assert by_gid(figure_of("--compare", "one=a", "--no-table"), "numbers") == []


def _rounded(*columns):
    """Return the columns with the six digits of a file."""
    return [np.array([float(f"{value:g}") for value in column]) for column in columns]


@pytest.mark.parametrize("layout", ["page", "column"])
def test_comparison_hides_nothing(layout):
    zspec, zphot = catalogue(3000)
    estimates = {f"estimator {i}": zphot + 0.02 * i * (1 + zspec) for i in range(8)}
    figure = compare_figure(zspec, estimates, layout=layout, title="A title")
    check_texts(figure)
    with pytest.raises(ValueError, match="1 to 8 estimators"):
        compare_figure(zspec, {})
