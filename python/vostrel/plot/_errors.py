"""What goes wrong by no fault of the program."""


class PlotError(Exception):
    """A failure that is told to the user in one line."""


class NothingToDraw(ValueError):
    """No object has finite values."""
