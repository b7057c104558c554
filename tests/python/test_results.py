"""The result types: names, printing, conversion."""

import dataclasses
import pickle
import sys

import numpy as np
import pytest
import vostrel
from vostrel import _core
from vostrel._results import NAMES, aligned


@pytest.fixture
def s():
    return vostrel.point_statistics([0.5, 1.0, 1.5, 2.0], [0.4, 1.1, 1.4, 2.3])


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
        f"{part}_{name}" for part in ("delta", "norm") for name in NAMES
    ]
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
    assert html.count("<tr>") == 12
    assert "<th>NMAD</th><td>0.14826</td><td>0.086485</td>" in html
    assert "<th>outliers &gt;0.15</th><td>25%</td><td>0%</td>" in html
    assert "4 objects, 0 masked, 0 with NaN" in html


def test_one_object_is_not_plural():
    assert str(vostrel.point_statistics([1.0], [1.0])).startswith("1 object, 0 masked")
