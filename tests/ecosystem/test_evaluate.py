"""vostrel-evaluate on Parquet, HATS and chunks of HDF5, which need packages of PyPI."""

import importlib
import json

import h5py
import numpy as np
import pytest
import vostrel
from vostrel.evaluate import _command, _hdf5, _readers
from vostrel.evaluate._files import open_file

pa = pytest.importorskip("pyarrow")
pq = pytest.importorskip("pyarrow.parquet")


@pytest.fixture
def run(tmp_path, monkeypatch, capsys):
    """Runs the command in a folder of its own, and returns its status and what it prints."""
    monkeypatch.chdir(tmp_path)

    def run(*words):
        status = _command.main(list(words))
        return (status, *capsys.readouterr())

    return run


@pytest.fixture
def only(monkeypatch):
    """Hides the other libraries that read Parquet."""

    def only(library):
        pytest.importorskip(library)
        find = importlib.import_module

        def found(name, package=None):
            if name.partition(".")[0] in {"pyarrow", "polars", "duckdb"} - {library}:
                raise ModuleNotFoundError(name)
            return find(name, package)

        monkeypatch.setattr(importlib, "import_module", found)

    return only


def columns(n=5000):
    rng = np.random.default_rng(1)
    zspec = rng.gamma(3, 0.3, n)
    return zspec, zspec + 0.05 * (1 + zspec) * rng.standard_t(3, n)


@pytest.mark.parametrize("library", ["pyarrow", "polars", "duckdb"])
def test_parquet(run, only, library):
    zspec, zphot = columns()
    null = np.arange(5000) % 10 == 0
    nan = np.arange(5000) % 10 == 1
    table = pa.table({
        'z "ref"': pa.array(zspec.astype(np.float32)),
        "zphot": pa.array(np.where(nan, np.nan, zphot), mask=null),
        "quality": pa.array(np.arange(5000) % 5, mask=np.arange(5000) % 7 == 0),
        "field": pa.array(["A", "B"] * 2500).dictionary_encode(),
        "list": pa.array([[1.0]] * 5000),
        "text": pa.array(["1"] * 5000),
    })
    pq.write_table(table, "it's.parquet", row_group_size=1000)
    only(library)
    status, out, err = run("it's.parquet", 'z "ref"', "zphot", "--format", "json",
                           "--where", "quality >= 3 & field == 'B'")
    assert (status, err) == (0, "")
    i = np.arange(5000)
    used = (i % 5 >= 3) & (i % 7 != 0) & (i % 2 == 1) & ~null & ~nan
    found = {
        f"{one['residual']}_{one['statistic']}": one["value"]
        for one in json.loads(out)["statistics"]
    }
    s = vostrel.point_statistics(zspec.astype(np.float32)[used], zphot[used]).to_dict()
    names = [name for name in s if name.startswith(("delta_", "norm_")) and name in found]
    assert len(names) >= 22 and [found[name] for name in names] == [s[name] for name in names]
    rows = json.loads(out)["rows"]
    selected = (i % 5 >= 3) & (i % 7 != 0) & (i % 2 == 1)
    assert (rows["masked"], rows["nan"]) == ((selected & null).sum(), (selected & nan).sum())

    for name, message in [("list", "not one number"), ("text", "holds text")]:
        status, out, err = run("it's.parquet", 'z "ref"', name)
        assert (status, out) == (1, "") and message in err and err.count("\n") == 1


def test_truncated_parquet(run):
    pq.write_table(pa.table({"zspec": [1.0], "zphot": [1.0]}), "t.parquet")
    with open("t.parquet", "r+b") as stream:
        stream.truncate(200)
    status, out, err = run("t.parquet", "zspec", "zphot")
    assert (status, out) == (1, "") and err.startswith("vostrel-evaluate: cannot read t.parquet: ")
    assert err.count("\n") == 1


def test_pyarrow_holds_one_row_group(run):
    zspec, _ = columns(1_000_000)
    pq.write_table(pa.table({"zspec": zspec}), "t.parquet", row_group_size=50_000)
    before = pa.total_allocated_bytes()
    chunks = open_file("t.parquet", None).chunks(["zspec"], ())
    held = [pa.total_allocated_bytes() - before for _ in chunks]
    assert max(held) < zspec.nbytes / 2


def test_hats(run, capsys):
    lsdb = pytest.importorskip("lsdb")
    pd = pytest.importorskip("pandas")
    zspec, zphot = columns(300)
    ra = np.arange(300) % 100 * 0.9
    frame = pd.DataFrame({"ra": ra, "dec": 0.0, "zspec": zspec, "zphot": zphot})
    catalog = lsdb.from_dataframe(frame, catalog_name="cat", lowest_order=1, margin_threshold=None)
    catalog.write_catalog("cat_hats", catalog_name="cat")
    capsys.readouterr()  # its bars
    status, out, err = run("cat_hats", "zspec", "zphot", "--format", "json", "--where", "ra < 45")
    assert (status, err) == (0, "")
    s = vostrel.point_statistics(zspec[ra < 45], zphot[ra < 45])
    found = json.loads(out)
    assert found["rows"]["read"] == 300 and found["rows"]["used"] == s.n
    # Partitions have an order of their own, which medians don't see.
    nmad = [one for one in found["statistics"] if one["statistic"] == "nmad"]
    assert [one["value"] for one in nmad] == [s.delta.nmad, s.norm.nmad]


@pytest.mark.parametrize("case", [
    "plain", "appended", "latest", "large chunks", "big-endian", "single precision", "two lengths",
    "never written", "user block", "gzip", "short runs", "one contiguous",
])
def test_chunks_of_hdf5_have_the_bits_of_h5py(monkeypatch, case):
    table = dict(zip(("zspec", "zphot"), columns(3000)))
    monkeypatch.setattr(_readers, "ROWS", 1000)
    monkeypatch.setattr(_hdf5, "SHORT", 10000 if case == "short runs" else 1)
    kind = {"big-endian": ">f8", "single precision": "f4"}.get(case, "f8")
    how = {"gzip": {"compression": "gzip"}}.get(case, {})
    lengths = {"large chunks": (5000, 5000), "two lengths": (500, 700),
               "one contiguous": (None, 700)}.get(case, (700, 700))
    with h5py.File("t.hdf5", "w", libver="latest" if case == "latest" else None,
                   userblock_size=512 if case == "user block" else 0) as file:
        for name, length in zip(("zspec", "zphot"), lengths):
            if length:
                how |= {"chunks": (length,), "maxshape": (6000,)}
            file.create_dataset(name, (3000,), kind, **how)
        step = 3000 if case == "plain" else 700
        for start in range(0, 3000, step):  # the chunks of the two columns take turns
            for name in ("zspec", "zphot"):
                if case != "never written" or start != 700:
                    part = slice(start, start + step)
                    file[name][part] = table[name][part]
        file["end"] = table["zspec"]
    reads = []
    method = _hdf5.Hdf5._read
    monkeypatch.setattr(_hdf5.Hdf5, "_read", lambda *args: reads.append(1) or method(*args))
    parts = list(_hdf5.Hdf5("t.hdf5", None).chunks(["zspec", "zphot"], ()))
    with h5py.File("t.hdf5") as file:
        for name in ("zspec", "zphot"):
            found = np.concatenate([part[name] for part in parts])
            assert found.tobytes() == file[name][()].astype(found.dtype).tobytes()
    is_used = case in {"plain", "appended", "latest", "large chunks", "big-endian",
                       "single precision"}
    assert bool(reads) != is_used


def test_without_any_library(run, monkeypatch):
    pq.write_table(pa.table({"zspec": [1.0]}), "t.parquet")

    def missing(name, package=None):
        if name.partition(".")[0] in {"pyarrow", "polars", "duckdb"}:
            raise ModuleNotFoundError(name)
        return importlib.__import__(name, fromlist=["x"])

    monkeypatch.setattr(importlib, "import_module", missing)
    assert run("t.parquet", "zspec", "zspec2") == (
        1, "",
        "vostrel-evaluate: t.parquet: reading Parquet needs pyarrow, polars or duckdb, from PyPI\n",
    )
