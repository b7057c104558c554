"""The error that the command reports in one line."""

from __future__ import annotations

import importlib
import sys
from typing import Any


class EvaluateError(Exception):
    """What is wrong, in one sentence."""


def library(purpose: str, *modules: str) -> Any:
    """Return the first of these modules that is installed, or raise an error that names them."""
    for module in modules:
        try:
            return importlib.import_module(module)
        except ImportError:
            continue
    names = [module.partition(".")[0] for module in modules]
    raise EvaluateError(f"{purpose} needs {' or '.join(names)}: install it by "
                        f"'{sys.executable} -m pip install {names[0]}'")


def one_line(error: BaseException) -> str:
    """Return the message of another library's error as one line."""
    if isinstance(error, OSError) and error.strerror:
        return error.strerror
    text = " ".join(str(error).split()) or type(error).__name__
    return printable(text if len(text) <= 200 else text[:197] + "...")


def printable(text: str) -> str:
    """Return the text without characters that would disturb a terminal or a line."""
    return "".join(c if c.isprintable() else "?" for c in text)
