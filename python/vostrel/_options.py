"""Reads the options that several functions share, and says what is wrong with them."""

from __future__ import annotations

import operator
import os
import sys
from collections.abc import Iterable, Sequence
from typing import Any, NamedTuple

import numpy as np


def shown(value: Any) -> str:
    """Return a value as a message shows it: an array by its type and shape, never its values."""
    kind = type(value).__name__
    shape = getattr(value, "shape", ())
    if isinstance(shape, tuple) and shape:
        return f"{kind} of shape {shape}"
    if isinstance(value, (list, tuple, set, frozenset, dict)):
        plain = all(isinstance(one, (str, float, int, type(None))) for one in value)
        if len(value) > 4 or isinstance(value, dict) or not plain:
            return f"{kind} of {len(value)}"
    try:
        text = repr(value)
    except Exception:  # a broken object must not hide the message
        return f"one {kind}"
    if len(text) > 60 or text.startswith("<") or " at 0x" in text.lower():
        return f"one {kind}"
    return text


def read_integer(name: str, value: Any, least: int, most: int | None = None) -> int:
    """Return an integer between two limits."""
    try:
        if isinstance(value, (bool, np.bool_)):
            raise TypeError
        number = operator.index(value)
    except TypeError:
        raise TypeError(f"{name} must be an integer, not {shown(value)}") from None
    if number < least:
        raise ValueError(f"{name} must be at least {least}, not {shown(number)}")
    if most is not None and number > most:
        raise ValueError(f"{name} must be at most {most}, not {shown(number)}")
    return number


def read_workers(value: Any) -> int:
    """Return a number of threads. -1 means all processors."""
    number = read_integer("workers", value, -1)
    if number == 0:
        raise ValueError("workers must be a number of threads, or -1 for all processors, not 0")
    return number if number > 0 else os.cpu_count() or 1


def read_confidence(value: Any) -> float:
    """Return the confidence, a number between 0 and 1."""
    wanted = "confidence must be a number between 0 and 1"
    if isinstance(value, (bool, np.bool_)) or not isinstance(value, (float, int, np.number)):
        meant = _number_in(value)
        raise TypeError(f"{wanted}, not {shown(value)}{_did_you_mean(meant)}")
    if not 0 < value < 1:
        raise ValueError(f"{wanted}, not {shown(value)}{_did_you_mean(float(value))}")
    return float(value)


def _number_in(text: Any) -> float | None:
    try:
        return float(text) if isinstance(text, str) else None
    except ValueError:
        return None


def _did_you_mean(value: float | None) -> str:
    """Return the question for a confidence in percent, or in text."""
    if value is None or not 0 < value < 100 or value == 1:
        return ""
    return f": did you mean {value / 100 if value > 1 else value:.6g}?"


class Asked(NamedTuple):
    """The percentiles and the bounds of outliers that a user asks for."""

    percentiles: tuple[float, ...] = ()
    outliers: tuple[float, ...] = ()


#: What `percentiles` and `outliers` may be: a number or several.
Numbers = float | Iterable[float]


def read_asked(percentiles: Any, outliers: Any) -> Asked:
    """Return the percentiles, from 0 to 100, and the bounds of outliers, which are 0 or more."""
    percents = _read_numbers("percentiles", percentiles, "numbers from 0 to 100", 100)
    most = sys.float_info.max
    bounds = _read_numbers("outliers", outliers, "finite bounds of 0 or more", most)
    return Asked(percents, bounds)


def _read_numbers(name: str, values: Any, wanted: str, most: float) -> tuple[float, ...]:
    """Return a number or several, each once, in the order in which they first come."""
    message = f"{name} must be {wanted}, not "
    if isinstance(values, (str, bytes, dict)) or values is None:
        raise TypeError(message + shown(values))
    try:
        several = list(values)
    except TypeError:
        several = [values]
    numbers: dict[float, None] = {}
    for value in several:
        is_number = isinstance(value, (float, int, np.integer, np.floating))
        if isinstance(value, bool) or not is_number:
            raise TypeError(message + shown(value))
        if not 0 <= value <= most:
            raise ValueError(message + shown(value))
        plain = value if isinstance(value, int) else float(value)
        numbers.setdefault(plain + 0)  # no negative zero
    return tuple(numbers)


def check_choice(name: str, value: Any, choices: Sequence[str]) -> None:
    """Raise a ValueError, or a TypeError if it is no text, for anything but one of the choices."""
    if isinstance(value, str) and value in choices:
        return
    wanted = " or ".join([", ".join(map(repr, choices[:-1])), repr(choices[-1])])
    kind = ValueError if isinstance(value, str) else TypeError
    raise kind(f"{name} must be {wanted}, not {shown(value)}")


def check_flag(name: str, value: Any) -> None:
    """Raise a TypeError for anything but True and False."""
    if not isinstance(value, (bool, np.bool_)):
        raise TypeError(f"{name} must be True or False, not {shown(value)}")
