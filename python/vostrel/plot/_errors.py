"""Errors of the user's files, options and data."""


class PlotError(Exception):
    """A failure that is reported to the user in one line."""


class NothingToDraw(ValueError):
    """No object has finite values."""
