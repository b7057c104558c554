"""The names and numbers in a figure."""

from __future__ import annotations

import math
import re
import warnings
from collections.abc import Sequence
from dataclasses import dataclass

from matplotlib import rcParams
from matplotlib.font_manager import FontProperties, findfont, fontManager, get_font
from matplotlib.mathtext import MathTextParser
from matplotlib.textpath import text_to_path

MINUS = "\N{MINUS SIGN}"
THIN = "\N{THIN SPACE}"

#: Inches of the longest formula, at 7 points. Longer names are not repeated in formulas.
LONGEST = 1.7


class MissingGlyphs(UserWarning):
    """The fonts have no glyphs for some characters."""


@dataclass(frozen=True)
class Labels:
    """The names of the two quantities and of what is made of them.

    Attributes
    ----------
    reference, estimate : str
        The names.
    delta, difference : str
        The symbol of the residual, and what it is.
    short_norm, norm : str
        The normalized residual, with the symbol and without.
    """

    reference: str = r"$z_{\rm spec}$"
    estimate: str = r"$z_{\rm phot}$"
    delta: str = r"$\Delta z$"
    difference: str = r"$\Delta z=z_{\rm spec}-z_{\rm phot}$"
    short_norm: str = r"$\Delta z/(1+z_{\rm spec})$"
    norm: str = r"$(z_{\rm spec}-z_{\rm phot})\,/\,(1+z_{\rm spec})$"


def labels_of(names: tuple[str, str] | None) -> Labels:
    """Return the labels for the names of reference and estimate."""
    if names is None:
        return Labels()
    two = isinstance(names, (tuple, list)) and len(names) == 2
    if not two or not all(isinstance(name, str) for name in names):
        raise TypeError("labels must be two texts, the names of reference and estimate")
    reference, estimate = first, second = [shown(name) for name in names]
    if width_of(f"({first}{MINUS}{second})/(1+{first})", 7) > LONGEST:
        first, second = "reference", "estimate"
    return Labels(
        reference,
        estimate,
        r"$\Delta$",
        rf"$\Delta$ = {first} {MINUS} {second}",
        rf"$\Delta$/(1+{first})",
        f"({first}{MINUS}{second})/(1+{first})",
    )


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


def shown(text: str) -> str:
    """Return the text in one line, without unprintable characters and invalid mathematics.

    Warns
    -----
    MissingGlyphs
        If the fonts lack some of its characters.
    """
    text = "".join(c for c in " ".join(text.split()) if c.isprintable())
    try:
        MathTextParser("path").parse(text)
    except (ValueError, RuntimeError):
        text = text.replace("$", r"\$")
    missing = missing_from(rcParams["font.family"], text)
    if missing:
        warnings.warn(
            f"the font has no {' '.join(missing)}; add a font that has them to "
            "matplotlib.rcParams['font.family']",
            MissingGlyphs,
            stacklevel=2,
        )
    return text


def missing_from(families: Sequence[str], text: str) -> list[str]:
    """Return the characters, outside of mathematics, that none of the fonts has."""
    known = {32}
    for family in families:
        known.update(get_font(findfont(FontProperties(family=[family]))).get_charmap())
    plain = re.sub(r"\$[^$]*\$", "", text)
    return list(dict.fromkeys(c for c in plain if c.isprintable() and ord(c) not in known))


def fonts_for(text: str) -> list[str]:
    """Return the fonts of matplotlib's settings, and installed ones for what those lack."""
    families = list(rcParams["font.family"])
    missing = missing_from(families, text)
    for font in sorted(fontManager.ttflist, key=lambda font: (font.weight != 400, font.name)):
        if missing and "Last" not in font.name and not missing_from([font.name], missing[0]):
            families.append(font.name)
            missing = missing_from(families, text)
    return families


def width_of(text: str, points: float) -> float:
    """Return the width of the text in inches in a font of this size."""
    with warnings.catch_warnings():
        warnings.simplefilter("ignore")  # shown() has warned of missing glyphs
        font = FontProperties(size=points)
        width, _, _ = text_to_path.get_text_width_height_descent(text, font, "$" in text)
    return float(width) / 72


def wrapped(text: str, inches: float, points: float, most: int = 4) -> str:
    """Return the text in up to `most` lines that are not wider than this.

    Lines break at spaces outside of mathematics, and in words that are too long for a line.
    """
    lines = [""]
    for word in re.findall(r"\n|(?:\\\$|\$[^$]*\$|\S)+", text):
        together = f"{lines[-1]} {word}".lstrip()
        if word == "\n":
            lines.append("")
        elif width_of(together, points) <= inches:
            lines[-1] = together
        elif "$" in word or width_of(word, points) <= inches:
            lines.append(word)
        else:
            lines.append("")
            for character in word:
                if width_of(lines[-1] + character, points) > inches:
                    lines.append("")
                lines[-1] += character
    lines = [line for line in lines if line]
    if len(lines) > most:
        lines[most - 1] += "…"
    return "\n".join(lines[:most])


def title_lines(title: str | None, width: float) -> Sequence[str]:
    """Return the title broken into lines for a figure of this width in inches."""
    if not isinstance(title, (str, type(None))):
        raise TypeError(f"title must be a text, not {type(title).__name__}")
    return wrapped(shown(title), width - 0.4, 8).split("\n") if title else []
