"""Statistics by which redshift estimates, and any regression, are judged.

The numbers are those of the program ``vostrel``, to the last bit, from arrays
instead of files.

>>> import vostrel
>>> s = vostrel.point_statistics([0.5, 1.0, 1.5, 2.0], [0.4, 1.1, 1.4, 2.3])
>>> s.n
4
>>> round(s.norm.nmad, 6)
0.086485
"""

from vostrel._core import VERSION as __version__
from vostrel._point import point_statistics
from vostrel._report import read_report
from vostrel._results import PointStatistics, Residuals

__all__ = [
    "PointStatistics",
    "Residuals",
    "__version__",
    "point_statistics",
    "read_report",
]
