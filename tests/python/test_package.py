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

SOURCE = pathlib.Path(__file__).resolve().parents[2]


def run(*command, **options):
    result = subprocess.run(command, capture_output=True, text=True, **options)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def test_version_is_that_of_the_header():
    assert f'kVersion = "{vostrel.__version__}"' in (SOURCE / "version.h").read_text()


def test_import_takes_no_optional_library():
    script = (
        "import sys, vostrel; "
        "print(sorted({'pandas', 'astropy', 'matplotlib', 'scipy', 'dask'} & set(sys.modules)))"
    )
    assert run(sys.executable, "-c", script) == "[]\n"


def with_the_module_of_this_build(folder):
    """The environment in which setuptools finds the module compiled, except for long samples."""
    if LONG:
        return {}
    shutil.copytree(pathlib.Path(vostrel.__file__).parents[1], folder / "built")
    (folder / "built.cfg").write_text(f"[build]\nbuild_lib = {folder / 'built'}\n")
    return {"DIST_EXTRA_CONFIG": str(folder / "built.cfg")}


def test_a_wheel_is_built_from_the_source_distribution(tmp_path):
    pytest.importorskip("build")
    tree = tmp_path / "source"
    files = run("git", "ls-files", cwd=SOURCE).splitlines()
    for name in files:
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        shutil.copy2(SOURCE / name, tree / name)
    run(sys.executable, "-m", "build", "--no-isolation", "--outdir", str(tmp_path), str(tree),
        env={**os.environ, **with_the_module_of_this_build(tmp_path)})
    wheel = next(tmp_path.glob("vostrel-*.whl"))
    zipfile.ZipFile(wheel).extractall(tmp_path / "installed")
    script = "import vostrel; print(vostrel.__file__, vostrel.point_statistics([1.0], [0.5]).n)"
    environment = {**os.environ, "PYTHONPATH": str(tmp_path / "installed")}
    printed = run(sys.executable, "-c", script, cwd=tmp_path, env=environment)
    assert printed == f"{tmp_path / 'installed' / 'vostrel' / '__init__.py'} 1\n"
    assert (tmp_path / "installed" / "vostrel" / "py.typed").exists()

    # All that the compiler reads comes with the sources.
    with tarfile.open(next(tmp_path.glob("vostrel-*.tar.gz"))) as archive:
        archive.extractall(tmp_path)
    unpacked = next(tmp_path.glob("vostrel-*/"))
    sources = [name for name in files if name.startswith(("python/src/", "statistics/"))
               and name.endswith(".cpp")]
    includes = [f"-I{sysconfig.get_path('include')}", f"-I{pybind11.get_include()}"]
    run("c++", "-std=c++20", "-I.", *includes, "-MM", *sources, cwd=unpacked)
