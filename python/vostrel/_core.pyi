"""The compiled core. Private: use what `vostrel` exports."""

from collections.abc import Sequence
from typing import Any, Optional

import numpy as np
from numpy.typing import NDArray

VERSION: str

#: Label, normalized label, the console's normalized label, unit; in the order of the report.
STATISTICS: tuple[tuple[str, str, str, str], ...]

#: The eleven numbers of a residual, in the order of STATISTICS.
_Eleven = tuple[
    float, float, float, float, float, float, float, float, float, float, float
]

_Arrays = Sequence[NDArray[Any]]

def point_statistics(
    columns: _Arrays, masks: _Arrays, omit_nan: bool
) -> tuple[int, int, int, Optional[_Eleven], Optional[_Eleven]]:
    """Return n, n_masked, n_nan and both residuals; None when NaN are met and not omitted."""

def lsst_metrics(
    columns: _Arrays, masks: _Arrays, omit_nan: bool
) -> tuple[int, int, int, Optional[tuple[float, float, float, float]]]:
    """Return n, n_masked, n_nan and the metrics; None when NaN are met and not omitted."""

def binned_statistics(
    columns: _Arrays, masks: _Arrays, omit_nan: bool, edges: Sequence[float]
) -> tuple[NDArray[np.uint64], NDArray[np.uint64], int, NDArray[np.float64]]:
    """Return counts, nan_counts, n_outside and the numbers in shape (2, 11, bins).

    The objects are binned by the third column, or by the first of two.
    """

def survey(
    columns: _Arrays, masks: _Arrays, omit_nan: bool
) -> tuple[int, int, int, float, float]:
    """Return n, n_masked, n_nan, and the least and greatest value to bin by."""

def order_values(
    columns: _Arrays, masks: _Arrays, n: int, ranks: Sequence[int]
) -> NDArray[np.float64]:
    """Return the values to bin by that have these ranks among n objects without NaN."""
