#!/usr/bin/env python3
"""Writes the simulated tables of the documents' examples into the current folder.

Needs pandas, astropy and h5py, and pyarrow for survey.parquet: pip install '.[evaluate]'
"""

import gzip
import pathlib

import h5py
import numpy as np
import pandas
from astropy.table import Table

N = 4000


def simulate():
    """Return the columns of one survey."""
    rng = np.random.default_rng(1)
    magnitude = rng.triangular(18, 24, 24, N)
    zspec = rng.gamma(3, 0.2, N)

    def estimate(scatter, failures):
        width = np.where(rng.random(N) < failures, 0.3, scatter * (magnitude / 21) ** 3)
        return zspec + (1 + zspec) * width * rng.standard_normal(N)

    columns = {
        "zspec": zspec,
        "zphot": estimate(0.03, 0.03),
        "template": estimate(0.02, 0.02),
        "forest": estimate(0.025, 0.03),
        "network": estimate(0.015, 0.05),
        "imag": magnitude,
        "quality": rng.choice([1, 2, 3, 4], N, p=[0.02, 0.03, 0.25, 0.7]),
        "field": rng.integers(0, 60, N),
        "flag": rng.choice([0, 1], N, p=[0.98, 0.02]),
    }
    columns["zphot"][::100] = np.nan  # objects without an estimate
    return pandas.DataFrame(columns)


def write_text(frame):
    """Write CSV with and without a header line, and pack a table with comments and semicolons."""
    frame.to_csv("cat.csv", index=False)
    two = frame[["zspec", "zphot"]]
    two.to_csv("survey.csv", header=False)
    packed = "# made by hand\n" + two.to_csv(sep=";", index_label="id")
    pathlib.Path("survey.csv.gz").write_bytes(gzip.compress(packed.encode()))


def write_binary(frame):
    """Write FITS, HDF5, NumPy's format, and Parquet if pandas can."""
    upper = frame.rename(columns={"zspec": "Z_SPEC", "zphot": "Z_PHOT"})
    Table.from_pandas(upper).write("survey.fits", overwrite=True)
    with h5py.File("big.hdf5", "w") as file:
        for name in frame:
            file[name] = frame[name].to_numpy()
    complete = frame.dropna()
    np.save("zspec.npy", complete["zspec"].to_numpy())
    np.save("zphot.npy", complete["zphot"].to_numpy())
    try:
        frame.to_parquet("survey.parquet")
    except ImportError:
        print("survey.parquet needs pyarrow")


def write_parts(frame):
    """Write files of a part of the objects each."""
    complete = frame.dropna()
    for i in range(3):
        part = complete[i::3]
        part.to_csv(f"part-{i}.csv", index=False)
        Table.from_pandas(part).write(f"tile_{i}.fits", overwrite=True)
        with h5py.File(f"part-{i}.hdf5", "w") as file:
            for name in ("zspec", "zphot"):
                file[name] = part[name].to_numpy()


if __name__ == "__main__":
    survey = simulate()
    write_text(survey)
    write_binary(survey)
    write_parts(survey)
