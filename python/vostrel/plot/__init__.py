"""Figures that show how good estimates are. Needs matplotlib.

`diagnostic_figure` draws one estimator, `compare_figure` several; each panel
is also there by itself, to be drawn on Axes of one's own. The program
``vostrel-plot`` does the same from a shell.
"""

from __future__ import annotations

import sys
from typing import TYPE_CHECKING, Any

if TYPE_CHECKING:
    from vostrel.plot._compare import compare_figure
    from vostrel.plot._figure import diagnostic_figure
    from vostrel.plot._panels import plot_estimates, plot_residual_histogram, plot_residuals

__all__ = [
    "compare_figure",
    "diagnostic_figure",
    "plot_estimates",
    "plot_residual_histogram",
    "plot_residuals",
]


def __getattr__(name: str) -> Any:
    # Only who draws waits for matplotlib, and can do without it as long as nothing is drawn.
    if name not in __all__:
        raise AttributeError(f"module {__name__!r} has no attribute {name!r}")
    try:
        from vostrel.plot import _compare, _figure, _panels
    except ImportError as error:
        module = (error.name or "matplotlib").partition(".")[0]
        raise ImportError(
            f"{sys.executable} has no Python module {module}: install it by "
            f"'{sys.executable} -m pip install {module}', or for Debian's Python "
            f"by 'apt install python3-{module.lower()}'",
            name=module,
        ) from error
    return next(
        getattr(module, name) for module in (_compare, _figure, _panels) if name in vars(module)
    )
