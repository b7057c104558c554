"""The module as one meets it: its help, its names, its types."""

import pathlib
import pydoc
import subprocess
import sys

import pytest
import vostrel

SCRIPT = pathlib.Path(__file__).with_name("every_name.py")


def test_help_begins_with_the_functions():
    text = pydoc.plain(pydoc.render_doc(vostrel))
    described = text.partition("DESCRIPTION")[2].partition("PACKAGE CONTENTS")[0]
    places = [described.find(f" {name} ") for name in vostrel.__all__ if name[0].islower()]
    assert 0 < min(places) and max(places) < described.find("The numbers")


def test_dir_shows_what_is_there():
    assert set(dir(vostrel)) == {*vostrel.__all__, "dask", "mpi", "plot"}
    for name in dir(vostrel):
        getattr(vostrel, name)
    with pytest.raises(AttributeError, match="has no attribute 'plots'"):
        vostrel.plots


def test_dir_without_the_libraries(monkeypatch):
    monkeypatch.setattr(sys, "path", [])
    monkeypatch.setattr(sys, "path_importer_cache", {})
    for library in ("dask", "mpi4py", "matplotlib"):
        monkeypatch.delitem(sys.modules, library, raising=False)
    assert set(dir(vostrel)) == set(vostrel.__all__)


def mypy(script):
    pytest.importorskip("mypy")
    options = ["--strict", "--follow-imports=silent", "--ignore-missing-imports"]
    return subprocess.run(
        [sys.executable, "-m", "mypy", *options, script], capture_output=True, text=True,
        env={"MYPYPATH": str(pathlib.Path(vostrel.__file__).parents[1])},
        cwd=pathlib.Path(script).parent,
    ).stdout


def test_a_script_with_every_name_is_correctly_typed():
    assert all(name in SCRIPT.read_text() for name in dir(vostrel))
    assert mypy(SCRIPT).startswith("Success")
    subprocess.run([sys.executable, SCRIPT], check=True)


def test_a_misspelt_name_is_an_error_of_types(tmp_path):
    misspelt = ["point_statistic", "plots", "plot.figure", "dask.statistics",
                "point_statistics([1], [1]).norm.nmadd", "bootstrap([1], [1], 1000)"]
    lines = ["import vostrel", *(f"vostrel.{name}" for name in misspelt)]
    (tmp_path / "script.py").write_text("\n".join(lines) + "\n")
    found = [line.split(":") for line in mypy(tmp_path / "script.py").splitlines()]
    assert [line[1] for line in found if line[2:3] == [" error"]] == ["2", "3", "4", "5", "6", "7"]
