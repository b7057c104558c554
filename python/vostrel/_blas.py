"""Keeps vostrel-evaluate from starting the threads of BLAS, which it doesn't use.

They take 0.04 s of processor time. NumPy starts them when it is imported.
"""

import os
import sys


def _is_program() -> bool:
    """Return whether this process runs vostrel-evaluate, or ``python -m vostrel``."""
    name = next(iter(sys.argv), "")
    if name != "-m":  # which stands there while Python looks for the module
        return os.path.basename(name) == "vostrel-evaluate"
    return ("-m", "vostrel") in zip(sys.orig_argv, sys.orig_argv[1:])


if _is_program():
    os.environ.setdefault("OPENBLAS_NUM_THREADS", "1")
