"""The examples of the docstrings, and of the documents that need only Debian's packages."""

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
from support.pages import follow

DOCUMENT = pathlib.Path(__file__).resolve().parents[2] / "docs" / "python.md"
CONVENTIONS = DOCUMENT.with_name("conventions.md")
README = DOCUMENT.parents[1] / "README.md"
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
    """A folder with the examples, and the commands on the path."""
    (tmp_path / "examples").symlink_to(DOCUMENT.parents[1] / "examples")
    (tmp_path / "bin").mkdir()
    (tmp_path / "bin" / "vostrel").symlink_to(os.environ["VOSTREL"])
    modules = {"vostrel-plot": "-m vostrel.plot", "vostrel-evaluate": "-m vostrel"}
    for command in ("python", "python3", *modules):
        script = tmp_path / "bin" / command
        script.write_text(f'#!/bin/sh\nexec "{sys.executable}" {modules.get(command, "")} "$@"\n')
        script.chmod(0o755)
    monkeypatch.setenv("PATH", f"{tmp_path / 'bin'}:{os.environ['PATH']}")
    monkeypatch.chdir(tmp_path)


def test_first_steps_of_the_readme(installed, capfd):
    steps = [(code, capfd.readouterr()) for code, _ in follow(README)]
    (shell, first), (shown, _), (python, second), (printed, _) = steps
    assert shell.count("\n") == python.count("\n") == 4
    assert first.err == second.err == ""
    assert shown in first.out and shown.count("\n") == 12
    assert "zphot: 1958 objects\n" in first.out
    assert second.out.endswith("\n" + printed)
    assert pathlib.Path("figure.png").read_bytes().startswith(b"\x89PNG")


def test_example_of_the_manual_of_the_figure(installed):
    shutil.copy("examples/redshifts.csv", "catalogue.csv")
    manual = DOCUMENT.with_name("vostrel-plot.1.in").read_text().replace("\\-", "-")
    lines = re.findall(r"^(vostrel.*)$", manual.split("\n.SH EXAMPLES")[1], re.M)
    lines.insert(2, "mkdir a b && cp internal.txt a && cp internal.txt b")
    run = subprocess.run(["sh", "-ec", "\n".join(lines)], capture_output=True, text=True)
    assert (run.returncode, run.stderr) == (0, "")
    assert pathlib.Path("figure.pdf").read_bytes().startswith(b"%PDF")
    assert pathlib.Path("vostrel.png").read_bytes().startswith(b"\x89PNG")


def test_python_of_the_demo(installed):
    demo = (DOCUMENT.parents[1] / "scripts" / "demo").read_text()
    code = re.search(r"<<'END'\n(.*?)\nEND\n", demo, re.DOTALL)[1]
    table = "examples/redshifts.csv"
    subprocess.run(["vostrel", "--stats", table, "report.txt", "0", "2", "3"], check=True)
    run = subprocess.run([sys.executable, "-c", code, table], capture_output=True, text=True)
    assert run.stderr == "" and run.stdout.endswith(" to its six digits.\n")


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


@pytest.fixture
def tables(installed):
    """The tables of the examples, and those rows of cat.csv that have all numbers."""
    subprocess.run([sys.executable, "examples/make_tables.py"], check=True)
    return pd.read_csv("cat.csv", float_precision="round_trip").dropna()


def test_pages_of_the_shell(tables, capfd):
    for page in ("evaluate.md", "files.md", "plot.md"):
        for _ in follow(DOCUMENT.with_name(page)):
            pass
        assert capfd.readouterr().err == "", page
    assert pathlib.Path("report.html").stat().st_size > 100_000
    assert pathlib.Path("figure.pdf").read_bytes().startswith(b"%PDF")


def test_page_of_python(tables, capfd):
    steps = [(code, dict(names)) for code, names in follow(DOCUMENT)]
    assert capfd.readouterr().err == ""

    def after(code):
        return next(names for block, names in steps if code in block)

    z_spec, z_phot = tables["zspec"], tables["zphot"]
    expected = vostrel.point_statistics(z_spec, z_phot)
    assert f"{after('[0.5, 1.0, 1.5')['s'].norm.nmad:.6g}" == "0.086485"
    out = after("b.to_frame()")
    assert out["faint"].counts.tolist() == out["b"].counts[5:].tolist()
    flat = after("flat = ")["flat"]
    assert flat["norm_outliers_0.2"] == 100 * np.mean(abs(z_spec - z_phot) / (1 + z_spec) > 0.2)
    assert flat["lsst_bias"] == -expected.norm.median
    s = after("read_csv")["s"]
    assert (s.n, s.n_nan, s.norm) == (3960, 40, expected.norm)
    saved = pd.read_csv("statistics.csv", index_col=0, float_precision="round_trip").iloc[:, 0]
    assert saved["norm_nmad"] == s.norm.nmad
    good = tables["quality"] >= 3
    assert after("Table.read")["s"].norm == vostrel.point_statistics(
        z_spec[good], z_phot[good]
    ).norm
    faint = tables["imag"] >= 22
    assert after("faintest")["faintest"] == vostrel.point_statistics(z_spec[faint], z_phot[faint])
    assert pd.read_csv("bins.csv")["n"].sum() == 3960
    assert after("estimates = ")["best"] == "network"
    assert after("lsst_metrics")["m"].n == 3960


@pytest.mark.skipif(shutil.which("mpirun") is None, reason="needs mpirun")
def test_page_of_scale(tables, monkeypatch, capfd):
    pytest.importorskip("mpi4py")
    for name in ("ALLOW_RUN_AS_ROOT", "ALLOW_RUN_AS_ROOT_CONFIRM"):
        monkeypatch.setenv(f"OMPI_{name}", "1")
    monkeypatch.setenv("OMPI_MCA_rmaps_base_oversubscribe", "1")
    expected = vostrel.chunked_statistics([(tables["zspec"], tables["zphot"])])
    flagged = tables["flag"] > 0
    seen = []
    for code, names in follow(DOCUMENT.with_name("scale.md")):
        seen += [names["s"]]
        if "mpirun" in code:
            assert capfd.readouterr().out.endswith(f"{expected}\n")
    from_npy, from_hdf5, from_dask, *_, from_parts = seen
    assert from_npy == expected
    assert (from_hdf5.norm, from_hdf5.n_nan) == (expected.norm, 40)
    assert (from_dask.n, from_dask.n_masked) == (3960 - flagged.sum(), flagged.sum())
    assert from_parts.n == 100_000


def test_page_of_uncertainties(installed, capfd):
    *_, (_, names) = follow(DOCUMENT.with_name("uncertainties.md"))
    d = names["d"]
    assert len(capfd.readouterr().out.splitlines()) == 4
    assert d.norm.nmad.error < min(d["A"].norm.nmad.error, d["B"].norm.nmad.error)
    assert d.norm.nmad.high < 0


@pytest.fixture
def conventions(tables):
    """The names that the code of docs/conventions.md leaves, and r."""
    *_, (_, names) = follow(CONVENTIONS)
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
