"""The result types: names, printing, conversion."""

import dataclasses
import json
import pickle
import sys
import xml.etree.ElementTree

import numpy as np
import pytest
import vostrel
from data_sets import redshifts
from vostrel import _core
from vostrel._results import NAMES
from vostrel._tables import aligned


@pytest.fixture
def s():
    return vostrel.point_statistics([0.5, 1.0, 1.5, 2.0], [0.4, 1.1, 1.4, 2.3])


def all_results():
    """Every kind of result by name. Some have names and numbers that are long."""
    reference, estimate = redshifts(np.random.default_rng(1), 500)
    tiny = 1e-6 * reference
    u = vostrel.bootstrap(reference, estimate, resamples=20, seed=1)
    bins = vostrel.binned_statistics(tiny, 1e-6 * estimate, bins=15, uncertainties=True)
    estimates = {"A": estimate, "<B> & " * 20: 1.01 * estimate, "C": reference, "D": estimate}
    return {
        "PointStatistics": vostrel.point_statistics(reference, estimate),
        "ResidualStatistics": vostrel.point_statistics(reference, estimate).norm,
        "BinnedStatistics": vostrel.binned_statistics(tiny, 1e-6 * estimate, bins=15),
        "BinnedStatistics with errors": bins,
        "BinnedResidualStatistics": bins.norm,
        "LsstMetrics": vostrel.lsst_metrics(reference, estimate),
        "Uncertainties": u,
        "UncertainResidualStatistics": u.norm,
        "Uncertain": u.norm.nmad,
        "BootstrapDifference":
            vostrel.bootstrap_difference(reference, estimates, resamples=20, seed=1),
    }


RESULTS = all_results()


@pytest.mark.parametrize("name", RESULTS)
def test_shown_in_a_few_lines(name):
    lines = repr(RESULTS[name]).splitlines()
    assert lines[0].startswith(name.partition(" ")[0])
    assert len(lines) <= 12
    assert max(map(len, lines)) <= 100


@pytest.mark.parametrize("name", RESULTS)
def test_shown_in_a_notebook(name):
    table = xml.etree.ElementTree.fromstring(RESULTS[name]._repr_html_())
    assert table.find("caption").text.startswith(name.partition(" ")[0])
    width = len(table.findall("thead/tr/th"))
    assert {len(row) for row in table.findall("tbody/tr")} == {width}


@pytest.mark.parametrize("name", RESULTS)
def test_converted(name):
    result = RESULTS[name]
    frame, table = result.to_frame().reset_index(), result.to_table()
    for column in table.colnames:
        assert frame[column].tolist() == pytest.approx(table[column].tolist(), nan_ok=True)
    json.dumps(result.to_dict())


def test_dict_and_frame_have_the_same_numbers():
    b, u = RESULTS["BinnedStatistics with errors"], RESULTS["Uncertainties"]
    d = RESULTS["BootstrapDifference"]
    assert b.to_frame()["norm_nmad_high"][2] == b.uncertainties[2].norm.nmad.high
    assert b.to_dict()["norm_nmad_high"][2] == b.uncertainties[2].norm.nmad.high
    assert u.to_frame().loc["norm_nmad", "high"] == u.to_dict()["norm_nmad_high"]
    assert d.to_frame().loc[("A - C", "norm_nmad"), "low"] == d["A", "C"].norm.nmad.low
    assert d.to_dict()["A - C"]["norm_nmad_low"] == d["A", "C"].norm.nmad.low


def test_bins_are_chosen():
    columns = [0.5, 1.5, 2.5, np.nan, 3.5, 9.0], [0.5, 1.0, np.nan, 1.0, 3.0, 9.0]
    for policy, n in (("omit", [1, 1, 0, 1]), ("propagate", [1, 1, 1, 1])):
        b = vostrel.binned_statistics(*columns, bins=[0, 1, 2, 3, 4], nan_policy=policy,
                                      uncertainties=True)
        assert b["n"].tolist() == n
        assert np.array_equal(b["norm_nmad"], b.norm.nmad, equal_nan=True)
        assert b["norm_outliers_015_low"][1] == b.uncertainties[1].norm.outliers_015.low
        part = b[1:3]
        assert (part.edges.tolist(), part.counts.tolist()) == ([1, 2, 3], n[1:3])
        assert part[0] == b[1] and part.uncertainties == b.uncertainties[1:3]
        assert (b.n_outside, part.n_outside, part.n_nan) == (1, 3, 2)
        assert (b[-1], len(b[2:1]), b[:].n_outside, b[:2].n_outside) == (b[3], 0, 1, 2)
    for index, error in (("nmad", KeyError), (4, IndexError), (1.5, TypeError)):
        with pytest.raises(error, match="there is no|bins are chosen by"):
            b[index]
    with pytest.raises(ValueError, match="step of a slice of bins must be 1, not -1"):
        b[::-1]


def test_bins_are_printed_with_their_errors():
    reference, estimate = redshifts(np.random.default_rng(1), 500)
    b = vostrel.binned_statistics(reference, estimate, bins=2, uncertainties=True)
    for line, u in zip(str(b).splitlines()[2:], b.uncertainties):
        assert str(u.norm.nmad) in line


def test_an_estimate_behaves_as_a_number():
    u = vostrel.Uncertain(0.021234, 0.0003, 0.02094, 0.02163)
    assert (float(u), f"{u:.3f}", f"{u}") == (0.021234, "0.021", "0.0212 +0.0004 -0.0003")
    assert str(dataclasses.replace(u, reliable=False)) == "0.0212 +0.0004 -0.0003 !"
    assert str(vostrel.Uncertain(0.25, np.nan, np.nan, np.nan, reliable=False)) == "0.25 ?"


def test_names_and_labels_have_the_same_order():
    assert list(zip(NAMES, (row[0] for row in _core.STATISTICS))) == [
        ("bias", "bias"),
        ("sigma", "sigma"),
        ("rms", "RMS"),
        ("mad", "MAD"),
        ("nmad", "NMAD"),
        ("mad_delta", "MAD(Delta)"),
        ("outliers_015", "outliers >0.15"),
        ("outliers_1sigma", "outliers >1sigma"),
        ("outliers_2sigma", "outliers >2sigma"),
        ("outliers_3sigma", "outliers >3sigma"),
        ("outliers_4sigma", "outliers >4sigma"),
    ]


def test_frozen(s):
    with pytest.raises(dataclasses.FrozenInstanceError):
        s.n = 5
    with pytest.raises(dataclasses.FrozenInstanceError):
        s.norm.nmad = 0.0


def test_equal_hashable_and_picklable(s):
    again = pickle.loads(pickle.dumps(s))
    assert again == s
    assert hash(again) == hash(s)
    assert s.norm != s.delta


def test_dict_and_series(s):
    flat = s.to_dict()
    assert list(flat) == ["n", "n_masked", "n_nan"] + [
        f"{part}_{name}"
        for part in ("delta", "norm")
        for name in (*NAMES, "median", "sigma_68", "sigma_iqr")
    ] + ["lsst_bias", "lsst_sigma_iqr", "lsst_sigma_mad", "lsst_outlier_rate"]
    assert flat["norm_nmad"] == s.norm.nmad
    assert flat["delta_outliers_015"] == 25
    series = s.to_series()
    assert series.to_dict() == flat
    assert series.dtype == np.float64


def test_without_pandas(s, monkeypatch):
    monkeypatch.setitem(sys.modules, "pandas", None)
    with pytest.raises(ImportError, match="to_series needs pandas, which is not installed"):
        s.to_series()
    with pytest.raises(ImportError, match="to_frame needs pandas"):
        vostrel.binned_statistics([1.0], [1.0]).to_frame()


def test_decimal_points_are_aligned():
    assert aligned(["1.5", "-0.25", "1e-05", "nan", "100%"]) == [
        "  1.5  ",
        " -0.25 ",
        "  1e-05",
        "nan    ",
        "100%   ",
    ]


def test_notebook_table(s):
    html = s._repr_html_()
    assert html.count("<tr>") == 15
    assert "<th>NMAD</th><td>0.14826</td><td>0.086485</td>" in html
    assert "<th>outliers &gt;0.15</th><td>25%</td><td>0%</td>" in html
    assert "4 objects, 0 masked, 0 with NaN" in html


def test_one_object_is_singular():
    assert str(vostrel.point_statistics([1.0], [1.0])).startswith("1 object, 0 masked")
