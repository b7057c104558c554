"""The package itself: its source distribution, its types, its import."""

import os
import pathlib
import shutil
import subprocess
import sys
import sysconfig
import tarfile
import zipfile

import pybind11
import pytest
import vostrel
from data_sets import LONG
from vostrel import _core

SOURCE = pathlib.Path(__file__).resolve().parents[2]


def run(*command, **options):
    result = subprocess.run(command, capture_output=True, text=True, **options)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def test_version_is_that_of_the_header():
    assert f'kVersion = "{vostrel.__version__}"' in (SOURCE / "version.h").read_text()


def test_import_loads_no_optional_library():
    script = (
        "import sys, vostrel; "
        "print(sorted({'pandas', 'astropy', 'matplotlib', 'scipy', 'dask'} & set(sys.modules)))"
    )
    assert run(sys.executable, "-c", script) == "[]\n"


def test_import_takes_20_ms_over_numpy(tmp_path):
    """Of processor time, where byte code is kept. A busy machine slows NumPy as much."""
    script = (
        "from time import process_time as now; start = now(); import numpy; middle = now(); "
        "import vostrel; print(middle - start, now() - middle)"
    )
    variables = {**os.environ, "PYTHONPYCACHEPREFIX": str(tmp_path), "PYTHONDONTWRITEBYTECODE": ""}
    times = (map(float, run(sys.executable, "-c", script, env=variables).split())
             for _ in range(20))
    assert any(ours <= max(0.020, theirs / 4) for theirs, ours in times)


def test_a_build_for_numpy_1_says_so_under_numpy_2():
    """pybind11 before 2.12, such as Debian's, doesn't know NumPy 2."""
    script = (
        "import importlib.util, sys, types\n"
        "sys.modules['numpy'] = types.SimpleNamespace(__version__='2.4.0')\n"
        f"found = importlib.util.spec_from_file_location('vostrel._core', {_core.__file__!r})\n"
        "try: importlib.util.module_from_spec(found)\n"
        "except ImportError as error: print(error)"
    )
    if pybind11.version_info[:2] >= (2, 12):
        pytest.skip("this build knows NumPy 2")
    message = run(sys.executable, "-c", script)
    assert "built with pybind11 before 2.12, which doesn't know NumPy 2.4.0" in message
    assert message.endswith(": build it again with a newer one\n")


def test_stages_without_rail_say_what_they_need():
    script = (
        "import sys; sys.modules['rail.core'] = None\n"
        "try: import vostrel.rail\n"
        "except ImportError as error: print(error)"
    )
    assert run(sys.executable, "-c", script).startswith("vostrel.rail needs pz-rail-base: ")


@pytest.fixture
def clone(tmp_path):
    """A copy of the sources without what was built of them."""
    folder = tmp_path / "clone"
    for name in run("git", "ls-files", cwd=SOURCE).splitlines():
        (folder / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(SOURCE / name, folder / name)
    return folder


@pytest.fixture
def environment(tmp_path):
    """The environment for an installation that takes the compiled module of this build."""
    shutil.copytree(pathlib.Path(vostrel.__file__).parents[1], tmp_path / "built")
    (tmp_path / "built.cfg").write_text(f"[build]\nbuild_lib = {tmp_path / 'built'}\n")
    variables = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    variables["DIST_EXTRA_CONFIG"] = str(tmp_path / "built.cfg")
    variables["PATH"] = os.pathsep.join([os.path.dirname(sys.executable), variables["PATH"]])
    return variables


WHERE = "import vostrel; print(vostrel.__file__, vostrel.point_statistics([1.0], [0.5]).n)"


def test_source_distribution_and_wheel(clone, environment, tmp_path):
    pytest.importorskip("build")
    if LONG:
        del environment["DIST_EXTRA_CONFIG"]  # to compile it, which takes half a minute
    (tmp_path / "built" / "vostrel" / "removed.py").write_text("")  # as an earlier build left it
    # Debian's pybind11 is older than the one that pip gets.
    run(sys.executable, "-m", "build", "--no-isolation", "-x", "--outdir", tmp_path, clone,
        env=environment)
    installed = tmp_path / "installed"
    zipfile.ZipFile(next(tmp_path.glob("vostrel-*.whl"))).extractall(installed)
    printed = run(sys.executable, "-c", WHERE, cwd=tmp_path,
                  env={**environment, "PYTHONPATH": str(installed)})
    assert printed == f"{installed / 'vostrel' / '__init__.py'} 1\n"
    assert (installed / "vostrel" / "py.typed").exists()
    assert not (installed / "vostrel" / "removed.py").exists()
    # RAIL's own packages are beside it in the namespace.
    assert [path.name for path in (installed / "rail").iterdir()] == ["vostrel"]
    # The source distribution has all that the compiler reads.
    with tarfile.open(next(tmp_path.glob("vostrel-*.tar.gz"))) as archive:
        archive.extractall(tmp_path)
    sources = ["python/src/core.cpp", "python/src/engine.cpp"]
    includes = [f"-I{sysconfig.get_path('include')}", f"-I{pybind11.get_include()}"]
    run("c++", "-std=c++20", "-I.", *includes, "-MM", *sources,
        cwd=tmp_path / f"vostrel-{vostrel.__version__}")


@pytest.mark.skipif(not LONG, reason="takes long")
def test_the_commands_of_the_document_install_without_a_network(clone, environment):
    pytest.importorskip("ensurepip")
    command = next(line for line in (SOURCE / "docs" / "python.md").read_text().splitlines()
                   if "--no-build-isolation" in line)
    run("sh", "-ec", command.strip(), cwd=clone, env=environment)
    printed = run("venv/bin/python", "-c", WHERE, cwd=clone, env=environment)
    assert printed.startswith(str(clone / "venv"))
    assert (clone / "venv" / "bin" / "vostrel-plot").exists()
