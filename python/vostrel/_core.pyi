"""The compiled core. Private: use what `vostrel` exports."""

from collections.abc import Sequence
from typing import Any, Optional

from numpy.typing import NDArray

VERSION: str

#: Label, normalized label, the console's normalized label, unit; in the order of the report.
STATISTICS: tuple[tuple[str, str, str, str], ...]

#: The eleven numbers of a residual, in the order of STATISTICS.
_Eleven = tuple[
    float, float, float, float, float, float, float, float, float, float, float
]

def point_statistics(
    columns: Sequence[NDArray[Any]], masks: Sequence[NDArray[Any]], omit_nan: bool
) -> tuple[int, int, int, Optional[_Eleven], Optional[_Eleven]]:
    """Return n, n_masked, n_nan and both residuals; None when NaN are met and not omitted."""
