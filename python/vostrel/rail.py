"""Exact point statistics as stages of RAIL. Needs pz-rail-base, and mpi4py under MPI."""

try:
    from rail.vostrel import VostrelPointToPointBinnedEvaluator, VostrelPointToPointEvaluator
except ImportError as error:
    raise ImportError(f"vostrel.rail needs pz-rail-base: {error}") from error

__all__ = ["VostrelPointToPointBinnedEvaluator", "VostrelPointToPointEvaluator"]
