"""Arrays of other libraries as NumPy's, without a copy: Arrow's interface and DLPack."""

from __future__ import annotations

from collections.abc import Sequence
from typing import TYPE_CHECKING, Any

import numpy as np

from vostrel import _core

if TYPE_CHECKING:  # importing the package must be quick
    from numpy.typing import NDArray

#: DLPack's numbers of the devices whose memory the processor reads: CPU, and pinned for CUDA, ROCm.
HOST_DEVICES = (1, 3, 11)

#: The names of some other devices.
DEVICES = {2: "CUDA", 8: "Metal", 10: "ROCm", 13: "CUDA", 14: "oneAPI"}


class Chunks:
    """Numbers in several arrays of one type, which the core reads one after the other."""

    def __init__(self, arrays: Sequence[NDArray[Any]]) -> None:
        self.arrays = arrays
        self._size = sum(map(len, arrays))

    def __len__(self) -> int:
        return self._size

    def __array__(self, dtype: Any = None, copy: Any = None) -> NDArray[Any]:
        whole: NDArray[Any] = np.concatenate(self.arrays)
        return whole if dtype is None else whole.astype(dtype, copy=False)


def exchange(values: Any) -> tuple[NDArray[Any] | Chunks, list[NDArray[np.bool_]]] | None:
    """Return the values that Arrow's interface or DLPack gives, and where they are NULL.

    Return None if `values` has neither. Raise `_core.NotNumbers`, with what
    they are instead, if they are no real numbers and no truth values.
    """
    if has(values, "__arrow_c_array__"):
        schema, array = values.__arrow_c_array__()
        return _join(_core.read_arrow_array(schema, array))
    if has(values, "__arrow_c_stream__"):
        return _join(_core.read_arrow_stream(values.__arrow_c_stream__()))
    if has(values, "__dlpack__"):
        return _core.read_dlpack(_capsule(values)), []
    return None


def has(values: Any, method: str) -> bool:
    """Return whether the type of `values` has this method."""
    return callable(getattr(type(values), method, None))


def refuse_device(name: str, values: Any) -> None:
    """Raise a TypeError for values that the processor can't read."""
    if not has(values, "__dlpack_device__"):
        return
    device = values.__dlpack_device__()[0]
    if device not in HOST_DEVICES:
        kind = DEVICES.get(device, f"number {int(device)} of DLPack")
        raise TypeError(
            f"{name} is in the memory of a device ({kind}); copy it to the host first, "
            "for example by .cpu(), .get() or jax.device_get"
        )


def _capsule(values: Any) -> Any:
    """Return the DLPack capsule. Older libraries don't know of versions."""
    try:
        return values.__dlpack__(max_version=(1, 0))
    except TypeError:
        return values.__dlpack__()


def _join(
    chunks: list[tuple[NDArray[Any], NDArray[np.bool_] | None]],
) -> tuple[NDArray[Any] | Chunks, list[NDArray[np.bool_]]]:
    """Return all values, and their mask if some are NULL."""
    if not chunks:
        return np.empty(0), []
    arrays = [values for values, _ in chunks]
    masks: list[NDArray[np.bool_]] = []
    if any(mask is not None for _, mask in chunks):
        parts = [np.zeros(len(v), np.bool_) if mask is None else mask for v, mask in chunks]
        masks = parts if len(parts) == 1 else [np.concatenate(parts)]
    return (arrays[0] if len(arrays) == 1 else Chunks(arrays)), masks
