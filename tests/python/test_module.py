"""The module as one meets it: its help, its names, its types."""

import json
import os
import pathlib
import pydoc
import re
import shutil
import subprocess
import sys

import pytest
import vostrel

SCRIPT = pathlib.Path(__file__).with_name("every_name.py")
PACKAGE = str(pathlib.Path(vostrel.__file__).parents[1])


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


def lines_of_errors(command, script, **variables):
    """Where a type checker finds errors. It says so if it has checked the script."""
    done = subprocess.run(
        command, capture_output=True, text=True, env={**os.environ, **variables}, cwd=script.parent
    )
    assert re.search(r"Success|Found \d+ error|\d+ errors?, 0 warnings", done.stdout), done
    return [int(line) for line in re.findall(rf"{script.name}:(\d+)\S* (?:- )?error", done.stdout)]


def mypy(script):
    pytest.importorskip("mypy")
    options = ["--strict", "--follow-imports=silent", "--ignore-missing-imports",
               f"--cache-dir={script.parents[1]}"]  # of all tests of this run
    command = [sys.executable, "-m", "mypy", *options, script.name]
    return lines_of_errors(command, script, MYPYPATH=PACKAGE)


def pyright(script):
    """Of its basic mode. This edition comes from PyPI as a whole."""
    pytest.importorskip("basedpyright")
    options = {"typeCheckingMode": "basic", "extraPaths": [PACKAGE]}
    script.with_name("pyrightconfig.json").write_text(json.dumps(options))
    command = [sys.executable, "-m", "basedpyright", "--pythonpath", sys.executable, script.name]
    return lines_of_errors(command, script)


@pytest.mark.parametrize("check", [mypy, pyright])
def test_a_script_with_every_name_is_correctly_typed(check, tmp_path):
    assert check(pathlib.Path(shutil.copy(SCRIPT, tmp_path))) == []


def test_a_script_with_every_name_runs():
    assert all(name in SCRIPT.read_text() for name in dir(vostrel))
    subprocess.run([sys.executable, SCRIPT], check=True)


@pytest.mark.parametrize("check", [mypy, pyright])
def test_a_misspelt_name_is_an_error_of_types(check, tmp_path):
    misspelt = ["point_statistic", "plots", "plot.figure", "dask.statistics",
                "point_statistics([1], [1]).norm.nmadd", "bootstrap([1], [1], 1000)"]
    lines = ["import vostrel", *(f"vostrel.{name}" for name in misspelt)]
    script = tmp_path / "script.py"
    script.write_text("\n".join(lines) + "\n")
    assert check(script) == [2, 3, 4, 5, 6, 7]
