"""Uses every public name as a user's typed script does. A test runs it and checks its types."""

import tempfile
from typing import Any, assert_type

import numpy as np
import vostrel
from numpy.typing import NDArray
from vostrel import (
    Accumulator,
    BinnedLsstMetrics,
    BinnedResidualStatistics,
    BinnedStatistics,
    BootstrapDifference,
    LsstMetrics,
    PointStatistics,
    ResidualStatistics,
    Uncertain,
    Uncertainties,
    UncertainLsstMetrics,
    UncertainResidualStatistics,
)

z, p = [0.5, 1.0, 1.5, 2.0], np.array([0.4, 1.1, 1.4, 2.3])

s = vostrel.point_statistics(z, p, mask=[False] * 4, nan_policy="omit")
assert_type(s, PointStatistics)
assert_type(s.norm, ResidualStatistics)
assert_type(s.norm.nmad + s.n, float)
assert_type(s.to_dict(), dict[str, int | float])

b = vostrel.binned_statistics(z, p, bins=("count", 2), uncertainties=True)
assert_type(b, BinnedStatistics)
assert_type(b[0], PointStatistics)
assert_type(b[:1], BinnedStatistics)
assert_type(b["norm_nmad"], NDArray[Any])
assert_type(b.norm, BinnedResidualStatistics)
assert_type(b.norm.nmad, NDArray[np.float64])
assert_type(b.lsst, BinnedLsstMetrics)
assert_type(b.counts, NDArray[np.int64])

u = vostrel.uncertainties(z, p, confidence=0.95, percentiles=16)
assert_type(u, Uncertainties)
assert_type(u.norm, UncertainResidualStatistics)
assert_type(u.norm.nmad, Uncertain)
assert_type(float(u.norm.nmad) + u.norm.nmad.low, float)
assert_type(u.norm.percentiles[16], Uncertain)
assert_type(u.lsst, UncertainLsstMetrics)
assert_type(vostrel.bootstrap(z, p, resamples=10, seed=1, progress=False), Uncertainties)

d = vostrel.bootstrap_difference(z, {"A": p, "B": z}, resamples=10)
assert_type(d, BootstrapDifference)
assert_type(d["A", "B"], Uncertainties)
assert_type(d.lsst.outlier_rate, Uncertain)

assert_type(vostrel.lsst_metrics(z, p), LsstMetrics)


def show(done: int, total: int | None) -> None:
    print(done, total)


assert_type(vostrel.chunked_statistics([(z, p)], progress=show), PointStatistics)
assert_type(vostrel.chunked_binned_statistics(lambda: [(z, p)], bins=[0, 3]), BinnedStatistics)

passes = Accumulator(nan_policy="raise")
while passes.needs_another_pass:
    part = passes.fresh()
    part.add(z, p)
    passes.merge(part)
    passes.end_pass()
assert_type(passes.result(), PointStatistics)

with tempfile.NamedTemporaryFile() as empty:
    try:
        assert_type(vostrel.read_report(empty.name), PointStatistics)
    except ValueError:
        print(vostrel.__version__)


def modules() -> None:
    """What needs other libraries. Only its types are checked."""
    vostrel.dask.point_statistics(z, p)
    vostrel.dask.binned_statistics(z, p, bins=[0, 1])
    vostrel.mpi.point_statistics([(z, p)], comm=None)
    vostrel.plot.diagnostic_figure(z, p)
    vostrel.plot.compare_figure(z, {"A": p})
