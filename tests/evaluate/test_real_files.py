"""Files that nobody here made: each is read as another library reads it, or refused in one line."""

import pytest
import real_files


@pytest.mark.parametrize("package, read, columns", [
    ("astropy", 20, 150), ("h5py", 1, 2), ("numpy", 1, 1), ("pandas", 0, 0),
])
def test_files_of_other_packages(capsys, package, read, columns):
    found = [real_files.check(path, capsys) for path in real_files.files_of(package)]
    assert found and len(list(filter(None, found))) >= read and sum(found) >= columns, found
