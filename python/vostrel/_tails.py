"""Whether residuals have tails too heavy for any sample to show."""

from __future__ import annotations

import math
from collections.abc import Callable
from functools import lru_cache
from typing import TYPE_CHECKING

import numpy as np

from vostrel._intervals import t_central, t_quantile

if TYPE_CHECKING:  # importing the package must be quick
    from numpy.typing import NDArray

#: If more objects make up the fourth moment, its error is known, whatever the tails.
ENOUGH = 30.0

#: Curves are known at STEPS values of abs(r) in an octave, from the median / 2**OCTAVES to the
#: median * 2**OCTAVES. Objects are counted in cells of a quarter of an octave.
STEPS = 16
OCTAVES = 14
CELLS = np.arange(-3 * STEPS, 9 * STEPS + 1, STEPS // 4)

#: Degrees of freedom of Student's t without a finite fourth moment, and with one.
INFINITE = (1, 2, 3, 4)
FINITE = (5, 6, 8, 12)

#: The mixtures: logarithms to base 2 of the parts of outliers, and of how much wider they are.
PARTS = np.arange(-1, -12.5, -0.5)
RATIOS = np.arange(0.5, 5.0, 0.5)


def effective_objects(residuals: NDArray[np.float64]) -> float:
    """Return how many objects make up the fourth moment: (sum of u)^2 / (sum of u^2)."""
    with np.errstate(all="ignore"):
        u = ((residuals - residuals.mean()) ** 2 - residuals.var()) ** 2
        return float(u.sum() ** 2 / (u * u).sum())


def are_endless(residuals: NDArray[np.float64]) -> bool:
    """Return whether residuals look like those of an infinite fourth moment.

    They do if few objects make up the moment, and a Student's t with an infinite
    one is likelier than every curve with a finite one: Student's t with more
    degrees, and normal or Laplace's residuals with normal outliers.
    """
    if not effective_objects(residuals) < ENOUGH:
        return False
    sizes = abs(residuals - np.median(residuals))
    middle = np.median(sizes)
    if not middle > 0:
        return False
    edges = middle * 2.0 ** (CELLS / STEPS)
    counts = np.bincount(np.searchsorted(edges, sizes), minlength=len(CELLS) + 1)
    infinite, finite = _curves()
    return bool(np.max(infinite @ counts) > np.max(finite @ counts))


@lru_cache
def _curves() -> tuple[NDArray[np.float64], NDArray[np.float64]]:
    """Return the logarithms of the probabilities of the cells: one row for each curve."""
    # A row reads a curve at the edges of the cells, with its median moved by some steps.
    moves = np.arange(-STEPS, STEPS // 2 + 1)
    places = CELLS + OCTAVES * STEPS - moves[:, None]
    normal = _curve(lambda x: math.erf(x * 0.4769362762044699))
    laplace = _curve(lambda x: -math.expm1(-x * math.log(2)))
    infinite = [_student(degrees)[places] for degrees in INFINITE]
    finite = [_student(degrees)[places] for degrees in FINITE]
    for core in (normal, laplace):
        for part in 2.0**PARTS:
            for shift in (STEPS * RATIOS).astype(int):
                finite.append((1 - part) * core[places] + part * normal[places - shift])
    return _logarithms(infinite), _logarithms(finite)


def _logarithms(below: list[NDArray[np.float64]]) -> NDArray[np.float64]:
    """Return the logarithms of the probabilities between the edges, and beyond both ends."""
    rows = np.pad(np.concatenate(below), ((0, 0), (1, 1)), constant_values=(0, 1))
    found: NDArray[np.float64] = np.log(np.maximum(np.diff(rows), 1e-12))
    return found


def _curve(function: Callable[[float], float]) -> NDArray[np.float64]:
    """Return a distribution function of abs(r), whose median is 1, at the known values."""
    steps = range(-OCTAVES * STEPS, OCTAVES * STEPS + 1)
    return np.array([function(2.0 ** (step / STEPS)) for step in steps])


def _student(degrees: int) -> NDArray[np.float64]:
    median = t_quantile(0.5, degrees)
    return _curve(lambda x: t_central(x * median, degrees))
