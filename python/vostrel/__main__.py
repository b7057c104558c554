"""Runs vostrel-evaluate by ``python -m vostrel``."""

import sys

from vostrel.evaluate._command import program

sys.exit(program())
