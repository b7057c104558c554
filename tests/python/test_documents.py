"""The examples of the docstrings, of README.md, docs/python.md and docs/conventions.md."""

import doctest
import importlib
import os
import pathlib
import re
import shutil
import subprocess
import sys

import numpy as np
import pandas as pd
import pytest
import vostrel
from astropy.table import MaskedColumn, Table
from data_sets import redshifts

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "python.md"
CONVENTIONS = DOCUMENT.with_name("conventions.md")
README = (DOCUMENT.parents[1] / "README.md").read_text()
FIRST_STEPS = README.split("## First steps")[1].split("\n## ")[0]
MODULES = [
    "vostrel._binned", "vostrel._bootstrap", "vostrel._lsst", "vostrel._point", "vostrel._results",
    "vostrel._chunked", "vostrel._accumulator", "vostrel._uncertainties", "vostrel.dask", "vostrel",
]


@pytest.mark.parametrize("name", MODULES)
def test_examples_of_docstrings(name):
    failures, tried = doctest.testmod(importlib.import_module(name))
    assert (failures, tried > 0) == (0, True)


@pytest.fixture
def installed(tmp_path, monkeypatch):
    """A folder with the example table, and the three commands on the path."""
    (tmp_path / "examples").symlink_to(DOCUMENT.parents[1] / "examples")
    (tmp_path / "bin").mkdir()
    (tmp_path / "bin" / "vostrel").symlink_to(os.environ["VOSTREL"])
    for command, module in [("plot", "vostrel.plot"), ("evaluate", "vostrel")]:
        script = tmp_path / "bin" / f"vostrel-{command}"
        script.write_text(f'#!/bin/sh\nexec "{sys.executable}" -m {module} "$@"\n')
        script.chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path / 'bin'}:{os.environ['PATH']}")
    monkeypatch.chdir(tmp_path)


def test_shell_lines_of_the_readme(installed):
    lines = re.findall(r"^    (.*)$", FIRST_STEPS, re.M)
    commands, shown = lines[:4], "".join(line + "\n" for line in lines[4:])
    script = "set -e\n" + "\n".join(commands)
    run = subprocess.run(["bash", "-c", script], capture_output=True, text=True)
    assert (run.returncode, run.stderr) == (0, "")
    assert run.stdout.startswith(shown) and shown.count("\n") == 12
    assert "of both residuals for the 1958 objects" in FIRST_STEPS.replace("\n", " ")
    assert "zphot: 1958 objects\n" in run.stdout[len(shown) :]
    assert pathlib.Path("figure.png").read_bytes().startswith(b"\x89PNG")


def test_shell_lines_of_the_figure(installed):
    shutil.copy("examples/redshifts.csv", "catalogue.csv")
    manual = DOCUMENT.with_name("vostrel-plot.1.in").read_text().replace("\\-", "-")
    lines = re.findall(r"^(vostrel.*)$", manual.split("\n.SH EXAMPLES")[1], re.M)
    text = DOCUMENT.with_name("plot.md").read_text()
    assert lines[:2] == re.findall(r"^    (vostrel .*|vostrel-plot --.*)$", text, re.M)
    lines.insert(2, "mkdir a b && cp internal.txt a && cp internal.txt b")
    run = subprocess.run(["sh", "-ec", "\n".join(lines)], capture_output=True, text=True)
    assert (run.returncode, run.stderr) == (0, "")
    assert pathlib.Path("figure.pdf").read_bytes().startswith(b"%PDF")
    assert pathlib.Path("vostrel.png").read_bytes().startswith(b"\x89PNG")


def test_python_lines_of_the_readme(installed, capsys):
    code, shown = re.findall(r"```(?:python|text)\n(.*?)```", FIRST_STEPS, re.DOTALL)
    assert code.count("\n") == 4
    exec(code, {})
    assert capsys.readouterr().out == shown


def test_python_of_the_demo(installed):
    demo = (DOCUMENT.parents[1] / "scripts" / "demo").read_text()
    code = re.search(r"<<'END'\n(.*?)\nEND\n", demo, re.DOTALL)[1]
    table = "examples/redshifts.csv"
    subprocess.run(["vostrel", "--stats", table, "report.txt", "0", "2", "3"], check=True)
    run = subprocess.run([sys.executable, "-c", code, table], capture_output=True, text=True)
    assert run.stderr == "" and run.stdout.endswith(" to its six digits.\n")


def recipe(title, **names):
    """Runs the code below a title, and returns the names that it leaves."""
    section = DOCUMENT.read_text().split(f"\n## {title}\n")[1].split("\n## ")[0]
    code = "\n".join(re.findall(r"```python\n(.*?)```", section, re.DOTALL))
    exec(compile(code, title, "exec"), names)
    return names


@pytest.fixture
def columns(rng, tmp_path, monkeypatch):
    monkeypatch.chdir(tmp_path)
    return redshifts(rng, 500)


def test_versions_are_those_that_are_installed_from_pypi():
    table = DOCUMENT.read_text().partition("| | oldest |")[2].partition("\n\n")[0]
    rows = [line.strip("| ").split(" | ") for line in table.splitlines()[2:]]
    assert len(rows) >= 12
    for packages, oldest, _, newest in rows:
        # "RAIL (pz-rail-base)" is the package pz-rail-base.
        names = [name.rpartition("(")[2].strip(")") for name in packages.lower().split(", ")]
        for list_name, versions in (("oldest.txt", oldest), ("newest.txt", newest)):
            text = (DOCUMENT.parents[1] / "packaging" / "environments" / list_name).read_text()
            known = [re.findall(rf"^{name}==(\S+)", text, re.MULTILINE) for name in names]
            found = {version for versions in known for version in versions}
            assert found == set(versions.split(", ")) - {"-"}, (packages, list_name)


def test_first_example():
    code = re.search(r"```python\n(.*?)```", DOCUMENT.read_text(), re.DOTALL)[1]
    names = {}
    exec(code, names)
    assert f"{names['s'].norm.nmad:.6g}" == "0.086485"


def test_pandas_recipe(columns):
    z_spec, z_phot = columns
    z_phot[::50] = np.nan
    pd.DataFrame({"z_spec": z_spec, "z_phot": z_phot}).to_csv("catalogue.csv", index=False)
    s = recipe("A table through pandas")["s"]
    assert (s.n, s.n_nan) == (490, 10)
    saved = pd.read_csv("statistics.csv", index_col=0, float_precision="round_trip").iloc[:, 0]
    assert saved["norm_nmad"] == s.norm.nmad


def test_fits_recipe(columns, capsys):
    z_spec, z_phot = columns
    masked = MaskedColumn(z_phot, mask=z_spec > 2)
    quality = np.arange(500) % 5
    Table({"Z_SPEC": z_spec, "Z_PHOT": masked, "quality": quality}).write("catalogue.fits")
    s = recipe("A FITS table with masks")["s"]
    used = (quality >= 3) & ~(z_spec > 2)
    assert s.norm == vostrel.point_statistics(z_spec[used], z_phot[used]).norm
    assert (s.n, s.n_masked) == (used.sum(), 500 - used.sum())
    assert f"of {s.n} objects" in capsys.readouterr().out


def test_magnitude_recipe(columns, rng):
    magnitude = rng.uniform(18, 24, 500)
    names = recipe("Bins of magnitude", z_spec=columns[0], z_phot=columns[1], magnitude=magnitude)
    faint = magnitude >= 22
    expected = vostrel.point_statistics(columns[0][faint], columns[1][faint])
    assert names["faintest"] == expected
    assert pd.read_csv("bins.csv")["n"].sum() == 500


def test_results_recipe(columns, capsys):
    names = recipe("What comes out", z_spec=columns[0], z_phot=columns[1])
    u = names["u"].norm.nmad
    assert len(names["table"]) == 10 and len(names["faint"]) == 5
    assert capsys.readouterr().out.endswith(f"{u}\n{float(u):.3f}, at least {u.low:.3f}\n")


def test_estimators_recipe(columns, capsys):
    z_spec, z_phot = columns
    names = recipe(
        "Three estimators in one frame",
        z_spec=z_spec,
        template=z_phot,
        forest=z_spec + (z_phot - z_spec) / 2,
        network=z_spec,
    )
    assert names["best"] == "network"
    assert names["frame"].loc["n"].tolist() == [500, 500, 500]
    assert "norm_outliers_015" in capsys.readouterr().out


def test_metrics_recipe(columns, capsys):
    m = recipe("The survey's metrics", z_spec=columns[0], z_phot=columns[1])["m"]
    assert m.n == 500
    assert f"sigma_MAD {m.sigma_mad:.4f}" in capsys.readouterr().out


def test_further_numbers_recipe(columns):
    title = "Percentiles, other bounds, LSST's metrics"
    names = recipe(title, z_spec=columns[0], z_phot=columns[1])
    s, flat = names["s"], names["flat"]
    assert flat["norm_p16"] == s.norm.percentiles[16]
    assert flat["norm_outliers_0.2"] == s.norm.outliers[0.2]
    assert flat["lsst_bias"] == s.lsst.bias == -s.norm.median


@pytest.fixture
def conventions(columns):
    """The names that the code of docs/conventions.md leaves, and r."""
    names = {"z_spec": columns[0], "z_phot": columns[1] + 0.03}
    code = "\n".join(re.findall(r"```python\n(.*?)```", CONVENTIONS.read_text(), re.DOTALL))
    exec(compile(code, CONVENTIONS.name, "exec"), names)
    return {**names, "r": -names["e"]}


def test_each_convention_is_the_number_of_numpy(conventions):
    lines = re.findall(r"^\| .* \| `(.*)` \| `(.*)` \|$", CONVENTIONS.read_text(), re.M)
    assert len(lines) >= 15
    for ours, numpys in lines:
        value = eval(numpys, conventions)
        assert eval(ours, conventions) == pytest.approx(value, rel=1e-12, abs=0), ours
        assert value != 0, numpys


def test_recipes_of_conventions(conventions):
    e, sigma_68, scale = (conventions[name] for name in ("e", "sigma_68", "scale"))
    assert sigma_68 == pytest.approx(np.subtract(*np.percentile(e, [84.175, 15.925])) / 2)
    assert conventions["beyond_2"] == pytest.approx(100 * np.mean(abs(e) > 2 * sigma_68))
    assert conventions["beyond_3"] == pytest.approx(100 * np.mean(abs(e) > 3 * sigma_68))
    assert conventions["outliers"][3 * scale] == pytest.approx(100 * np.mean(abs(e) > 3 * scale))
    assert 0 < scale < conventions["sigma_95"]
