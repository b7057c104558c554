"""Files that packages of PyPI carry, such as RAIL's photo-z tables: read, or refused in a line."""

import pathlib
import sys

import pytest

sys.path.append(str(pathlib.Path(__file__).resolve().parents[1] / "evaluate"))
import real_files  # noqa: E402


@pytest.mark.parametrize("package, read, columns", [
    ("rail", 11, 100), ("pyarrow", 4, 20), ("pandas", 0, 0), ("tables", 5, 20), ("h5py", 1, 2),
    ("sklearn", 1, 4), ("astropy", 20, 150), ("matplotlib", 2, 10), ("numpy", 1, 1),
])
def test_files_of_other_packages(capsys, package, read, columns):
    found = [real_files.check(path, capsys) for path in real_files.files_of(package)]
    assert len(list(filter(None, found))) >= read and sum(found) >= columns, found
