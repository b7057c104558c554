"""Every format gives the numbers of point_statistics, to the last bit."""

import gzip
import io
import json
import shutil
import sys

import h5py
import numpy as np
import pandas as pd
import pytest
import vostrel
from astropy.io import fits
from astropy.table import MaskedColumn, Table
from vostrel.evaluate import _compute, _fits, _hdf5, _numpy, _readers
from vostrel.evaluate._compute import Store, alone, joined
from vostrel.evaluate._rows import Objects


def write_table(name, columns):
    """Writes the columns to a file, in the format of its ending."""
    frame, table = pd.DataFrame(columns), Table(columns)
    plain = name[:-3] if name.endswith(".gz") else name
    if plain.endswith((".fits", ".ecsv")):
        table.write(plain)
    elif plain.endswith(".vot"):
        table.write(plain, format="votable")
    elif plain.endswith(".csv"):
        frame.to_csv(plain, index=False)
    elif plain.endswith(".tsv"):
        frame.to_csv(plain, index=False, sep="\t")
    elif plain.endswith(".hdf5"):
        with h5py.File(plain, "w") as file:
            for column, values in columns.items():
                file[column] = values
    elif plain.endswith(".npy"):
        np.save(plain, table.as_array())
    elif plain.endswith(".npz"):
        np.savez_compressed(plain, **columns)
    if name != plain:
        with open(plain, "rb") as source, gzip.open(name, "wb") as target:
            shutil.copyfileobj(source, target)
    return name


def numbers(text, estimate="zphot"):
    """The numbers of the output of --format json, under flat names."""
    return {
        f"{one['residual']}_{one['statistic']}": one["value"]
        for one in json.loads(text)["statistics"]
        if one["estimate"] == estimate and one["bin"] is None and one["residual"]
    }


def read(evaluate, *words, estimate="zphot"):
    return numbers(evaluate(*words, "--format", "json"), estimate)


def expected(columns, rows=slice(None), estimate="zphot"):
    s = vostrel.point_statistics(columns["zspec"][rows], columns[estimate][rows])
    return {
        name: value for name, value in s.to_dict().items() if name not in ("n", "n_masked", "n_nan")
    }


@pytest.mark.parametrize("name", [
    "t.csv", "t.csv.gz", "t.tsv", "t.tsv.gz", "t.fits", "t.fits.gz", "t.ecsv", "t.ecsv.gz",
    "t.vot", "t.vot.gz", "t.hdf5", "t.npy", "t.npy.gz", "t.npz", "T.CSV",
])
def test_formats(evaluate, columns, name):
    if name == "T.CSV":
        shutil.move(write_table("t.csv", columns), name)
    else:
        write_table(name, columns)
    rows = (columns["quality"] >= 3) & (columns["imag"] < 24)
    where = ("--where", "quality >= 3 & imag < 24")
    assert read(evaluate, name, "zspec", "zphot", *where) == expected(columns, rows)


def test_labels_give_the_same_resamples_in_every_format(evaluate, columns):
    outputs = set()
    for name in ("t.csv", "t.fits", "t.hdf5"):
        write_table(name, columns)
        outputs.add(evaluate(name, "zspec", "zphot", "--format", "csv", "--errors", "bootstrap",
                             "--groups", "field", "--seed", "1", "--resamples", "50"))
    assert len(outputs) == 1


def test_unusual_fits_columns(evaluate, columns):
    # Single precision, scaled integers, unsigned integers, TNULL, truth values, text.
    n = 200
    zspec = columns["zspec"][:n].astype(np.float32)
    stored = np.round(columns["zphot"][:n] * 1000).astype(np.int16)
    hdu = fits.BinTableHDU.from_columns([
        fits.Column("zspec", "E", array=zspec),
        fits.Column("zphot", "I", array=stored, null=-1),
        fits.Column("unsigned", "J", bzero=2**31, array=np.arange(n, dtype=np.uint32) + 2**31),
        fits.Column("good", "L", array=np.arange(n) % 2 == 0),
        fits.Column("name", "4A", array=["a", "b"] * (n // 2)),
    ])
    hdu.data["zphot"][:10] = -1
    hdu.header["TSCAL2"], hdu.header["TZERO2"] = 0.001, 0.5
    fits.HDUList([fits.PrimaryHDU(), fits.ImageHDU(np.zeros(3)), hdu]).writeto("t.fits")
    out = evaluate("t.fits[2]", "zspec", "zphot", "--format", "json", "--where",
                   f"good & name == 'a' & unsigned >= {2**31 + 2}")
    rows = np.arange(10, n, 2)
    zphot = stored * 0.001 + 0.5
    assert numbers(out) == expected({"zspec": zspec, "zphot": zphot}, rows)
    assert json.loads(out)["rows"]["masked"] == 4  # 2, 4, 6, 8
    assert evaluate("t.fits", "zspec", "zphot", "--format", "csv") == evaluate(
        "t.fits[2]", "zspec", "zphot", "--format", "csv"
    )


def test_headers_of_fits(evaluate, refusal, columns, monkeypatch):
    long = "it's " + "long " * 20 + "/ & end"  # goes on in further cards
    hdu = fits.BinTableHDU.from_columns([
        fits.Column("zspec", "D", array=columns["zspec"]),
        fits.Column("zphot", "J", array=np.arange(3000)),
    ])
    hdu.header["TSCAL2"], hdu.header["TZERO2"] = 1e-3, -0.5
    hdu.header["EXTNAME"] = long
    fits.HDUList([fits.PrimaryHDU(np.zeros(3)), hdu]).writeto("t.fits")
    with open("t.fits", "r+b") as stream:
        data = stream.read().replace(b"0.001", b"1.D-3").replace(b"TTYPE1", b"OTHER1")
        stream.seek(0)
        stream.write(data + b"\0" * 2880)
    monkeypatch.setattr(_fits, "library", None)  # none is needed
    assert evaluate(f"t.fits[{long.upper()}]", "--columns") == (
        "t.fits[1]: 2 columns, 3000 rows\n  col1  D\n  zphot  J\n"
    )
    found = read(evaluate, "t.fits", "col1", "zphot")
    assert found == expected({"zspec": columns["zspec"], "zphot": np.arange(3000) * 1e-3 - 0.5})
    assert "no extension [2]" in refusal("t.fits[2]", "col1", "zphot")
    with open("t.fits", "wb") as stream:
        stream.write(data.replace(b"TFIELDS ", b"FIELDS  "))
    assert refusal("t.fits", "col1", "zphot") == "t.fits: a header lacks TFIELDS"


def test_ascii_tables_of_fits(evaluate, columns):
    table = fits.TableHDU.from_columns([
        fits.Column(name, "D25.17", array=columns[name]) for name in ("zspec", "zphot")
    ])
    table.writeto("t.fits")
    with fits.open("t.fits") as hdus:
        stored = {name: np.array(hdus[1].data[name]) for name in ("zspec", "zphot")}
    assert read(evaluate, "t.fits", "zspec", "zphot") == expected(stored)


def test_paths_groups_and_compound_data_sets_of_hdf5(evaluate, columns):
    table = Table(columns)
    with h5py.File("t.hdf5", "w") as file:
        file["photometry/zspec"] = columns["zspec"]
        file["photometry/zphot"] = columns["zphot"][:, None]  # as files of PDFs store modes
        file["table"] = table.as_array()
    path = "photometry/zphot"
    assert read(evaluate, "t.hdf5", "photometry/zspec", path, estimate=path) == expected(columns)
    assert read(evaluate, "t.hdf5[photometry]", "zspec", "zphot") == expected(columns)
    assert read(evaluate, "t.hdf5[table]", "zspec", "zphot") == expected(columns)


def test_masks(evaluate, columns):
    """Masked entries are the same in all formats that have them; an empty field is one in CSV."""
    table = Table(columns)
    table["zphot"] = MaskedColumn(table["zphot"], mask=np.arange(3000) % 7 == 0)
    table.write("t.ecsv")
    table.write("t.hdf5", path="data", serialize_meta=True)
    pd.DataFrame({"zspec": columns["zspec"], "zphot": table["zphot"].filled(np.nan)}).to_csv(
        "t.csv", index=False
    )
    rows = np.arange(3000) % 7 != 0
    for name in ("t.ecsv", "t.hdf5[data]", "t.csv"):
        out = evaluate(name, "zspec", "zphot", "--format", "json")
        assert numbers(out) == expected(columns, rows)
        assert json.loads(out)["rows"]["masked"] == 429


def test_numbers_in_text_files(evaluate):
    """Rows of difficult, legal CSV: byte order mark, quotes, CRLF, blank lines, a missing end."""
    text = ('\ufeff"z, ref",zphot,name\r\n1,1.5,"a ""quoted"", name"\r\n\r\n'
            ' 0.1 ,1e-1,"two\nlines"\r\nNULL,3,x\r\n2,nan,y\r\n3,inf,z\r\n9007199254740993,"4",')
    with open("t.csv", "w", newline="", encoding="utf-8") as stream:
        stream.write(text)
    evaluate("t.csv", "z, ref", "zphot", "--table", "rows.csv")
    with open("rows.csv", encoding="utf-8") as stream:
        assert stream.read() == (
            "0,1,1.5\n1,0.10000000000000001,0.10000000000000001\n4,3,inf\n5,9007199254740992,4\n"
        )


def test_several_files_and_globs(evaluate, columns):
    for i, part in enumerate(np.array_split(np.arange(3000), 3)):
        write_table(f"tile_{i}.fits", {name: values[part] for name, values in columns.items()})
    whole = expected(columns)
    for words in (["tile_*.fits"], ["tile_*.fits[1]"], ["tile_0.fits", "tile_[12].fits"]):
        assert read(evaluate, *words, "zspec", "zphot") == whole


def test_standard_input(evaluate, columns, monkeypatch):
    text = pd.DataFrame(columns).to_csv(index=False).encode()
    monkeypatch.setattr(sys, "stdin", io.TextIOWrapper(io.BytesIO(text)))
    # In passes, too, though it can be read only once.
    out = evaluate("-", "zspec", "zphot", "--format", "json", "--memory", "0")
    values = numbers(out)
    assert values["norm_nmad"] == expected(columns)["norm_nmad"]


def test_a_two_dimensional_array(evaluate, columns):
    for order in "CF":
        array = np.array([columns["zspec"], columns["zphot"]]).T.copy(order)
        np.save("t.npy", array)
        assert read(evaluate, "t.npy", "0", "1", estimate="1") == expected(columns)


def test_list_of_columns(evaluate):
    Table({"zspec": [0.5], "name": ["a"]}).write("t.fits")
    out = evaluate("t.fits", "--columns")
    assert out == "t.fits[1]: 2 columns, 1 rows\n  zspec  D\n  name  1A\n"


@pytest.mark.parametrize("options", [
    {}, {"chunks": (700,), "compression": "gzip"}, {"dtype": ">f8"}, {"dtype": "f4"},
    {"dtype": "i2"}, {"userblock": 512}, {"stay": 0},
], ids=str)
def test_ways_to_store_columns_in_hdf5(evaluate, columns, monkeypatch, options):
    # Plain doubles are used in the file, in several parts; others are read.
    monkeypatch.setattr(_readers, "ROWS", 1000)
    monkeypatch.setattr(_hdf5, "STAY", options.get("stay", _hdf5.STAY))
    how = {name: value for name, value in options.items() if name not in ("userblock", "stay")}
    with h5py.File("t.hdf5", "w", userblock_size=options.get("userblock", 0)) as file:
        for name in ("zspec", "zphot", "imag"):
            file.create_dataset(name, data=columns[name] * 100, **how)
    stored = {name: (columns[name] * 100).astype(how.get("dtype", "f8")) for name in columns}
    assert read(evaluate, "t.hdf5", "zspec", "zphot") == expected(stored)
    rows = stored["imag"] < 2000
    assert read(evaluate, "t.hdf5", "zspec", "zphot", "--where", "imag < 2000") == expected(
        stored, rows
    )


def test_kept_arrays_keep_no_others_in_memory():
    table = np.arange(12.0).reshape(2, 6)
    for values, is_kept in [
        (table[0].copy(), True), (table.reshape(12), True), (table[0], False),
        (np.ma.MaskedArray(np.arange(2)).data, True), (np.frombuffer(bytes(16), "u1"), True),
        (np.frombuffer(bytes(16), "u1")[::2], False),
    ]:
        kept = alone(values)
        assert kept.tolist() == values.tolist()
        assert np.shares_memory(kept, values) == is_kept


def test_nan_behind_a_part_without_rows(evaluate, monkeypatch, columns):
    """HATS has such parts, in the memory of Arrow. What is masked makes a copy of the next one."""
    zspec, zphot = columns["zspec"], columns["zphot"]
    masked = np.ma.MaskedArray(zspec, np.arange(len(zspec)) == 2)
    zspec[1] = np.nan
    empty = np.frombuffer(bytes(8))[:0]
    chunks = [{"zspec": empty, "zphot": empty}, {"zspec": masked, "zphot": zphot}]
    monkeypatch.setattr(_numpy.Npz, "chunks", lambda *_: iter(chunks))
    text = evaluate(write_table("cat.npz", columns), "zspec", "zphot", "--format", "json")
    rows = json.loads(text)["rows"]
    assert (rows["masked"], rows["nan"], rows["used"]) == (1, 1, len(zspec) - 2)
    used = np.delete(np.arange(len(zspec)), [1, 2])
    assert numbers(text)["norm_nmad"] == expected(columns, used)["norm_nmad"]


def test_kept_columns(monkeypatch):
    # Values are converted in the store's room, of 4 here, and others stay where they are.
    monkeypatch.setattr(_compute, "ROOM", 4)
    file = np.arange(10.0)
    store = Store()
    expected = []
    for count, keep in [(3, 3), (1, 1), (3, 0), (3, 2), (2, 2), (9, 9)]:
        place = store.room("z", count)
        place[:] = np.arange(count) + len(expected)
        values = place if keep == count else place[:keep].copy()
        store.add(Objects({"z": values}, None, 0, None))
        expected += values.tolist()
    assert np.asarray(store.columns()["z"]).tolist() == expected
    assert sum(map(len, store.parts())) == len(expected)
    assert store.room("z", 1) is None
    for parts, count in [
        ([file[:3], file[3:5], file[5:]], 1), ([file[:3], file[4:]], 2), ([file[5:], file[:5]], 2),
        ([file[:3], np.arange(2.0)], 2),
    ]:
        column = joined(parts)
        assert np.asarray(column).tolist() == np.concatenate(parts).tolist()
        arrays = [column] if count == 1 else column.arrays
        assert len(arrays) == count and np.shares_memory(arrays[0], file)
