"""Prints the results of vostrel bit by bit, to compare two builds.

    wheel_bits.py make DATA.npz     writes data sets
    wheel_bits.py show DATA.npz     prints the path of vostrel, then a line for each result
"""

import dataclasses
import sys

import numpy as np

SIZES = (1, 2, 9, 1000, 8193, 300_000)


def make(path):
    rng = np.random.default_rng(1)
    sets = {}
    for n in SIZES:
        reference = rng.gamma(2.0, 0.4, n)
        scatter = np.where(rng.random(n) < 0.1, 0.5, 0.03)
        sets[f"redshifts of {n}"] = reference, reference + scatter * rng.standard_normal(n)
        wide = 10.0 ** rng.integers(-200, 200, n)
        sets[f"wide of {n}"] = rng.standard_normal(n) * wide, rng.standard_normal(n)
        sets[f"grid of {n}"] = rng.integers(0, 300, n) / 100, rng.integers(0, 300, n) / 100
        odd = rng.choice([np.inf, -np.inf, -1.0, 0.0, -0.0, 5e-324, 1e308], n)
        sets[f"odd of {n}"] = odd, rng.permutation(odd)
    np.savez(path, **{name: np.array(columns) for name, columns in sets.items()})


def bits(result):
    """All numbers of a result in hexadecimal; all NaNs are alike."""
    if dataclasses.is_dataclass(result):
        return " ".join(bits(getattr(result, field.name)) for field in dataclasses.fields(result))
    if isinstance(result, (tuple, list, np.ndarray)):
        return " ".join(map(bits, result))
    if isinstance(result, (int, float, np.number)):
        return "nan" if result != result else float(result).hex()
    return ""


def show(path):
    import vostrel

    print(vostrel.__file__)
    for name, (reference, estimate) in np.load(path).items():
        halves = list(zip(np.array_split(reference, 2), np.array_split(estimate, 2)))
        results = {
            "point": vostrel.point_statistics(reference, estimate),
            "chunked": vostrel.chunked_statistics(halves),
            "lsst": vostrel.lsst_metrics(reference, estimate),
        }
        if name.startswith("redshifts") and len(reference) > 100:
            edges = [0, 0.5, 1, 2]
            results["binned"] = vostrel.binned_statistics(reference, estimate, bins=edges)
            results["formulas"] = vostrel.uncertainties(reference, estimate)
            # Not the errors: NumPy's standard deviation differs between its releases.
            u = vostrel.bootstrap(reference, estimate, resamples=50, seed=1)
            results["bootstrap"] = u.replicates
        for kind, result in results.items():
            print(name, kind, bits(result))


if __name__ == "__main__":
    {"make": make, "show": show}[sys.argv[1]](sys.argv[2])
