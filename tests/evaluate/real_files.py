"""Files that other packages carry for their own tests, read by vostrel-evaluate and without it."""

import importlib.util
import pathlib

import numpy as np
from vostrel.evaluate import _command
from vostrel.evaluate._files import names_file, open_file
from vostrel.evaluate._readers import data_of, mask_of
from vostrel.evaluate._rows import as_doubles


def files_of(package):
    """The files of a package that have an ending of a table."""
    folders = importlib.util.find_spec(package).submodule_search_locations
    paths = [path for folder in folders for path in pathlib.Path(folder).rglob("*")]
    return sorted(path for path in paths if path.is_file() and names_file(str(path)))


def independent(path, part, name):
    """The values of a column, by the library that people would use."""
    ending = path.name.lower().removesuffix(".gz").rpartition(".")[2]
    if ending == "fits":
        from astropy.io import fits

        with fits.open(path) as hdus:
            return np.array(hdus[int(part)].data[name]).reshape(-1)  # of shape (rows, 1, 1)
    if ending in ("hdf5", "h5", "hdf"):
        import h5py

        with h5py.File(path) as file:
            if name in file:
                return file[name][()].reshape(-1)
            data_set, _, field = name.rpartition("/")
            return file[data_set][()][field]
    if ending in ("parquet", "pq"):
        from pyarrow import parquet

        return parquet.ParquetFile(path).read([name]).column(0).to_numpy()
    if ending in ("csv", "tsv"):
        import pandas

        return pandas.read_csv(path, sep="," if ending == "csv" else "\t")[name].to_numpy()
    if ending in ("npy", "npz"):
        array = np.load(path)
        return array[:, int(name)] if name.isdigit() and ending == "npy" else array[name]
    from astropy.table import Table

    kind = {"format": "ascii.ecsv"} if ending == "ecsv" else {"format": "votable", "table_id": 0}
    return np.asarray(Table.read(path, **kind)[name])


def columns_of(path):
    """The part of the file that is read, and the columns of numbers, each with its mask."""
    reader = open_file(str(path), None)
    found = {}
    for name in reader.columns():
        try:
            chunks = [chunk[name] for chunk in reader.chunks([name], ())]
            numbers = [as_doubles(name, values) for values in chunks]
            masks = [mask_of(values) for values in chunks]
        except Exception:  # the command turns each into one line
            continue
        hidden = [
            np.zeros(len(data_of(values)), bool) if mask is None else mask
            for values, mask in zip(chunks, masks)
        ]
        if numbers:
            found[name] = np.concatenate(numbers), np.concatenate(hidden)
    return reader.part, found


def check(path, capsys):
    """Run the command on a file; return how many of its columns are those of another library."""
    status = _command.main([str(path), "--columns"])
    out, err = capsys.readouterr()
    if status:
        assert (status, out) == (1, "") and err.count("\n") == 1 and len(err) < 600, path
        return 0
    assert out and not err
    part, columns = columns_of(path)
    for name, (values, hidden) in columns.items():
        theirs = np.asarray(independent(path, part, name), np.float64)
        assert np.array_equal(values[~hidden], theirs[~hidden], equal_nan=True), (path, name)
    # All columns are named at once, also those that can't be read.
    names = list(open_file(str(path), None).columns())
    for words in (names, list(columns)):
        if len(words) > 1:
            status = _command.main([str(path), *words[:40], "--format", "csv"])
            out, err = capsys.readouterr()
            assert (status == 0) == bool(out) and err.count("\n") == status, path
            assert len(err) < 1000 and "Traceback" not in err
    return len(columns)
