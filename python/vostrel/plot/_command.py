"""The program vostrel-plot."""

from __future__ import annotations

import argparse
import logging
import os
import signal
import sys
import warnings
from collections.abc import Sequence
from typing import Any, NoReturn

import numpy as np
from numpy.typing import NDArray

from vostrel import _core
from vostrel._commands import ProgressLine, replaced
from vostrel._core import VERSION
from vostrel._report import read_report
from vostrel._results import NAMES, PointStatistics
from vostrel.plot._errors import NothingToDraw, PlotError
from vostrel.plot._reading import read_internal

PROGRAM = "vostrel-plot"
ENDINGS = ("png", "pdf", "svg")

#: Settings of matplotlib for the figure, regardless of the user's.
SETTINGS = {
    "pdf.fonttype": 42,  # TrueType: journals refuse Type 3 fonts
    "svg.hashsalt": PROGRAM,  # the same data give the same bytes
}

Floats = NDArray[np.float64]


class Parser(argparse.ArgumentParser):
    """A parser that reports a mistake in one line, like every other error."""

    def error(self, message: str) -> NoReturn:
        raise PlotError(f"{message} (see {PROGRAM} --help)")


def main(argv: Sequence[str] | None = None) -> int:
    """Run the program and return its exit status."""
    # The figure goes to a file, so ignore a window system that was chosen for matplotlib.
    os.environ["MPLBACKEND"] = "Agg"
    progress = ProgressLine(PROGRAM)
    # SIGTERM ends the program like an error, to remove the temporary file.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    logging.getLogger("matplotlib").setLevel(logging.ERROR)
    try:
        with warnings.catch_warnings():
            warnings.simplefilter("ignore")
            plot(arguments(argv), progress)
        problem = None
    except PlotError as error:
        problem = str(error)
    except MemoryError:
        problem = "not enough memory"
    except KeyboardInterrupt:
        return 130
    finally:
        progress.clear()
    if problem:
        print(f"{PROGRAM}: {problem}", file=sys.stderr)
    return 2 if problem else 0


def arguments(argv: Sequence[str] | None) -> argparse.Namespace:
    """Return the parsed command line."""
    parser = Parser(
        prog=PROGRAM,
        description="Draw the figure of a vostrel run: estimates against references, the "
        "histogram of the normalized residual, and the residual against the reference with its "
        "running median and NMAD.",
        epilog="Exit status: 0 if the figure was written, 2 after an error, "
        "130 if interrupted.",
    )
    add = parser.add_argument
    add("internal", metavar="INTERNAL", nargs="?", help="the three-column file of the run, "
        "'ID zspec zphot' (default: internal.txt)")
    add("--report", metavar="REPORT", help="check that the run's report, or its saved console "
        "output, has the numbers of the file")
    add("--output", metavar="FIGURE", default="vostrel.png", help="the figure to write, its "
        "format by its ending: .png, .pdf or .svg (default: %(default)s)")
    add("--title", metavar="TEXT", default="", help="a title; $...$ is set as mathematics")
    add("--dpi", metavar="N", type=resolution, default=300,
        help="dots per inch, 50 to 1200 (default: %(default)s)")
    add("--layout", choices=("page", "column"), default="page", help="two columns of a journal's "
        "page or one (default: %(default)s)")
    add("--table", action=argparse.BooleanOptionalAction, default=None, help="put a table of the "
        "statistics below the panels, or leave it out (default: only with --compare)")
    add("--log", action=argparse.BooleanOptionalAction, default=None, help="logarithmic counts in "
        "the histogram, or linear ones (default: by the share of outliers)")
    add("--labels", metavar=("REFERENCE", "ESTIMATE"), nargs=2, help="names of the two quantities "
        "(default: redshifts)")
    add("--compare", metavar="NAME=INTERNAL", nargs="+", type=named_file, default=[],
        help="compare several estimators of the same references")
    add("--version", action="version", version=f"{PROGRAM} {VERSION}")
    options = parser.parse_args(argv)
    if options.compare:
        if options.internal is not None or options.report is not None:
            parser.error("--compare can't be combined with INTERNAL or --report")
        names = [name for name, _ in options.compare]
        if len(set(names)) != len(names):
            parser.error("--compare: two files have the same name")
    if options.internal is None:
        options.internal = "internal.txt"
    return options


def resolution(text: str) -> int:
    """Return the text as a resolution, 50 to 1200."""
    if not (text.isdecimal() and 50 <= int(text) <= 1200):
        raise argparse.ArgumentTypeError(f"must be a whole number from 50 to 1200, not {text!r}")
    return int(text)


def named_file(text: str) -> tuple[str, str]:
    """Return the parts of NAME=FILE."""
    name, equals, path = text.partition("=")
    if not (name and equals and path):
        raise argparse.ArgumentTypeError(f"must be NAME=INTERNAL, not {text!r}")
    return name, path


def plot(options: argparse.Namespace, progress: ProgressLine) -> None:
    """Read, compute, draw and write what the options ask for."""
    check_target(options.output)
    try:  # report a missing module before anything is read
        from vostrel.plot import compare_figure, diagnostic_figure
        from vostrel.plot._format import fonts_for, missing_from
    except ImportError as error:
        raise PlotError(str(error)) from error
    import matplotlib

    look: dict[str, Any] = {
        "title": options.title,
        "layout": options.layout,
        "labels": options.labels,
        "log": options.log,
    }
    report = None if options.report is None else report_of(options.report)
    if options.compare:
        reference, estimates = read_several(options.compare, progress)
    else:
        reference, estimate = read(options.internal, progress)
        if report is not None:
            progress.show("comparing with the report")
            check_report(options, report, reference, estimate)
    progress.show("drawing")
    with matplotlib.rc_context():
        matplotlib.rcdefaults()  # a user's style would break the layout
        matplotlib.rcParams.update(SETTINGS)
        texts = "".join([options.title, *(options.labels or ()), *(n for n, _ in options.compare)])
        matplotlib.rcParams["font.family"] = fonts = fonts_for(texts)
        try:
            if options.compare:
                table = options.table is not False
                figure = compare_figure(reference, estimates, table=table, **look)
            else:
                figure = diagnostic_figure(
                    reference,
                    estimate,
                    statistics=report,
                    table=bool(options.table),
                    source=source_of(options),
                    **look,
                )
        except NothingToDraw:
            names = [path for _, path in options.compare or [("", options.internal)]]
            holds = "holds" if len(names) == 1 else "or another file holds"
            raise PlotError(
                f"{names[0]!r} {holds} no objects with finite values"
            ) from None
        except ValueError as error:  # for example too many estimators
            raise PlotError(str(error)) from error
        progress.show("writing")
        save(figure, options.output, options.dpi)
        progress.clear()
        for character in missing_from(fonts, texts):
            print(f"{PROGRAM}: no installed font has {character}", file=sys.stderr)


# ---- what is read --------------------------------------------------------------------------------


def read(path: str, progress: ProgressLine) -> tuple[Floats, Floats]:
    """Return the references and estimates of the file. Shows the progress."""
    name = printable(path)
    return read_internal(path, lambda share: progress.show(f"reading {name}, {int(100 * share)}%"))


def read_several(
    files: Sequence[tuple[str, str]], progress: ProgressLine
) -> tuple[Floats, dict[str, Floats]]:
    """Return the references, which all files share, and the estimates of each file by its name."""
    (name, first), *others = files
    reference, estimate = read(first, progress)
    estimates = {name: estimate}
    for name, path in others:
        other, estimates[name] = read(path, progress)
        if other.size != reference.size:
            raise PlotError(
                f"{path!r} holds {other.size} objects, but {first!r} holds {reference.size}: "
                "they don't have the same references"
            )
        unlike = np.flatnonzero((other != reference) & ~(np.isnan(other) & np.isnan(reference)))
        if unlike.size:
            raise PlotError(
                f"{path!r}, line {unlike[0] + 1}: the reference is {other[unlike[0]]:g}, but "
                f"{reference[unlike[0]]:g} in {first!r}"
            )
    return reference, estimates


def report_of(path: str) -> PointStatistics:
    """Return the numbers of the report."""
    try:
        return read_report(path)
    except OSError as error:
        raise PlotError(f"cannot read {path!r}: {error.strerror}") from error
    except ValueError as error:
        raise PlotError(str(error)) from error


def check_report(
    options: argparse.Namespace, report: PointStatistics, reference: Floats, estimate: Floats
) -> None:
    """Raise a PlotError unless all numbers of the report are those of the file."""
    # Nothing looks for NaN: the program doesn't either.
    *_, found = _core.point_statistics([reference, estimate], [], False, (), (), has_nan=False)
    assert found is not None
    numbers: list[tuple[str, float, float]] = [("Data size", report.n, reference.size)]
    for part, computed, labels in zip(
        (report.delta, report.norm),
        found,
        zip(*[(label, norm_label) for label, norm_label, _, _ in _core.STATISTICS]),
    ):
        numbers += [
            (label, getattr(part, name), float(f"{value:.6g}"))
            for name, label, value in zip(NAMES, labels, computed)
        ]
    for label, reported, value in numbers:
        if reported != value and not (np.isnan(reported) and np.isnan(value)):
            raise PlotError(
                f"{options.report!r} is not the report of {options.internal!r}: it has "
                f"{label} = {reported:g}, but the file gives {value:g}"
            )


def source_of(options: argparse.Namespace) -> str:
    """Return the line of the table that says where its numbers come from."""
    if options.report is not None:
        return f"numbers of the report {printable(options.report)}"
    return f"numbers computed from {printable(options.internal)}"


def printable(path: str) -> str:
    """Return the file name without folder and unprintable characters, shortened in the middle."""
    name = "".join(c if c.isprintable() else "?" for c in os.path.basename(path))
    return name if len(name) <= 36 else name[:17] + "…" + name[-18:]


# ---- what is written -----------------------------------------------------------------------------


def check_target(target: str) -> str:
    """Return the format of the figure, or raise a PlotError if it can't be written.

    Called before the data are read, to save time.
    """
    ending = os.path.splitext(target)[1][1:].lower()
    if ending not in ENDINGS:
        raise PlotError(f"{target!r} must end in .png, .pdf or .svg")
    folder = os.path.dirname(os.path.realpath(target))
    if not os.path.isdir(folder):
        raise PlotError(f"cannot write {target!r}: no such folder")
    if not os.access(folder, os.W_OK | os.X_OK):
        raise PlotError(f"cannot write {target!r}: the folder is not writable")
    if os.path.isdir(target):
        raise PlotError(f"cannot write {target!r}: it is a folder")
    return ending


def save(figure: Any, target: str, dpi: int) -> None:
    """Write the figure to its file, completely or not at all."""
    ending = check_target(target)
    target = os.path.realpath(target)
    creator = "Software" if ending == "png" else "Creator"
    metadata: dict[str, Any] = {creator: f"{PROGRAM} {VERSION}"}
    if ending != "png":  # the same data give the same bytes
        metadata["CreationDate" if ending == "pdf" else "Date"] = None
    try:
        with replaced(target) as stream:
            figure.savefig(stream, format=ending, dpi=dpi, metadata=metadata)
    except OSError as error:
        raise PlotError(f"cannot write {target!r}: {error.strerror}") from error
