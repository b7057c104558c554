"""A process under mpirun: rank 0 prints its numbers in hexadecimal, or each rank's error.

  mpi_rank.py numbers SEED COUNT      of the data sets of scale_sets
  mpi_rank.py error                   the last rank fails in the middle
"""

import sys

import numpy as np
import vostrel
from data_sets import numbers
from mpi4py import MPI
from scale_sets import cut, redshifts, scale_sets, shares

comm = MPI.COMM_WORLD


def print_numbers(seed, count):
    lines = []
    for columns in scale_sets(np.random.default_rng(seed), count):
        share = shares(cut(columns, 7), comm.size)[comm.rank]
        lines.append(numbers(vostrel.mpi.point_statistics(share, comm=comm)).tobytes().hex())
    assert comm.allgather(lines) == [lines] * comm.size
    if comm.rank == 0:
        print("\n".join(lines))


def fail():
    def chunks():
        yield redshifts(np.random.default_rng(1), 1000)
        if comm.rank == comm.size - 1:
            raise OSError("the file is gone")

    try:
        vostrel.mpi.point_statistics(chunks, comm=comm)
    except OSError as error:
        errors = comm.gather(str(error))
        if comm.rank == 0:
            print("\n".join(errors))


if sys.argv[1] == "numbers":
    print_numbers(int(sys.argv[2]), int(sys.argv[3]))
else:
    fail()
