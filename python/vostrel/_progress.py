"""How long functions show their progress."""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

from vostrel._options import shown
from vostrel._tables import optional

#: True for a bar, or a function of what is done and how much there is, or None if that is unknown.
Progress = bool | Callable[[int, int | None], object]


class Report:
    """Shows the progress of one piece of work."""

    def __init__(self, progress: Progress, total: int | None, title: str, unit: str) -> None:
        self._progress = progress
        self._total = total
        self._bar: Any = None
        if progress is True:
            tqdm = optional("tqdm", "progress=True")
            self._bar = tqdm.tqdm(total=total, desc=title, unit=unit)

    def __enter__(self) -> Report:
        return self

    def __exit__(self, *exception: object) -> None:
        if self._bar is not None:
            self._bar.close()

    def __call__(self, done: int) -> None:
        """Show how much is done so far."""
        if self._bar is not None:
            self._bar.update(done - self._bar.n)
        elif callable(self._progress):
            self._progress(done, self._total)


def check_progress(progress: Any) -> None:
    """Raise a TypeError for anything but a choice that Report understands."""
    if not (callable(progress) or isinstance(progress, bool)):
        raise TypeError(
            "progress must be True, False or a function that is called with (done, total), "
            f"not {shown(progress)}"
        )
