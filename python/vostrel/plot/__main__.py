"""Runs vostrel-plot by ``python -m vostrel.plot``."""

import sys

from vostrel.plot._command import main

sys.exit(main())
