"""A stage under mpirun in which one process fails, in each of STEPS.

failing_stage.py RANK: the first process prints a line with the errors of all for each step.
"""

import contextlib
import io
import json
import sys

import rail.vostrel
from mpi4py import MPI
from rail.core.data import QPHandle, TableHandle

comm = MPI.COMM_WORLD
FAILING = int(sys.argv[1])

#: What fails, and after how many calls.
STEPS = [
    (rail.vostrel, "_column", 0),
    (rail.vostrel.Table, "_aligned", 1),  # for e: the metrics of few rows take one pass
    (rail.vostrel, "_ez", 0),
    (TableHandle, "initialize_write", 0),
    (TableHandle, "write_chunk", 0),
]


def fails_after(work, calls):
    """The function, which fails after some calls."""
    left = iter(range(calls))

    def act(*arguments):
        if next(left, None) is None:
            raise OSError("the disk is gone")
        return work(*arguments)

    return act


def error_of_the_stage():
    stage = rail.vostrel.VostrelPointToPointEvaluator.make_stage(
        name="point", chunk_size=1000, hdf5_groupname="photometry"
    )
    stage.setup_mpi(comm)
    handles = QPHandle("input", path="estimates.hdf5"), TableHandle("truth", path="truth.hdf5")
    try:
        with contextlib.redirect_stdout(io.StringIO()):
            stage.evaluate(*handles)
    except Exception as error:
        return f"{type(error).__name__}: {error}"


rail.vostrel.KEPT_BYTES = 0  # rows are read again
for owner, name, calls in STEPS:
    work = getattr(owner, name)
    if comm.rank == FAILING:
        setattr(owner, name, fails_after(work, calls))
    errors = comm.gather(error_of_the_stage())
    setattr(owner, name, work)
    if comm.rank == 0:
        print(json.dumps([name, errors]), flush=True)
