"""Bad input is refused in one line, with status 1, and leaves no output."""

import gzip
import io
import os
import pathlib
import pickle
import resource
import shutil
import subprocess
import sys

import h5py
import numpy as np
import pytest
import vostrel
from astropy.io import fits
from astropy.table import Table

GOOD = "zspec,zphot,imag,name\n1,1.1,20,a\n2,1.9,21,b\n3,3.3,22,c\n"


def text(content, name="t.csv"):
    with open(name, "wb") as stream:
        stream.write(content if isinstance(content, bytes) else content.encode())


def table(name="t.fits"):
    Table({"zspec": np.arange(1, 2001.0), "zphot": np.arange(1, 2001.0)}).write(name)


def cut(name, size):
    table(name)
    os.truncate(name, os.path.getsize(name) - size if size < 0 else size)


def fits_column(**options):
    columns = [fits.Column("zspec", "D", array=np.ones(2)), fits.Column("zphot", **options)]
    fits.BinTableHDU.from_columns(columns).writeto("t.fits")


def hdf5(**datasets):
    with h5py.File("t.hdf5", "w") as file:
        for name, values in datasets.items():
            file[name] = values


def flipped():
    """A compressed file with a wrong byte in its middle."""
    data = bytearray(gzip.compress(GOOD.encode() * 500))
    data[len(data) // 2] ^= 0xFF
    text(bytes(data), "t.csv.gz")


# What makes the file, its name, and a part of the message. The columns are zspec and zphot.
FILES = [
    # Files that are not there, not readable, or not what their names say.
    (lambda: None, "none.csv", "No such file"),
    (lambda: None, "none_*.csv", "no file matches"),
    (lambda: os.mkdir("t.csv"), "t.csv", "folder"),
    (lambda: os.mkfifo("t.csv"), "t.csv", "regular file"),
    (lambda: os.symlink("t.csv", "t.csv"), "t.csv", "Too many levels"),
    (lambda: text(GOOD, "t.txt"), "t.txt", "must end in"),
    (lambda: text(GOOD, "t"), "t", "must end in"),
    (lambda: text(GOOD, "t.fits"), "t.fits", "not what the file holds"),
    (lambda: text(GOOD, "t.hdf5"), "t.hdf5", "signature"),
    (lambda: text(GOOD, "t.parquet"), "t.parquet", "not what the file holds"),
    (lambda: text(b"PAR1" + bytes(100), "t.parquet"), "t.parquet", "t.parquet"),
    (lambda: text(GOOD, "t.npy"), "t.npy", "not what the file holds"),
    (lambda: text(GOOD, "t.npz"), "t.npz", "not what the file holds"),
    (lambda: text(b"PK" + bytes(50), "t.npz"), "t.npz", "zip"),
    (lambda: text(GOOD, "t.ecsv"), "t.ecsv", "not what the file holds"),
    (lambda: text(GOOD, "t.vot"), "t.vot", "cannot read t.vot"),
    (lambda: text(GOOD, "t.csv.gz"), "t.csv.gz", "gzip"),
    (lambda: text(GOOD, "t.hdf5.gz"), "t.hdf5.gz", "unpack it"),
    (lambda: (table(), os.rename("t.fits", "t.csv")), "t.csv", "byte 0"),
    (lambda: text(b"\x89HDF\r\n\x1a\n" + bytes(100)), "t.csv", "byte 0"),
    (lambda: text(GOOD.encode("utf-16")), "t.csv", "byte 0"),
    (lambda: text(GOOD), "t.csv[1]", "no [1]"),
    # Truncated and damaged files.
    (lambda: text(""), "t.csv", "empty"),
    (lambda: text("\n\n \n"), "t.csv", "empty"),
    (lambda: text("", "t.fits"), "t.fits", "not what the file holds"),
    (lambda: cut("t.fits", 5000), "t.fits", "header"),
    (lambda: cut("t.fits", 20000), "t.fits", "ends in row"),
    (lambda: hdf5() or os.truncate("t.hdf5", 300), "t.hdf5", "truncated"),
    (flipped, "t.csv.gz", "cannot read"),
    (lambda: text(gzip.compress(GOOD.encode())[:-12], "t.csv.gz"), "t.csv.gz", "ended"),
    (lambda: np.save("t.npy", np.zeros((9, 2))) or os.truncate("t.npy", 150), "t.npy[0]", "no [0]"),
    # Ragged and damaged text.
    (lambda: text(GOOD + "4,4,23\n"), "t.csv", "line 5 has 3 fields, but the header has 4"),
    (lambda: text(GOOD + "4,4,23,d,e\n"), "t.csv", "line 5 has 5 fields"),
    (lambda: text(GOOD + "4"), "t.csv", "line 5 has 1 fields"),
    (lambda: text(GOOD + '4,4,23,"d\n'), "t.csv", "quote is never closed"),
    (lambda: text(GOOD + "4,4,23,\0\n"), "t.csv", "byte 0"),
    (lambda: text(GOOD * 2), "t.csv", "column 'zspec' has text in row 4: 'zspec'"),
    (lambda: text(GOOD.replace("1.9", "1,9")), "t.csv", "line 3 has 5 fields"),
    (lambda: text(GOOD.replace("1.9", '"1,9"')), "t.csv", "text in row 2: '1,9'"),
    (lambda: text(GOOD.replace("1.9", "1_9")), "t.csv", "text in row 2"),
    (lambda: text(GOOD.replace("1.9", "٣")), "t.csv", "text in row 2"),
    (lambda: text(GOOD.replace(",", ";")), "t.csv", "no column 'zspec'"),
    (lambda: text(GOOD.split("\n", 1)[1]), "t.csv", "looks like data"),
    (lambda: text("1,2\n3,4\n"), "t.csv", "looks like data"),
    (lambda: text(b"zspec,zphot,\xff\n1,1,1\n"), "t.csv", "not UTF-8"),
    (lambda: text("zspec,zspec,zphot\n1,1,1\n"), "t.csv", "2 columns have the name 'zspec'"),
    # Columns that are not there, or hold no numbers.
    (lambda: text("zspec,imag\n1,1\n"), "t.csv", "t.csv has no column 'zphot'"),
    (lambda: text("zspec,zfot\n1,1\n"), "t.csv", "did you mean 'zfot'?"),
    (lambda: text(",".join(f"c{i}" for i in range(10000)) + "\n"), "t.csv", "and 9980 more"),
    (lambda: text('zspec,"a, b"," c","<script>","q""q","é\x1b[2J"\n'), "t.csv", "'<script>'"),
    (lambda: text("zspec,zphot\nTrue,1\nFalse,1\n"), "t.csv", "truth values"),
    (lambda: fits_column(format="3D", array=np.ones((2, 3))), "t.fits", "holds arrays"),
    (lambda: fits_column(format="PD()", array=[[1.0], [1.0]]), "t.fits", "holds arrays"),
    (lambda: fits_column(format="4A", array=["1", "2"]), "t.fits", "holds text"),
    (lambda: fits_column(format="L", array=[True, False]), "t.fits", "truth values"),
    (lambda: fits_column(format="M", array=[1j, 1j]), "t.fits", "holds arrays"),
    (lambda: table(), "t.fits[2]", "no extension [2]"),
    (lambda: table(), "t.fits[PHOT]", "no extension [PHOT]"),
    (lambda: table(), "t.fits[0]", "not a table"),
    (lambda: fits.PrimaryHDU(np.zeros((2, 2))).writeto("t.fits"), "t.fits", "no table"),
    (lambda: hdf5(zspec=[1.0], zphot=[1.0, 2.0]), "t.hdf5", "differ in length: 1 and 2"),
    (lambda: hdf5(zspec=np.ones((2, 2)), zphot=[1.0]), "t.hdf5", "no column 'zspec'"),
    (lambda: hdf5(zspec=[b"1"], zphot=[1.0]), "t.hdf5", "holds text"),
    (lambda: hdf5(), "t.hdf5", "no columns"),
    (lambda: hdf5(zspec=[1.0]), "t.hdf5[sky]", "no group [sky]"),
    (lambda: np.savez("t.npz", zspec=[1.0], zphot=[1.0, 2.0]), "t.npz", "differ in length"),
    (lambda: np.savez("t.npz", zspec=np.array([None])), "t.npz", "Python objects"),
    (lambda: text(b"\x93NUMPY" + pickle.dumps([1]), "t.npy"), "t.npy", "cannot read"),
    (lambda: np.save("t.npy", np.ones(3)), "t.npy", "no columns"),
    # Nothing to compute.
    (lambda: text("zspec,zphot\n"), "t.csv", "no objects are left: 0 rows read"),
    (lambda: text("zspec,zphot\n,1\n1,nan\n"), "t.csv", "1 masked, 0 missing, 1 with NaN, 0 used"),
]


@pytest.mark.parametrize("make, name, message", FILES, ids=range(len(FILES)))
def test_files(refusal, make, name, message):
    make()
    assert message in refusal(name, "zspec", "zphot", "--output", "out.txt", "--table", "out.csv")
    assert not pathlib.Path("out.txt").exists() and not pathlib.Path("out.csv").exists()
    assert not list(pathlib.Path().glob(".vostrel*"))


@pytest.mark.parametrize("words, message", [
    ("", "name a table"),
    ("t.csv", "name the column of the reference"),
    ("t.csv zspec", "name the column of the reference"),
    ("t.csv zspec zspec", "named twice"),
    ("t.csv zspec zphot zphot", "named twice"),
    ("t.csv zspec name", "'name' has text in row 1: 'a'"),
    ("t.csv zspec zphot --by name", "'name' has text in row 1"),
    ("t.csv zspec zphot --where imag>99", "no objects are left: 3 rows read, 3 not selected"),
    ("t.csv zspec zphot --where sky>9", "no column 'sky'"),
    ("t.csv zspec zphot --missing many", "--missing: must be a number, not 'many'"),
    ("t.csv zspec zphot --missing 1.1 --missing 2 --missing 3", "3 missing"),
    ("t.csv zspec zphot --bins 3,2,1", "bins"),
    ("t.csv zspec zphot --bins 0", "a number of bins from 1, or count:N, not '0'"),
    ("t.csv zspec zphot --memory -1", "--memory: must be 0 GiB or more, not '-1'"),
    ("t.csv zspec zphot --seed x", "--seed: must be a whole number from 0 to 18446744073709551615"),
    ("t.csv zspec zphot --seed -1", "--seed: must be a whole number from 0"),
    ("t.csv zspec zphot --seed 18446744073709551616", "--seed: must be a whole number from 0"),
    ("t.csv zspec zphot --resamples 1.5", "--resamples: must be a whole number from 2, not '1.5'"),
    ("t.csv zspec zphot --resamples 1", "--resamples: must be a whole number from 2, not '1'"),
    ("t.csv zspec zphot --bins count:x", "--bins"),
    ("t.csv zspec zphot --percentiles 16,x", "--percentiles: must be numbers from 0 to 100"),
    ("t.csv zspec zphot --percentiles -1,50", "--percentiles: must be numbers from 0 to 100"),
    ("t.csv zspec zphot --percentiles 100.1", "--percentiles: must be numbers from 0 to 100"),
    ("t.csv zspec zphot --outliers 0.1,,0.2", "--outliers: must be finite bounds of 0 or more"),
    ("t.csv zspec zphot --outliers nan", "--outliers: must be finite bounds of 0 or more"),
    ("t.csv zspec zphot --outliers 1e999", "--outliers: must be finite bounds of 0 or more"),
    ("t.csv zspec zphot --groups name", "--groups needs --errors bootstrap"),
    ("t.csv zspec zphot --errors guess", "invalid choice"),
    ("t.csv zspec zphot --confidence 1", "--confidence: must be between 0 and 1, not '1'"),
    ("t.csv zspec zphot --errors formula --memory 0", "must have all objects in memory"),
    ("t.csv zspec zphot --bins count:2 --memory 0", "bins of equal counts"),
    ("t.csv zspec zphot --memory nan", "--memory: must be 0 GiB or more, not 'nan'"),
    ("t.csv zspec zphot --frobnicate", "unrecognized arguments"),
    ("t.csv zspec zphot --output no/such/out.txt", "cannot write no/such/out.txt: No such file"),
    ("t.csv zspec zphot --output .", "it is a folder"),
    ("t.csv zspec zphot --table ./t.csv", "./t.csv would replace another file of this command"),
    ("t.csv zspec zphot --output a --report a", "a would replace another file of this command"),
    ("t.csv zspec zphot --output /dev/full", "cannot write /dev/full: No space left"),
    ("t.csv zspec zphot --table /dev/full", "cannot write /dev/full: No space left"),
])
def test_words(refusal, words, message):
    text(GOOD)
    assert message in refusal(*words.split())


def limited():
    """Files of this process may have 100 bytes."""
    resource.setrlimit(resource.RLIMIT_FSIZE, (100, 100))


@pytest.mark.parametrize("option", ["--output", "--table"])
def test_a_disk_that_fills_up_keeps_the_old_file(option):
    text("zspec,zphot\n" + "1.25,1.5\n" * 100)
    text("old", "out.txt")
    run = subprocess.run(
        [sys.executable, "-m", "vostrel", "t.csv", "zspec", "zphot", option, "out.txt"],
        capture_output=True, text=True, preexec_fn=limited,
    )
    assert (run.returncode, run.stdout) == (1, "")
    assert run.stderr == "vostrel-evaluate: cannot write out.txt: File too large\n"
    assert pathlib.Path("out.txt").read_text() == "old"
    assert sorted(os.listdir()) == ["out.txt", "t.csv"]


@pytest.mark.parametrize("content, message", [
    ("", "standard input: the file is empty"),
    (GOOD, "standard input has no column 'zphot2'; did you mean 'zphot'? "),
])
def test_standard_input(refusal, monkeypatch, content, message):
    monkeypatch.setattr(sys, "stdin", io.TextIOWrapper(io.BytesIO(content.encode())))
    assert refusal("-", "zspec", "zphot2").startswith(message)


def test_no_file_is_written_if_one_of_them_fails(refusal):
    text(GOOD)
    words = ["t.csv", "zspec", "zphot", "--table", "a.csv", "--report", "b.html"]
    message = refusal(*words, "--output", "/dev/full")
    assert message == "cannot write /dev/full: No space left on device"
    full = subprocess.run(f"{sys.executable} -m vostrel {' '.join(words)} >/dev/full", shell=True)
    assert full.returncode == 1
    assert os.listdir() == ["t.csv"]


def test_standard_output_that_is_full_or_closed():
    text(GOOD)
    command = f"{sys.executable} -m vostrel t.csv zspec zphot"
    full = subprocess.run(f"{command} >/dev/full", shell=True, capture_output=True, text=True)
    assert (full.returncode, full.stderr) == (
        1, "vostrel-evaluate: cannot write standard output: No space left on device\n"
    )
    closed = subprocess.run(f"{command} >&-", shell=True, capture_output=True, text=True)
    assert closed.returncode == 1 and closed.stderr.count("\n") == 1
    assert closed.stderr.startswith("vostrel-evaluate: ")


def test_a_file_without_rights(scratch, without_rights):
    # A user without rights may not see where the package was built.
    package = pathlib.Path(vostrel.__file__).parent
    shutil.copytree(package, scratch / "package" / package.name)
    for path in scratch.rglob("*"):
        path.chmod(0o755)
    table = scratch / "t.csv"
    table.write_text(GOOD)
    table.chmod(0)
    run = subprocess.run(
        [sys.executable, "-m", "vostrel", table, "zspec", "zphot"], capture_output=True, text=True,
        cwd="/", env={**os.environ, "PYTHONPATH": str(scratch / "package")}, **without_rights,
    )
    assert run.returncode == 1 and run.stderr.count("\n") == 1
    assert "Permission denied" in run.stderr
