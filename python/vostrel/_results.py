"""What the functions return, and how it is printed."""

from __future__ import annotations

import html
import re
from dataclasses import astuple, dataclass, fields
from typing import TYPE_CHECKING, Any, Generic, TypeVar, Union

from vostrel import _core

if TYPE_CHECKING:
    import pandas

T = TypeVar("T")


@dataclass(frozen=True)
class Eleven(Generic[T]):
    """The statistics of one residual, in the order of the program's report."""

    bias: T
    sigma: T
    rms: T
    mad: T
    nmad: T
    mad_delta: T
    outliers_015: T
    outliers_1sigma: T
    outliers_2sigma: T
    outliers_3sigma: T
    outliers_4sigma: T


class Residuals(Eleven[float]):
    """The statistics of one residual r over n objects.

    Outliers are percentages, 0 to 100. The others have the unit of the
    residual, which for redshifts is dimensionless.

    Attributes
    ----------
    bias : float
        Mean of r.
    sigma : float
        Standard deviation about the bias, with divisor n.
    rms : float
        Root mean square of r, about zero.
    mad : float
        Median of abs(r): about zero, not about the median.
    nmad : float
        1.4826 * mad.
    mad_delta : float
        Median of abs(r - median(r)).
    outliers_015 : float
        Percentage of objects with abs(r) > 0.15.
    outliers_1sigma, outliers_2sigma, outliers_3sigma, outliers_4sigma : float
        Percentage of objects with abs(r) beyond 1, 2, 3 or 4 sigma. Measured
        from zero, not from the bias.
    """


#: The attributes of Residuals, in the order of the report.
NAMES = tuple(field.name for field in fields(Eleven))

#: Attribute, label and unit of each statistic.
ROWS = tuple((name, label, unit) for name, (label, _, _, unit) in zip(NAMES, _core.STATISTICS))


@dataclass(frozen=True)
class PointStatistics:
    """The statistics of n objects.

    Attributes
    ----------
    n : int
        Number of objects that the statistics are made of.
    n_masked : int
        Number of objects left out because they are masked.
    n_nan : int
        Number of objects with NaN: left out with ``nan_policy="omit"``, and
        among the ``n`` with ``nan_policy="propagate"``.
    delta : Residuals
        Statistics of the residual: reference - estimate.
    norm : Residuals
        Statistics of the normalized residual:
        (reference - estimate) / (1 + reference).
    """

    n: int
    n_masked: int
    n_nan: int
    delta: Residuals
    norm: Residuals

    def to_dict(self) -> dict[str, Union[int, float]]:
        """Return all numbers under flat names such as ``"norm_nmad"``.

        Returns
        -------
        dict
            ``n``, ``n_masked``, ``n_nan``, the eleven numbers of ``delta``
            and those of ``norm``, in this order.

        Examples
        --------
        >>> import vostrel
        >>> s = vostrel.point_statistics([0.5, 1.0], [0.75, 1.5])
        >>> s.to_dict()["delta_bias"]
        -0.375
        """
        result: dict[str, Union[int, float]] = {
            "n": self.n,
            "n_masked": self.n_masked,
            "n_nan": self.n_nan,
        }
        for part in ("delta", "norm"):
            for name, value in zip(NAMES, astuple(getattr(self, part))):
                result[f"{part}_{name}"] = value
        return result

    def to_series(self) -> pandas.Series[Any]:
        """Return `to_dict` as a pandas Series. Needs pandas.

        Returns
        -------
        pandas.Series
            25 numbers of type float64 under the names of `to_dict`.

        Raises
        ------
        ImportError
            When pandas is not installed.
        """
        return import_pandas("to_series").Series(self.to_dict(), dtype="float64")

    def __str__(self) -> str:
        label_width = max(len(label) for _, label, _ in ROWS)
        columns = [
            [heading] + aligned([_text(getattr(part, name), unit) for name, _, unit in ROWS])
            for heading, part in (("delta", self.delta), ("delta norm", self.norm))
        ]
        widths = [max(map(len, column)) for column in columns]
        lines = [_counted(self)]
        for label, *cells in zip(["", *(label for _, label, _ in ROWS)], *columns):
            row = "  ".join(cell.rjust(width) for cell, width in zip(cells, widths))
            lines.append(f"{label:<{label_width}}  {row}".rstrip())
        return "\n".join(lines)

    def _repr_html_(self) -> str:
        rows = "".join(
            f"<tr><th>{html.escape(label)}</th>"
            f"<td>{_text(getattr(self.delta, name), unit)}</td>"
            f"<td>{_text(getattr(self.norm, name), unit)}</td></tr>"
            for name, label, unit in ROWS
        )
        return (
            f"<table><caption>{_counted(self)}</caption>"
            "<thead><tr><th></th><th>delta</th><th>delta norm</th></tr></thead>"
            f"<tbody>{rows}</tbody></table>"
        )


def import_pandas(wanted_by: str) -> Any:
    """Return pandas, or raise an ImportError that says who needs it."""
    try:
        import pandas
    except ImportError as error:
        raise ImportError(f"{wanted_by} needs pandas, which is not installed") from error
    return pandas


def _point(text: str) -> int:
    """Return where the decimal point of a number stands, or would."""
    return len(re.split("[.e%]", text)[0])


def aligned(texts: list[str]) -> list[str]:
    """Return numbers of equal width whose decimal points stand below each other."""
    points = [_point(text) for text in texts]
    width = max(points)
    padded = [" " * (width - point) + text for text, point in zip(texts, points)]
    return [text.ljust(max(map(len, padded))) for text in padded]


def _text(value: float, unit: str) -> str:
    """Return the value as the program's report has it."""
    return f"{value:.6g}{unit}"


def _counted(statistics: PointStatistics) -> str:
    objects = f"{statistics.n} object" + ("" if statistics.n == 1 else "s")
    return f"{objects}, {statistics.n_masked} masked, {statistics.n_nan} with NaN"
