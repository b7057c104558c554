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

from vostrel._binned import binned_statistics
from vostrel._bootstrap import BootstrapDifference, bootstrap, bootstrap_difference
from vostrel._core import VERSION as __version__
from vostrel._lsst import lsst_metrics
from vostrel._point import point_statistics
from vostrel._report import read_report
from vostrel._results import (
    BinnedResiduals,
    BinnedStatistics,
    LsstMetrics,
    PointStatistics,
    Residuals,
)
from vostrel._uncertainties import Estimate, UncertainResiduals, Uncertainties, uncertainties

__all__ = [
    "BinnedResiduals",
    "BinnedStatistics",
    "BootstrapDifference",
    "Estimate",
    "LsstMetrics",
    "PointStatistics",
    "Residuals",
    "UncertainResiduals",
    "Uncertainties",
    "__version__",
    "binned_statistics",
    "bootstrap",
    "bootstrap_difference",
    "lsst_metrics",
    "point_statistics",
    "read_report",
    "uncertainties",
]
