"""Data sets for passes over chunks, and ways to cut them."""

import numpy as np
from data_sets import LONG, data_set, redshifts

SETS = 1000 if LONG else 20

#: Further numbers to ask for.
ASKED = {"percentiles": (2.5, 16, 97.5), "outliers": (0.05, 0.2)}


def columns_of(binned):
    """All columns of a BinnedStatistics, one after the other."""
    return np.concatenate([np.float64(column) for column in binned._table().values()])


def hard_residuals(rng, n):
    """Residuals about which the first pass learns little."""
    shape = rng.integers(6)
    if shape == 0:  # all share their leading bits
        return 1 + rng.integers(0, 2**20, n) * 2.0**-52
    if shape == 1:  # the median lies between two clusters
        return rng.choice([-1.0, 1.0], n) + rng.integers(0, 1000, n) * 2.0**-50
    if shape == 2:  # every power of two
        return rng.choice([-1.0, 1.0], n) * np.exp2(rng.integers(-1000, 1000, n))
    if shape == 3:  # as many as can be lie at the bounds of the outliers
        return rng.choice([0.15, -0.15, np.nextafter(0.15, 1), 0.3, -0.3, 0.6], n)
    if shape == 4:  # the tail decides sigma
        return np.where(rng.random(n) < 1e-3, 1e6, 1e-6) * rng.standard_normal(n)
    return rng.standard_cauchy(n) ** 3


def scale_sets(rng, count):
    """References and estimates: a third are small, a third from `data_set`, a third hard."""
    for i in range(count):
        n = int(rng.integers(1, 100) if i % 3 == 0 else rng.integers(8000, 9000))
        if i % 5 == 1:  # more than a bracket keeps
            n = 20_000
        if i % 3 == 2:
            yield np.zeros(n), hard_residuals(rng, n)
        else:
            yield data_set(rng, n)


def cut(columns, parts):
    """The columns cut into this many chunks. Some are empty if there are few rows."""
    return list(zip(*(np.array_split(column, parts) for column in columns)))


def ways_to_cut(rng, columns):
    """Names and lists of chunks with the same rows."""
    columns = [np.asarray(column) for column in columns]
    for parts in (1, 2, 7, 64, 1000):
        yield f"{parts} chunks", cut(columns, parts)
    shuffled = rng.permutation(len(columns[0]))
    yield "shuffled", cut([column[shuffled] for column in columns], 7)
    by_reference = np.argsort(columns[0], kind="stable")
    yield "sorted", cut([column[by_reference] for column in columns], 7)
    yield "reversed", cut([column[::-1] for column in columns], 7)
    empty = tuple(column[:0] for column in columns)
    yield "one and empty ones", [empty, empty, tuple(columns), empty]


def shares(chunks, workers):
    """The chunks of each worker."""
    return [chunks[worker::workers] for worker in range(workers)]


__all__ = ["SETS", "cut", "hard_residuals", "redshifts", "scale_sets", "shares", "ways_to_cut"]
