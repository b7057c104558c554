"""Runs vostrel-evaluate by ``python -m vostrel``."""

import sys

from vostrel.evaluate._command import main

sys.exit(main())
