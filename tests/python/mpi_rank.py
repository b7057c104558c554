"""A process under mpirun, whose rank 0 prints a line for each result.

  mpi_rank.py numbers SEED COUNT      the numbers of the data sets of scale_sets, in hexadecimal
  mpi_rank.py binned SEED             the numbers of a data set in bins, in hexadecimal
  mpi_rank.py errors                  the errors of all ranks for each of FAILURES in each pass
  mpi_rank.py killed                  nothing: the last rank kills itself in the second pass
"""

import json
import os
import signal
import sys

import numpy as np
import vostrel
from data_sets import numbers
from mpi4py import MPI
from scale_sets import ASKED, columns_of, cut, redshifts, scale_sets, shares

comm = MPI.COMM_WORLD
FAILING = comm.size - 1


class Picky(Exception):
    """Can be pickled but not unpickled."""

    def __init__(self, first, second):
        super().__init__(f"{first} {second}")


class Tied(Exception):
    """Can't be pickled."""

    def __reduce__(self):
        raise TypeError("this can't be pickled")


class Mute(Exception):
    """Can't say what it is."""

    def __str__(self):
        raise self


def nowhere_else(text):
    """An exception whose class no other process can import."""
    return type("Strange", (Exception,), {"__module__": "of_this_process"})(text)


#: Each fails in its own way with the text after it.
FAILURES = [
    (lambda: OSError("the file is gone"), "OSError: the file is gone"),
    (lambda: nowhere_else("who am I"), "Strange: who am I"),
    (lambda: Tied("to a file"), "Tied: to a file"),
    (lambda: Picky("two", "words"), "Picky: two words"),
    (Mute, "Mute"),
    (lambda: SystemExit("enough"), "SystemExit: enough"),
    (lambda: SystemExit(0), "SystemExit: 0"),
    (KeyboardInterrupt, "KeyboardInterrupt: "),
]


def crowded(rng, n):
    """Objects whose residuals are so near to each other that they take four passes."""
    return np.zeros(n), 1 + 1e-9 * rng.standard_normal(n)


def chunks_that_act(in_pass, act):
    """A function that returns chunks; the failing rank acts in the middle of a pass."""
    passes = iter(range(1, 100))

    def chunks():
        number = next(passes)
        yield crowded(np.random.default_rng(comm.rank), 40_000)
        if comm.rank == FAILING and number == in_pass:
            act()

    return chunks


def print_numbers(seed, count):
    lines = []
    for columns in scale_sets(np.random.default_rng(seed), count):
        share = shares(cut(columns, 7), comm.size)[comm.rank]
        found = vostrel.mpi.point_statistics(share, comm=comm, **ASKED)
        lines.append(numbers(found).tobytes().hex())
    assert comm.allgather(lines) == [lines] * comm.size
    if comm.rank == 0:
        print("\n".join(lines))


def print_binned(seed):
    columns = redshifts(np.random.default_rng(seed), 20_000)
    share = shares(cut(columns, 7), comm.size)[comm.rank]
    b = vostrel.mpi.binned_statistics(share, bins=4, range=(0, 2), comm=comm, **ASKED)
    line = columns_of(b).tobytes().hex()
    assert comm.allgather(line) == [line] * comm.size
    if comm.rank == 0:
        print(line)


def print_errors():
    for error, text in FAILURES:
        for in_pass in (1, 2, 3):

            def act(make=error):
                raise make()

            try:
                vostrel.mpi.point_statistics(chunks_that_act(in_pass, act), comm=comm)
                found = None
            except BaseException as raised:
                said = "" if isinstance(raised, Mute) else f": {raised}"
                found = type(raised).__name__ + said
            errors = comm.gather(found)
            if comm.rank == 0:
                print(json.dumps([text, errors]))


def be_killed():
    def act():
        os.kill(os.getpid(), signal.SIGKILL)

    vostrel.mpi.point_statistics(chunks_that_act(2, act), comm=comm)


if __name__ == "__main__":
    task, *arguments = sys.argv[1:]
    tasks = {
        "numbers": print_numbers, "binned": print_binned, "errors": print_errors,
        "killed": be_killed,
    }
    tasks[task](*map(int, arguments))
