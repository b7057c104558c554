"""The names and numbers in a figure."""

from __future__ import annotations

import math
import re
import textwrap
from dataclasses import dataclass

from matplotlib.mathtext import MathTextParser

MINUS = "\N{MINUS SIGN}"
THIN = "\N{THIN SPACE}"


@dataclass(frozen=True)
class Labels:
    """The names of the two quantities and of what is made of them."""

    reference: str = r"$z_{\rm spec}$"
    estimate: str = r"$z_{\rm phot}$"
    delta: str = r"$\Delta z$"
    norm: str = r"$\Delta z/(1+z_{\rm spec})$"


def labels_of(names: tuple[str, str] | None) -> Labels:
    """Return the labels for the names of reference and estimate."""
    if names is None:
        return Labels()
    two = isinstance(names, (tuple, list)) and len(names) == 2
    if not two or not all(isinstance(name, str) for name in names):
        raise TypeError("labels must be two texts, the names of reference and estimate")
    reference, estimate = (shown(clean(name)) for name in names)
    # There is no room for a long name twice.
    norm = rf"$\Delta$ / (1 + {reference})" if len(reference) <= 20 else "normalized residual"
    return Labels(reference, estimate, r"$\Delta$", norm)


def three_digits(value: float) -> str:
    """Return the value with three significant digits and a true minus sign."""
    if math.isnan(value):
        return "NaN"
    if math.isinf(value):
        return (MINUS if value < 0 else "") + "\N{INFINITY}"
    if value == 0:
        return "0"
    mantissa, _, exponent = f"{value:#.3g}".partition("e")
    text = mantissa.rstrip(".").replace("-", MINUS)
    if exponent:
        superscripts = str.maketrans("0123456789-", "⁰¹²³⁴⁵⁶⁷⁸⁹⁻")
        text += "×10" + str(int(exponent)).translate(superscripts)
    return text


def percent(value: float) -> str:
    """Return a percentage. A small one is a few objects, so trailing zeros would mean nothing."""
    text = f"{value:.3g}" if 1e-4 <= value < 0.1 else three_digits(value)
    return f"{text}{THIN}%"


def at_point(text: str) -> tuple[str, str]:
    """Return the part before the decimal point, or before where it would be, and the rest."""
    place = re.search(r"[.×\N{THIN SPACE}]", text)
    return (text, "") if place is None else (text[: place.start()], text[place.start() :])


def clean(text: str) -> str:
    """Return the text in one line and without unprintable characters."""
    return "".join(c for c in " ".join(text.split()) if c.isprintable())


def shown(text: str) -> str:
    """Return the text, with its dollar signs escaped if it is not valid mathematics."""
    try:
        MathTextParser("path").parse(text)
    except (ValueError, RuntimeError):
        return text.replace("$", r"\$")
    return text


def title_lines(title: str | None, width: float) -> list[str]:
    """Return the title broken into lines for a figure of this width in inches."""
    return [shown(line) for line in textwrap.wrap(clean(title or ""), int(15 * width))]
