"""Errors of the user's files, options and data."""


class PlotError(Exception):
    """A failure that the user is told in one line."""


class NothingToDraw(ValueError):
    """No object has finite values."""
