"""Error statistics of redshift estimates, or of any regression.

==========================  ====================================================
point_statistics            all statistics of two arrays
binned_statistics           the same in bins of some quantity
uncertainties               all statistics with their errors, by formula
bootstrap                   all statistics with their errors, by resampling
bootstrap_difference        compares estimators, with errors
lsst_metrics                the four point metrics of LSST's pipelines
chunked_statistics          for data that don't fit into memory
chunked_binned_statistics   the same in bins
Accumulator                 for custom schedulers
read_report                 the numbers of a report of the program ``vostrel``
vostrel.dask                for Dask's collections
vostrel.mpi                 for the processes of an MPI job
vostrel.plot                figures
==========================  ====================================================

The numbers have the same bits as those of the program ``vostrel``, from arrays
instead of files.

>>> import vostrel
>>> s = vostrel.point_statistics([0.5, 1.0, 1.5, 2.0], [0.4, 1.1, 1.4, 2.3])
>>> s.n
4
>>> round(s.norm.nmad, 6)
0.086485
"""

from typing import TYPE_CHECKING

import vostrel._blas  # noqa: F401 - before anything imports NumPy
from vostrel._accumulator import Accumulator
from vostrel._binned import binned_statistics
from vostrel._bootstrap import BootstrapDifference, bootstrap, bootstrap_difference
from vostrel._chunked import chunked_binned_statistics, chunked_statistics
from vostrel._core import VERSION as __version__
from vostrel._lsst import lsst_metrics
from vostrel._point import point_statistics
from vostrel._report import read_report
from vostrel._results import (
    BinnedLsstMetrics,
    BinnedResidualStatistics,
    BinnedStatistics,
    LsstMetrics,
    PointStatistics,
    ResidualStatistics,
    Uncertain,
    UncertainLsstMetrics,
    UncertainResidualStatistics,
    Uncertainties,
)
from vostrel._uncertainties import uncertainties

__all__ = [
    "Accumulator",
    "BinnedLsstMetrics",
    "BinnedResidualStatistics",
    "BinnedStatistics",
    "BootstrapDifference",
    "LsstMetrics",
    "PointStatistics",
    "ResidualStatistics",
    "Uncertain",
    "UncertainLsstMetrics",
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

#: The modules that are imported when they are used, and the library that each needs.
_MODULES = {"dask": "dask", "mpi": "mpi4py", "plot": "matplotlib"}

if TYPE_CHECKING:
    from types import ModuleType

    from vostrel import dask as dask  # noqa: F401
    from vostrel import mpi as mpi  # noqa: F401
    from vostrel import plot as plot  # noqa: F401
else:  # a type checker would take any misspelt name for a module

    def __getattr__(name: str) -> "ModuleType":
        if name not in _MODULES:
            raise AttributeError(f"module 'vostrel' has no attribute {name!r}")
        from importlib import import_module

        return import_module(f"vostrel.{name}")


def __dir__() -> list[str]:
    from importlib.util import find_spec

    return sorted(__all__ + [name for name, library in _MODULES.items() if find_spec(library)])
