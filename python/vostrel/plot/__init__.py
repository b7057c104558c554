"""Diagnostic figures of estimates. Needs matplotlib.

`diagnostic_figure` draws one estimator, `compare_figure` several. Each panel
can also be drawn alone, on your own Axes. The program ``vostrel-plot`` draws
the same figures from a shell.
"""

from __future__ import annotations

import sys
from typing import TYPE_CHECKING

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

if not TYPE_CHECKING:  # a type checker would take any misspelt name for a function

    def __getattr__(name: str) -> object:
        # matplotlib is imported only when something is drawn: it takes long, and may be missing.
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
