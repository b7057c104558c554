"""The program vostrel-evaluate."""

from __future__ import annotations

import argparse
import gc
import os
import re
import shlex
import signal
import sys
import time
import warnings
from collections.abc import Callable, Sequence
from contextlib import ExitStack, suppress
from typing import Any, NoReturn

from vostrel._commands import ProgressLine
from vostrel._core import VERSION
from vostrel.evaluate._compute import Options, evaluate
from vostrel.evaluate._errors import EvaluateError, one_line, printable
from vostrel.evaluate._files import Table, names_file
from vostrel.evaluate._formats import FORMATS
from vostrel.evaluate._rows import Objects, Roles, Selection
from vostrel.evaluate._tables import Task
from vostrel.evaluate._writing import Put, write, written

PROGRAM = "vostrel-evaluate"

EXAMPLES = """\
examples:
  vostrel-evaluate survey.fits Z_SPEC Z_PHOT
  vostrel-evaluate survey.fits --columns
  vostrel-evaluate cat.csv zspec template forest --by imag --bins 18,20,22,24 \\
      --where 'quality >= 3 & imag < 24'
  vostrel-evaluate cat.hdf5 zspec zphot --missing -99 --errors bootstrap --groups field
  vostrel-evaluate cat.hdf5 zspec zphot --percentiles 16,84 --outliers 0.05,0.2
  vostrel-evaluate 'tile_*.fits[1]' zspec zphot --format latex --output table.tex
  vostrel-evaluate cat.csv zspec template forest --report report.html
  vostrel-evaluate cat.csv zspec zphot --table table.csv

A table is FITS, HDF5, Parquet, CSV, TSV, ECSV, VOTable, .npy or .npz, by the end of its name;
- is CSV from standard input. Exit status: 0, or 1 after an error."""


class Parser(argparse.ArgumentParser):
    """A parser that reports a mistake in one line, like every other error."""

    def error(self, message: str) -> NoReturn:
        raise EvaluateError(f"{message} (see {PROGRAM} --help)")


class Progress(ProgressLine):
    """Shows how much is done, ten times a second at most."""

    def __call__(self, what: str, done: int, total: int | None) -> None:
        """Replace the line."""
        if time.monotonic() < self.due:
            return
        text = f"{what}: {done:,}"
        if total:
            filled = min(20, 20 * done // total)
            text = f"{what} [{'#' * filled}{'.' * (20 - filled)}] {done:,} of {total:,}"
        self.show(text)
        self.due = time.monotonic() + 0.1


def program() -> int:
    """Run the program in a process that ends then."""
    status = main()
    gc.freeze()  # the end would look for cycles among all that was imported, which takes 20 ms
    return status


def main(argv: Sequence[str] | None = None) -> int:
    """Run the program and return its exit status."""
    progress = Progress(PROGRAM)
    # SIGTERM ends the program like an error, to remove the temporary file.
    signal.signal(signal.SIGTERM, lambda *_: sys.exit(143))
    warnings.simplefilter("ignore")
    problem = None
    try:
        run(sys.argv[1:] if argv is None else list(argv), progress)
    except EvaluateError as error:
        problem = str(error)
    except (ValueError, TypeError, ImportError) as error:  # refused by a function of vostrel
        problem = one_line(error)
    except OSError as error:
        problem = one_line(error)
    except MemoryError:
        problem = "not enough memory; allow less by --memory"
    except KeyboardInterrupt:
        return 130
    finally:
        progress.clear()
    if problem:
        print(f"{PROGRAM}: {printable(problem)}", file=sys.stderr)
    return 1 if problem else 0


def run(argv: list[str], progress: Progress) -> None:
    """Run the command."""
    options = arguments(argv)
    table = Table(options.tables)
    try:
        if options.columns:
            write(options.output, columns_text(table))
        else:
            run_task(table, options, argv, progress)
    finally:
        table.close()


def run_task(
    table: Table, options: argparse.Namespace, argv: list[str], progress: Progress
) -> None:
    """Compute and write everything. No file has its name before all are complete."""
    roles = Roles(options.names[0], tuple(options.names[1:]), options.by, options.groups)
    condition = None
    if options.where is not None:
        from vostrel.evaluate._where import Condition

        condition = Condition(options.where)
    selection = Selection(table, roles, condition, options.missing)
    if options.report is not None:
        from vostrel.evaluate import _page

        _page.check()
    task = Task(
        table=printable(table.label),
        command=f"{PROGRAM} {printable(' '.join(map(shlex.quote, argv)))}",
        roles=roles,
        where=options.where,
        missing=tuple(options.missing),
        method=options.errors,
        confidence=options.confidence,
    )
    with ExitStack() as stack:
        put = {name: stack.enter_context(written(name)) for name in outputs(table, options)}
        watch = None if options.table is None else rows_to(put[options.table], roles)
        results = evaluate(selection, settings(options), progress, watch)
        if options.report is not None:
            progress("drawing", results.counts.used, None)
            put[options.report]([_page.page(results, task)])
        text = FORMATS[options.format](results, task)
        if options.output is not None:
            put[options.output]([text])
        else:
            write(None, text)


def outputs(table: Table, options: argparse.Namespace) -> list[str]:
    """Return the files to write. They must differ from each other and from what is read."""
    taken = {os.path.realpath(reader.path) for reader in table.readers}
    found = [name for name in (options.output, options.report, options.table) if name is not None]
    for name in found:
        if os.path.realpath(name) in taken:
            raise EvaluateError(f"{printable(name)} would replace another file of this command")
        taken.add(os.path.realpath(name))
    return found


def rows_to(put: Put, roles: Roles) -> Callable[[Objects], None]:
    """Return a function that writes objects in the format of the program vostrel."""
    line = "%d" + ",%.17g" * (1 + len(roles.estimates)) + "\n"

    def add(objects: Objects) -> None:
        names = (roles.reference, *roles.estimates)
        columns = [objects.numbers[name].tolist() for name in names]
        put(map(line.__mod__, zip(objects.rows.tolist(), *columns)))

    return add


def columns_text(table: Table) -> str:
    """Return a line for each column."""
    text = ""
    for reader, name in zip(table.readers, table.names):
        rows = "" if reader.rows is None else f", {reader.rows} rows"
        part = "" if reader.part is None else f"[{reader.part}]"
        text += f"{name}{part}: {len(reader.columns())} columns{rows}\n"
        for column, kind in reader.columns().items():
            text += f"  {printable(column)}" + (f"  {kind}" if kind else "") + "\n"
    return text


# ---- the command line ----------------------------------------------------------------------------


def arguments(argv: Sequence[str]) -> argparse.Namespace:
    """Return the parsed command line."""
    parser = Parser(
        prog=PROGRAM,
        usage=f"{PROGRAM} TABLE... REFERENCE ESTIMATE... [OPTIONS]",
        description="Compute error statistics of the estimates in a catalogue.",
        epilog=EXAMPLES,
        formatter_class=argparse.RawDescriptionHelpFormatter,
        allow_abbrev=False,
    )
    # Also numbers such as -9.9e1 are values of options.
    parser._negative_number_matcher = re.compile(r"^-(\d|\.\d|inf)")
    add = parser.add_argument
    add("operands", nargs="*", metavar="TABLE... REFERENCE ESTIMATE...", help="files, then the "
        "names of the columns with the reference and the estimates. A file may have [extension] "
        "or [group] after its name, or be a glob in quotes")
    add("--columns", action="store_true", help="list the columns of the table, and end")
    add("--where", metavar="CONDITION", help="use only the rows for which this holds; it may "
        "compute and compare columns, as in 'quality >= 3 & imag < 24'")
    add("--missing", metavar="VALUE", type=reader(float, lambda value: True, "a number"),
        action="append", default=[], help="a value of reference, estimate or --by that means "
        "missing; may be given several times")
    add("--by", metavar="COLUMN", help="the column for bins (default: the reference)")
    add("--bins", metavar="BINS", type=read_bins, help="edges, as in 18,20,22; a number of bins "
        "of equal width; or count:N for N bins of equal counts (default with --by: 10)")
    add("--percentiles", metavar="P,...", type=read_percentiles, default=(), help="percentiles of "
        "the residuals, as in 16,84")
    add("--outliers", metavar="BOUND,...", type=read_bounds, default=(), help="percentages of "
        "objects whose residual is farther from zero, as in 0.05,0.2")
    add("--errors", choices=("none", "formula", "bootstrap"), default="none", help="how errors "
        "are computed; bootstrap also compares the estimates (default: %(default)s)")
    add("--groups", metavar="COLUMN", help="resample whole groups, such as fields of the sky")
    add("--resamples", metavar="N", default=1000, help="resamples of the bootstrap "
        "(default: %(default)s)", type=reader(int, lambda n: n >= 2, "a whole number from 2"))
    add("--confidence", metavar="P", default=0.683, help="confidence of the intervals "
        "(default: %(default)s)", type=reader(float, lambda p: 0 < p < 1, "between 0 and 1"))
    add("--seed", metavar="N", help="makes the bootstrap repeatable: a whole number from 0",
        type=reader(int, lambda n: 0 <= n < 2**64, f"a whole number from 0 to {2**64 - 1}"))
    add("--format", choices=tuple(FORMATS), default="text", help="(default: %(default)s)")
    add("--output", metavar="FILE", help="write to this file instead of standard output")
    add("--report", metavar="FILE", help="also write a page of HTML with everything")
    add("--table", metavar="FILE", help="also write the used rows as the program vostrel reads "
        "them: number of the row, reference, estimates")
    add("--memory", metavar="GIB", default=0.5, help="what the columns may take in memory; larger "
        "tables are read in several passes (default: %(default)s)",
        type=reader(float, lambda size: size >= 0, "0 GiB or more"))
    add("--version", action="version", version=f"{PROGRAM} {VERSION}")
    options = parser.parse_intermixed_args(argv)
    check(parser, options)
    return options


def check(parser: Parser, options: argparse.Namespace) -> None:
    """Divide the operands into files and columns, and refuse conflicting options."""
    count = 1
    while count < len(options.operands) and names_file(options.operands[count]):
        count += 1
    options.tables, options.names = options.operands[:count], options.operands[count:]
    if not options.tables:
        parser.error("name a table, the column of the reference and that of the estimate")
    if options.columns:
        return
    if len(options.names) < 2:
        parser.error("name the column of the reference and that of the estimate; "
                     "--columns lists them")
    for name in options.names[1:]:
        if options.names.count(name) > 1:
            parser.error(f"column {name!r} is named twice")
    if options.by is not None and options.bins is None:
        options.bins = 10
    if options.groups is not None and options.errors != "bootstrap":
        parser.error("--groups needs --errors bootstrap")


def settings(options: argparse.Namespace) -> Options:
    """Return what is computed."""
    return Options(
        bins=options.bins,
        percentiles=options.percentiles,
        outliers=options.outliers,
        errors=options.errors,
        resamples=options.resamples,
        confidence=options.confidence,
        seed=options.seed,
        memory=int(min(options.memory, 1 << 20) * (1 << 30)),
    )


def reader(
    kind: Callable[[str], float], allowed: Callable[[float], bool], wanted: str
) -> Callable[[str], float]:
    """Return a function that reads a number of an option, or says what is wanted."""
    def read(text: str) -> float:
        with suppress(ValueError):
            value = kind(text)
            if allowed(value):
                return value
        raise argparse.ArgumentTypeError(f"must be {wanted}, not {text!r}")

    return read


def read_bins(text: str) -> Any:
    """Return bins as binned_statistics takes them."""
    with suppress(ValueError):
        if "," in text:
            return [float(edge) for edge in text.split(",")]
        count = int(text.removeprefix("count:"))
        if count >= 1:
            return ("count", count) if text.startswith("count:") else count
    raise argparse.ArgumentTypeError(
        f"must be edges as in 18,20,22, a number of bins from 1, or count:N, not {text!r}"
    )


def read_percentiles(text: str) -> tuple[float, ...]:
    """Return numbers from 0 to 100."""
    return read_numbers(text, 100, "numbers from 0 to 100, as in 16,84")


def read_bounds(text: str) -> tuple[float, ...]:
    """Return the bounds of outliers."""
    return read_numbers(text, sys.float_info.max, "finite bounds of 0 or more, as in 0.05,0.2")


def read_numbers(text: str, most: float, wanted: str) -> tuple[float, ...]:
    """Return numbers from 0 to `most`."""
    try:
        numbers = tuple(float(word) for word in text.split(","))
    except ValueError:
        numbers = (-1,)
    if not all(0 <= number <= most for number in numbers):
        raise argparse.ArgumentTypeError(f"must be {wanted}, not {text!r}")
    return numbers
