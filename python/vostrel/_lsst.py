"""The point metrics of LSST's photometric-redshift pipelines."""

from __future__ import annotations

from typing import Any

from vostrel._inputs import NanPolicy, prepare
from vostrel._point import statistics_of
from vostrel._results import LsstMetrics


def lsst_metrics(
    reference: Any,
    estimate: Any,
    *,
    mask: Any | None = None,
    nan_policy: NanPolicy = "raise",
) -> LsstMetrics:
    """Compute the four point metrics that LSST's pipelines report.

    Parameters
    ----------
    reference, estimate : array_like, shape (n,)
        Reference and estimated redshifts. Dimensionless.
    mask : array_like of bool, shape (n,), optional
        True leaves an object out, as a masked entry does.
    nan_policy : {"raise", "omit", "propagate"}
        What to do with objects that have NaN, as in `point_statistics`.

    Returns
    -------
    LsstMetrics
        Of e = (estimate - reference) / (1 + reference): the median, the
        standard deviation as estimated from the interquartile range and from
        the MAD about the median, and the fraction of outliers. All are NaN
        if an e is NaN, which comes from infinities or a reference of -1.

    Raises
    ------
    ValueError, TypeError
        As for `point_statistics`.

    Notes
    -----
    The sign of e is opposite to that of the normalized residual of
    `point_statistics`. LSSTDESC's RAIL names the metrics PointBiasEz,
    PointSigmaIQR, PointSigmaMAD and PointOutlierRate [1]_. They have the same
    bits as these NumPy formulas::

        e = (estimate - reference) / (1 + reference)
        bias = np.median(e)
        q25, q75 = np.percentile(e, [25, 75])
        sigma_iqr = (q75 - q25) / 1.349
        sigma_mad = 1.4826 * np.median(np.abs(e - np.median(e)))
        outlier_rate = np.mean(np.abs(e) > max(0.06, 3 * sigma_iqr))

    No array of e is made: the data are read several times instead.

    References
    ----------
    .. [1] Graham et al. 2018, "Photometric Redshifts with the LSST:
       Evaluating Survey Observing Strategies", AJ 155, 1.

    Examples
    --------
    >>> import vostrel
    >>> m = vostrel.lsst_metrics([1.0, 1.0, 1.0, 1.0], [1.0, 1.25, 1.5, 3.0])
    >>> m.bias, m.outlier_rate
    (0.1875, 0.25)
    """
    columns = prepare(nan_policy, mask, reference=reference, estimate=estimate)
    return statistics_of(columns, nan_policy).lsst
