"""The statistics by which redshift estimates, and any regression, are judged.

The numbers are those of the program ``vostrel``, to the last bit, but from
arrays instead of files.

>>> import vostrel
>>> s = vostrel.point_statistics([0.5, 1.0, 1.5, 2.0], [0.4, 1.1, 1.4, 2.3])
>>> s.n
4
>>> round(s.norm.nmad, 6)
0.086485
"""

import importlib
from types import ModuleType

from vostrel._accumulator import Accumulator
from vostrel._binned import binned_statistics
from vostrel._bootstrap import BootstrapDifference, bootstrap, bootstrap_difference
from vostrel._chunked import chunked_binned_statistics, chunked_statistics
from vostrel._core import VERSION as __version__
from vostrel._lsst import lsst_metrics
from vostrel._point import point_statistics
from vostrel._report import read_report
from vostrel._results import (
    BinnedResidualStatistics,
    BinnedStatistics,
    LsstMetrics,
    PointStatistics,
    ResidualStatistics,
    Uncertain,
    UncertainResidualStatistics,
    Uncertainties,
)
from vostrel._uncertainties import uncertainties

__all__ = [
    "Accumulator",
    "BinnedResidualStatistics",
    "BinnedStatistics",
    "BootstrapDifference",
    "LsstMetrics",
    "PointStatistics",
    "ResidualStatistics",
    "Uncertain",
    "UncertainResidualStatistics",
    "Uncertainties",
    "__version__",
    "binned_statistics",
    "bootstrap",
    "bootstrap_difference",
    "chunked_binned_statistics",
    "chunked_statistics",
    "lsst_metrics",
    "point_statistics",
    "read_report",
    "uncertainties",
]


def __getattr__(name: str) -> ModuleType:
    """Import the modules that need other packages only when they are used."""
    if name in ("dask", "mpi"):
        return importlib.import_module(f"vostrel.{name}")
    raise AttributeError(f"module 'vostrel' has no attribute {name!r}")
