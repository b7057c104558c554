"""What the command prints and writes, and the examples of its help and of its manual."""

import csv
import io
import json
import os
import pathlib
import re
import shlex
import subprocess
import sys

import h5py
import numpy as np
import pandas as pd
import pytest
import vostrel
from astropy.table import Table
from vostrel.evaluate import _command
from vostrel.evaluate._formats import FORMATS

SOURCE = pathlib.Path(__file__).resolve().parents[2]

# Four objects of reference 1, with residuals 0.1, 0.2, 0.4 and -0.5, and one object to be left out
# for each reason.
SMALL = """zspec,zphot,imag
1,0.9,20
1,0.8,21
1,0.6,22
1,1.5,23
1,1,99
1,,20
1,-99,20
1,nan,20
"""


@pytest.fixture
def small():
    pathlib.Path("cat.csv").write_text(SMALL)
    return "cat.csv", "zspec", "zphot", "--where", "imag < 50", "--missing", "-99"


@pytest.fixture
def survey(columns):
    pd.DataFrame(columns).to_csv("survey.csv", index=False)
    return columns


def test_text(evaluate, small):
    assert evaluate(*small, "--by", "imag", "--bins", "20,22,30") == f"""\
vostrel {vostrel.__version__}: cat.csv
columns: reference zspec, estimate zphot, by imag
delta = reference - estimate, delta norm = delta / (1 + reference)
selected: imag < 50
missing: -99
8 rows read, 1 not selected, 1 masked, 1 missing, 1 with NaN, 4 used
zphot: 1 masked, 1 missing, 1 with NaN

zphot: 4 objects
                      delta  delta norm
bias               0.05        0.025
sigma              0.33541     0.167705
RMS                0.339116    0.169558
MAD                0.3         0.15
NMAD               0.44478     0.22239
MAD(Delta)         0.15        0.075
outliers >0.15    75%         50%
outliers >1sigma  50%         50%
outliers >2sigma   0%          0%
outliers >3sigma   0%          0%
outliers >4sigma   0%          0%
median             0.15        0.075
sigma_68           0.258       0.129
sigma_IQR          0.222387    0.111193

zphot: delta norm in bins of imag
imag from  to  n    bias  sigma      NMAD  outliers >0.15
       20  22  2   0.075  0.025  0.111195              0%
       22  30  2  -0.025  0.225  0.333585            100%
"""


def test_json(evaluate, small):
    found = json.loads(evaluate(*small, "--format", "json"))
    assert found["rows"] == {
        "read": 8, "not_selected": 1, "masked": 1, "missing": 1, "nan": 1, "used": 4,
        "columns": {
            "zspec": {"masked": 0, "missing": 0, "nan": 0},
            "zphot": {"masked": 1, "missing": 1, "nan": 1},
        },
    }
    # (estimate - reference) / (1 + reference) is -0.05, -0.1, -0.2 and 0.25.
    values = {one["statistic"]: one for one in found["statistics"] if one["residual"] == "lsst"}
    assert [values[name]["value"] for name in values] == pytest.approx(
        [-0.075, 0.15 / 1.349, 1.4826 * 0.075, 0], abs=1e-15
    )
    assert list(values) == ["bias", "sigma_iqr", "sigma_mad", "outlier_rate"]


def test_json_has_no_nan_among_the_missing_values(evaluate, small):
    found = json.loads(evaluate(*small, "--missing", "nan", "--missing", "inf", "--format", "json"))
    assert found["missing"] == [-99, None, None]
    assert (found["rows"]["missing"], found["rows"]["nan"]) == (2, 0)


def test_formulas_do_not_compare_estimates(evaluate, survey):
    words = ["survey.csv", "zspec", "zphot", "forest", "--errors"]
    reason = "; differences of estimates have none: --errors bootstrap compares them\n"
    assert reason in evaluate(*words, "formula")
    out = evaluate(*words, "bootstrap", "--resamples", "20")
    assert reason not in out and "differences of delta norm" in out


def test_table_is_what_the_program_reads(evaluate, small):
    evaluate(*small, "--table", "table.csv")
    assert pathlib.Path("table.csv").read_text() == (
        "0,1,0.90000000000000002\n1,1,0.80000000000000004\n2,1,0.59999999999999998\n3,1,1.5\n"
    )
    words = [os.environ["VOSTREL"], "--stats", "table.csv", "report.txt", "0", "2", "3"]
    assert subprocess.run(words, capture_output=True).returncode == 0
    report = vostrel.read_report("report.txt")
    assert (report.n, report.delta.nmad, report.norm.outliers_015) == (4, 0.44478, 50)


def values(text, estimate, edge=""):
    """The numbers of the output of --format csv, under flat names, as text."""
    return {
        f"{row['residual']}_{row['statistic']}": row
        for row in csv.DictReader(io.StringIO(text))
        if row["estimate"] == estimate and row["from"] == edge and row["residual"]
    }


@pytest.mark.parametrize("place", [0, 2000, 2900])
def test_several_estimates_are_judged_on_the_same_objects(evaluate, survey, place):
    survey["forest"][place : place + 100] = np.nan
    table = pd.DataFrame(survey)
    for name, part in [("first.hdf5", table[:1000]), ("second.hdf5", table[1000:])]:
        with h5py.File(name, "w") as file:
            file.update({column: part[column].to_numpy() for column in part})
    used = table.dropna()
    s = vostrel.point_statistics(used["zspec"], used["zphot"])
    # Only the used objects need memory: more would be refused.
    memory = str((len(table) - 50) * 24 / 2**30)
    for words in ([], ["--errors", "formula", "--memory", memory], ["--memory", "0"]):
        found = json.loads(evaluate(
            "first.hdf5", "second.hdf5", "zspec", "zphot", "forest", "--format", "json", *words
        ))
        assert (found["rows"]["nan"], found["rows"]["columns"]["forest"]["nan"]) == (100, 100)
        (nmad,) = [
            one["value"] for one in found["statistics"]
            if (one["estimate"], one["residual"], one["statistic"]) == ("zphot", "norm", "nmad")
        ]
        assert (found["rows"]["used"], nmad) == (s.n, s.norm.nmad)


@pytest.mark.parametrize("bins, same", [
    ("18,20,22", [18, 20, 22]), ("4", 4), ("count:4", ("count", 4)),
])
def test_bins(evaluate, survey, bins, same):
    out = evaluate("survey.csv", "zspec", "zphot", "--by", "imag", "--bins", bins,
                   "--format", "csv", "--errors", "formula")
    b = vostrel.binned_statistics(survey["zspec"], survey["zphot"], survey["imag"], bins=same)
    for i, statistics in enumerate(b):
        rows = values(out, "zphot", repr(float(b.edges[i])))
        inside = (survey["imag"] >= b.edges[i]) & (survey["imag"] < b.edges[i + 1])
        if i == len(b) - 1:
            inside |= survey["imag"] == b.edges[-1]
        u = vostrel.uncertainties(survey["zspec"][inside], survey["zphot"][inside])
        assert float(rows["norm_nmad"]["value"]) == statistics.norm.nmad
        assert float(rows["norm_nmad"]["error"]) == u.norm.nmad.error


@pytest.mark.parametrize("words", [
    [], ["--memory", "0"], ["--errors", "formula"], ["--errors", "bootstrap", "--resamples", "20"],
])
def test_percentiles_and_outliers(evaluate, small, words):
    # The normalized residuals are 0.05 and 0.1 in the first bin, 0.2 and -0.25.
    out = evaluate(*small, "--by", "imag", "--bins", "20,22,30", "--format", "csv", *words,
                   "--percentiles", "25,50", "--outliers", "0.07,0.22")
    expected = {"": (-0.025, 0.075, 75, 25), "20.0": (0.0625, 0.075, 50, 0)}
    for edge, numbers in expected.items():
        rows = values(out, "zphot", edge)
        names = ("norm_p25", "norm_p50", "norm_outliers_0.07", "norm_outliers_0.22")
        found = [float(rows[name]["value"]) for name in names]
        assert found == pytest.approx(numbers, abs=1e-12)


def test_errors_of_percentiles_and_outliers(evaluate, survey):
    words = ["survey.csv", "zspec", "zphot", "--percentiles", "16", "--outliers", "0.2"]
    out = evaluate(*words, "--errors", "formula", "--format", "csv")
    u = vostrel.uncertainties(survey["zspec"], survey["zphot"], percentiles=16, outliers=0.2)
    rows = values(out, "zphot")
    assert float(rows["norm_p16"]["error"]) == u.norm.percentiles[16].error
    assert float(rows["norm_outliers_0.2"]["high"]) == u.norm.outliers[0.2].high
    out = evaluate(*words, "--errors", "formula")
    assert re.search(r"^sigma_68 .* \?$", out, re.MULTILINE)
    assert "?: the error is not known; --errors bootstrap knows them" in out
    out = evaluate(*words, "--errors", "bootstrap", "--resamples", "20", "--seed", "1",
                   "--format", "csv")
    u = vostrel.bootstrap(survey["zspec"], survey["zphot"], percentiles=16, outliers=0.2,
                          resamples=20, seed=1)
    rows = values(out, "zphot")
    assert float(rows["norm_p16"]["error"]) == u.norm.percentiles[16].error
    assert float(rows["delta_sigma_68"]["low"]) == u.delta.sigma_68.low


def test_bootstrap(evaluate, survey):
    words = ["survey.csv", "zspec", "zphot", "forest", "--errors", "bootstrap", "--groups", "field",
             "--resamples", "100", "--seed", "7", "--confidence", "0.9", "--format", "csv"]
    out = evaluate(*words)
    d = vostrel.bootstrap_difference(
        survey["zspec"], {"zphot": survey["zphot"], "forest": survey["forest"]},
        resamples=100, confidence=0.9, groups=survey["field"], seed=7,
    )
    for name, u in [("zphot", d["zphot"]), ("zphot - forest", d["zphot", "forest"])]:
        row = values(out, name)["norm_nmad"]
        found = [float(row[key]) for key in ("value", "error", "low", "high")]
        one = u.norm.nmad
        assert found == [one.value, one.error, one.low, one.high]


def test_bins_that_have_no_errors(evaluate):
    pathlib.Path("t.csv").write_text("z,p,f\n1,1,a\n1,2,a\n2,2,a\n2,3,b\n")
    words = ("--bins", "1,1.5,2,3", "--errors", "bootstrap", "--groups", "f", "--seed", "1")
    out = evaluate("t.csv", "z", "p", "--format", "csv", *words)
    errors = [values(out, "p", edge)["delta_bias"]["error"] for edge in ("1.0", "1.5", "2.0")]
    assert [error != "" for error in errors] == [False, False, True]
    evaluate("t.csv", "z", "p", *words)


@pytest.mark.parametrize("bins", [[], ["--bins", "18,20,22"], ["--bins", "3"]])
def test_large_tables_are_read_in_passes(evaluate, survey, bins):
    words = ["survey.csv", "zspec", "zphot", "forest", "--by", "imag", *bins, "--format", "csv"]
    where = ["--where", "quality > 0", "--table", "table.csv"]
    rows = list(csv.DictReader(io.StringIO(evaluate(*words, *where))))
    table = pathlib.Path("table.csv").read_text()
    in_passes = list(csv.DictReader(io.StringIO(evaluate(*words, *where, "--memory", "0.00001"))))
    assert len(rows) == len(in_passes) > 40
    for row, other in zip(rows, in_passes):
        assert float(row.pop("value")) == pytest.approx(float(other.pop("value")), abs=1e-12)
        assert row == other
    assert pathlib.Path("table.csv").read_text() == table


NAMES = ["z,ref", 'z"phot', "<script>", "50%_$x&y#{~^\\}", "naïve|z*`"]


@pytest.mark.parametrize("form", sorted(FORMATS))
def test_odd_names_in_every_format(evaluate, form):
    table = pd.DataFrame([[1, 0.9, 1.1, 0.8, 1.5], [2, 2.2, 1.7, 1.8, 2.1]], columns=NAMES)
    table.to_csv("t.csv", index=False)
    out = evaluate("t.csv", *NAMES, "--format", form, "--output", "out")
    assert out == ""
    text = pathlib.Path("out").read_text()
    if form == "json":
        assert json.loads(text)["columns"]["estimates"] == NAMES[1:]
    elif form in ("csv", "ecsv"):
        read = Table.read("out", format=f"ascii.{form}")
        assert list(dict.fromkeys(read["estimate"])) == NAMES[1:]
        assert read["value"][0] == 2
    elif form == "latex":
        assert r"z\_" not in text and r"50\%\_\$x\&y\#\{\textasciitilde{}\textasciicircum{}" in text
    elif form == "markdown":
        assert r"| \<script\> |" in text and r"naïve\|z\*\`" in text
    else:
        assert "<script>" in text


def test_latex_is_typeset(evaluate, small):
    out = evaluate(*small, "--format", "latex", "--errors", "formula")
    halves = r"\^\{\+[\d.]+\}_\{-[\d.]+\}\$"
    assert re.search(r"outliers \\textgreater\{\}0\.15 & \$\d+" + halves + r"\\%( !)? & ", out)
    assert re.search(r"bias & \$0\.\d+" + halves + "( !)? & ", out)


@pytest.fixture
def tables(columns):
    """The tables of the examples."""
    names = {**columns, "template": columns["zphot"], "network": columns["forest"]}
    pd.DataFrame(names).to_csv("cat.csv", index=False)
    table = Table(names)
    for name in ("cat.hdf5", "big.hdf5"):
        with h5py.File(name, "w") as file:
            for column, numbers in names.items():
                file[column] = numbers
    table["Z_SPEC"], table["Z_PHOT"] = table["zspec"], table["zphot"]
    for name in ("survey.fits", "tile_1.fits", "tile_2.fits"):
        table.write(name)


def commands(text):
    lines = text.replace("\\\n", " ").split("\n")
    return [line.strip() for line in lines if line.strip().startswith("vostrel-evaluate ")]


IN_HELP = commands(_command.EXAMPLES)
MANUAL = (SOURCE / "docs" / "vostrel-evaluate.1.in").read_text().replace("\\-", "-")
IN_MANUAL = commands(MANUAL.split("\n.SH EXAMPLES")[1])


@pytest.mark.parametrize("line", [*IN_HELP, *IN_MANUAL])
def test_examples(evaluate, tables, line):
    words = shlex.split(line)[1:]
    if "bootstrap" in words:
        words += ["--resamples", "20"]
    out = evaluate(*words)
    assert out or pathlib.Path(words[words.index("--output") + 1]).stat().st_size


def test_help():
    words = [sys.executable, "-m", "vostrel", "--help"]
    run = subprocess.run(words, capture_output=True, text=True)
    assert (run.returncode, run.stderr) == (0, "")
    assert len(IN_HELP) == 8 and _command.EXAMPLES in run.stdout


def test_import_of_vostrel_does_not_load_this():
    code = "import sys, vostrel; print([m for m in sys.modules if 'evaluate' in m])"
    run = subprocess.run([sys.executable, "-c", code], capture_output=True, text=True)
    assert run.stdout == "[]\n"


@pytest.mark.parametrize("argv, original, threads", [
    (["/usr/bin/vostrel-evaluate"], ["python3", "/usr/bin/vostrel-evaluate", "cat.csv"], "1"),
    (["-m"], ["python3", "-X", "dev", "-m", "vostrel", "cat.csv"], "1"),
    (["-m"], ["python3", "-m", "other", "vostrel"], None),
    (["-m"], ["python3", "-mother"], None),
    (["-c"], ["python3", "-c", "import vostrel"], None),
    ([], [], None),
])
def test_only_the_program_limits_the_threads_of_blas(argv, original, threads):
    code = (f"import os, sys; sys.argv, sys.orig_argv = {argv}, {original}; import vostrel; "
            "print(os.environ.get('OPENBLAS_NUM_THREADS'))")
    env = {name: value for name, value in os.environ.items() if name != "OPENBLAS_NUM_THREADS"}
    words = [sys.executable, "-c", code]
    assert subprocess.run(words, capture_output=True, env=env, text=True).stdout == f"{threads}\n"
