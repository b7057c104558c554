"""The package itself: its source distribution, its types, its import."""

import os
import pathlib
import subprocess
import sys
import zipfile

import pytest
import vostrel

SOURCE = pathlib.Path(__file__).resolve().parents[2]


def run(*command, **options):
    result = subprocess.run(command, capture_output=True, text=True, **options)
    assert result.returncode == 0, result.stdout + result.stderr
    return result.stdout


def test_version_is_that_of_the_header():
    assert f'kVersion = "{vostrel.__version__}"' in (SOURCE / "version.h").read_text()


def test_mypy_strict():
    pytest.importorskip("mypy")
    environment = {name: value for name, value in os.environ.items() if name != "PYTHONPATH"}
    run(sys.executable, "-m", "mypy", "--cache-dir", os.devnull, cwd=SOURCE, env=environment)


def test_import_takes_no_optional_library():
    script = (
        "import sys, vostrel; "
        "print(sorted({'pandas', 'astropy', 'matplotlib', 'scipy', 'dask'} & set(sys.modules)))"
    )
    assert run(sys.executable, "-c", script) == "[]\n"


def test_a_wheel_is_built_from_the_source_distribution(tmp_path):
    pytest.importorskip("build")
    tree = tmp_path / "source"
    files = run("git", "ls-files", cwd=SOURCE).splitlines()
    for name in files:
        (tree / name).parent.mkdir(parents=True, exist_ok=True)
        (tree / name).write_bytes((SOURCE / name).read_bytes())
    run(sys.executable, "-m", "build", "--no-isolation", "--outdir", str(tmp_path), str(tree))
    wheel = next(tmp_path.glob("vostrel-*.whl"))
    zipfile.ZipFile(wheel).extractall(tmp_path / "installed")
    script = "import vostrel; print(vostrel.__file__, vostrel.point_statistics([1.0], [0.5]).n)"
    environment = {**os.environ, "PYTHONPATH": str(tmp_path / "installed")}
    printed = run(sys.executable, "-c", script, cwd=tmp_path, env=environment)
    assert printed == f"{tmp_path / 'installed' / 'vostrel' / '__init__.py'} 1\n"
    assert (tmp_path / "installed" / "vostrel" / "py.typed").exists()
