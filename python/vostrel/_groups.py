"""Labels of groups, such as fields of the sky, made into numbers."""

from __future__ import annotations

from collections.abc import Iterator
from typing import TYPE_CHECKING, Any

import numpy as np

from vostrel import _core
from vostrel._inputs import SLICE, as_column, refuse_lazy, separate_mask, to_array
from vostrel._options import shown

if TYPE_CHECKING:  # importing the package must be quick
    from numpy.typing import NDArray


def read_groups(
    groups: Any | None, sample: _core.Sample, size: int
) -> tuple[NDArray[np.uint32], int] | None:
    """Return the group number of each kept object, and the number of groups.

    Groups are numbered in the order of their labels.
    """
    if groups is None:
        return None
    refuse_lazy("groups", groups)
    data, masks = separate_mask(groups)
    labels, *masks = (as_column("groups", part) for part in [to_array(data), *masks])
    if len(labels) != size:
        raise ValueError(f"groups has {len(labels)} entries, but reference has {size}")
    kept = sample.kept()
    if kept is not None:
        labels, masks = labels[kept], [masked[kept] for masked in masks]
    if any(masked.any() for masked in masks) or any(map(_has_missing, _slices(labels))):
        raise ValueError("groups has missing labels; mask these objects or give them a group")
    try:
        names = _distinct([_unique(some) for some in _slices(labels)])
    except TypeError:
        raise TypeError("groups must hold labels of one kind, such as numbers or text") from None
    if len(names) < 2:
        raise ValueError(
            f"all objects are in one group, {shown(names.tolist()[0])}; the scatter between groups "
            "needs two groups at least, and better fifty"
        )
    numbers = [np.searchsorted(names, some).astype(np.uint32) for some in _slices(labels)]
    return np.concatenate(numbers), len(names)


def _slices(labels: NDArray[Any]) -> Iterator[NDArray[Any]]:
    """Return parts of the labels. Between them Ctrl-C is noticed."""
    return (labels[first : first + SLICE] for first in range(0, len(labels), SLICE))


def _distinct(parts: list[NDArray[Any]]) -> NDArray[Any]:
    """Return the distinct values of sorted arrays, sorted."""
    step = -(-sum(map(len, parts)) // SLICE)
    if step == 1:
        return _unique(np.concatenate(parts))
    # As many ranges of values as there are slices, each with about a slice of them.
    some = _unique(np.concatenate([part[:: 64 * step] for part in parts]))
    bounds = some[:: -(-len(some) // step)][1:]
    cuts = [[0, *np.searchsorted(part, bounds), len(part)] for part in parts]
    ranges = [
        _unique(np.concatenate([part[cut[i] : cut[i + 1]] for part, cut in zip(parts, cuts)]))
        for i in range(len(bounds) + 1)
    ]
    # numpy.concatenate of NumPy 2.4 takes most of a second for text, in which Ctrl-C would wait.
    distinct = np.empty(sum(map(len, ranges)), parts[0].dtype)
    first = 0
    for some in ranges:
        distinct[first : first + len(some)] = some
        first += len(some)
    return distinct


def _unique(labels: NDArray[Any]) -> NDArray[Any]:
    """Return the distinct labels, sorted. numpy.unique of NumPy 2.4 takes 2 to 14 times as long."""
    values = np.sort(labels)
    differs = np.append(True, values[1:] != values[:-1])[: len(values)]  # from the one before
    distinct: NDArray[Any] = values[differs]
    return distinct


def _has_missing(labels: NDArray[Any]) -> bool:
    """Return whether a label is None, NaN or another value that doesn't equal itself."""
    if labels.dtype.kind == "O":
        return any(label is None or not _equals_itself(label) for label in labels)
    return bool((labels != labels).any())


def _equals_itself(label: Any) -> bool:
    try:
        return bool(label == label)
    except TypeError:  # pandas.NA
        return False
