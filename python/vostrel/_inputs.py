"""What a user may pass as values and as a mask, made ready for the core."""

from __future__ import annotations

import sys
from collections.abc import Iterator, Mapping
from dataclasses import dataclass
from typing import TYPE_CHECKING, Any, Literal, TypeAlias, get_args

import numpy as np

from vostrel import _core
from vostrel._exchange import Chunks, exchange, refuse_device
from vostrel._options import check_choice, shown
from vostrel._tables import clipped

if TYPE_CHECKING:  # importing the package must be quick
    from numpy.typing import NDArray

    Numbers: TypeAlias = "NDArray[Any] | Slices | Chunks"

NanPolicy = Literal["raise", "omit", "propagate"]

#: Libraries whose collections are computed when somebody asks for the numbers.
LAZY_LIBRARIES = frozenset({"cubed", "dask", "dask_expr", "ibis", "pyspark", "vaex"})


def not_numbers(name: str, error: Exception) -> TypeError:
    """Return the error for values that NumPy can't make into numbers."""
    return TypeError(f"{name} can't be made into an array of numbers: {clipped(str(error), 120)}")


def to_float64(values: Any) -> NDArray[np.float64]:
    """Return the values as an array of doubles."""
    return np.asarray(values, np.float64)


#: The types that a list of real numbers may hold.
REAL = (float, int, np.floating, np.integer, np.bool_)

#: How many values are checked or converted at a time. Between them Ctrl-C is noticed.
SLICE = 1 << 16


class Slices:
    """Numbers that are not in an array. The core reads them slice by slice, to save memory."""

    def __init__(self, name: str, values: Any) -> None:
        self._name = name  # for error messages
        self._values = values

    def __len__(self) -> int:
        return len(self._values)

    def read(self, first: int, count: int) -> NDArray[np.float64]:
        """Return some of the numbers."""
        try:
            return to_float64(self._values[first : first + count])
        except Exception as error:
            raise not_numbers(self._name, error) from error

    def __array__(self, dtype: Any = None, copy: Any = None) -> NDArray[Any]:
        result = np.empty(len(self), dtype or np.float64)
        for first in range(0, len(self), SLICE):
            result[first : first + SLICE] = self.read(first, SLICE)
        return result


@dataclass(frozen=True)
class Columns:
    """Numbers of one length that the core can read, and their masks."""

    values: list[Numbers]
    masks: list[NDArray[np.bool_]]
    names: tuple[str, ...] = ()  # for error messages

    def __len__(self) -> int:
        return len(self.values[0])

    def parts(self, most: int) -> Iterator[Columns]:
        """Return arrays in parts of at most this many objects, and anything else whole.

        Threads may share the iterator.
        """
        arrays = [values for values in self.values if isinstance(values, np.ndarray)]
        if len(self) <= most or len(arrays) < len(self.values):
            return iter([self])

        def part(start: int) -> Columns:
            objects = slice(start, start + most)
            return Columns([a[objects] for a in arrays], [m[objects] for m in self.masks])

        return map(part, range(0, len(self), most))  # a generator can't be shared

    def where_nan(self) -> str:
        """Return in which columns there is NaN that is not masked, how often, and where first."""
        found = []
        for name, values in zip(self.names, self.values):
            whole, count, first = np.asarray(values), 0, 0
            for start in range(0, len(whole), SLICE):
                nan = np.isnan(whole[start : start + SLICE])
                for mask in self.masks:
                    nan &= ~mask[start : start + SLICE]
                places = np.flatnonzero(nan)
                if len(places) and not count:
                    first = start + int(places[0])
                count += len(places)
            if count:
                found.append(f"{count} in {name}, the first at index {first}")
        more = ["..."] if len(found) > 2 else []
        return "; ".join(found[:2] + more)


def prepare(nan_policy: str, mask: Any | None, **columns: Any) -> Columns:
    """Return the columns ready for the core.

    Parameters
    ----------
    nan_policy : str
        One of NanPolicy.
    mask : array_like of bool or None
        True leaves an object out.
    **columns : array_like
        The values, under the names that errors call them by.

    Raises
    ------
    ValueError, TypeError
        If something can't be used, in one sentence.
    """
    check_choice("nan_policy", nan_policy, get_args(NanPolicy))
    values: list[Numbers] = []
    masks: list[NDArray[np.bool_]] = []
    first = ""
    for name, given in columns.items():
        array, masked = read_values(name, given)
        first = first or name
        if values and len(array) != len(values[0]):
            raise ValueError(
                f"{first} and {name} differ in length: {len(values[0])} and {len(array)}"
            )
        values.append(array)
        masks.extend(masked)
    if mask is not None and mask is not np.ma.nomask:
        array = read_mask(mask)
        if len(array) != len(values[0]):
            raise ValueError(
                f"mask has {len(array)} entries, but {first} has {len(values[0])}"
            )
        masks.append(array)
    return Columns(values, masks, tuple(columns))


def read_estimates(estimates: Any) -> dict[str, Any]:
    """Return several estimates by name, from a mapping, a pandas DataFrame or an astropy Table.

    Raises
    ------
    TypeError
        If they have no names.
    ValueError
        If two have the same name.
    """
    if not hasattr(estimates, "items") or getattr(estimates, "ndim", 2) != 2:  # a Series has one
        raise TypeError(
            "estimates must be a mapping of names to arrays, a pandas DataFrame or an astropy "
            f"Table, and come after the reference, not {shown(estimates)}"
        )
    named = [(str(name), values) for name, values in estimates.items()]
    result = dict(named)
    if len(result) < len(named):
        raise ValueError("estimates has two of the same name")
    return result


def check_counts(
    nan_policy: str, n: int, n_masked: int, n_nan: int, columns: Columns | str
) -> None:
    """Raise a ValueError if there is NaN that is not allowed, or if there are no objects.

    For chunks, a text says where NaN is.
    """
    if n_nan and nan_policy == "raise":
        where, propagate = columns, ""
        if isinstance(columns, Columns):
            where, propagate = f" ({columns.where_nan()})", "'propagate' to get NaN, "
        raise ValueError(
            f"{n_nan} of {n} objects have NaN{where}; pass nan_policy='omit' to leave them out, "
            f"{propagate}or mask them"
        )
    if n == 0:
        left_out = [f"{n_masked} masked"] * (n_masked > 0) + [f"{n_nan} with NaN"] * (n_nan > 0)
        raise ValueError("there are no objects" + (f": {', '.join(left_out)}" if left_out else ""))


def read_values(name: str, values: Any) -> tuple[Numbers, list[NDArray[np.bool_]]]:
    """Return the values as numbers that the core reads, and their own masks."""
    refuse_lazy(name, values)
    refuse_table(name, values)
    if name != "by":  # a magnitude may have its unit
        refuse_unit(name, values)
    data, masks = read_data(name, values, "hold real numbers")
    if isinstance(data, (Slices, Chunks)):
        return data, masks
    if holds_only(REAL, data):
        return Slices(name, data), masks
    try:
        array = to_array(data)
    except Exception as error:
        raise not_numbers(name, error) from error
    if array.dtype.kind not in "fiub":
        raise TypeError(f"{name} must hold real numbers, {_found(name, values, array)}")
    array, *masks = (as_column(name, part) for part in [array, *masks])
    if array.dtype.char == "g" and not array.dtype.isnative:
        return Slices(name, array), masks  # long doubles in the other byte order: NumPy converts
    return array, masks


def to_array(values: Any) -> NDArray[Any]:
    """Return the values as an array of the type that NumPy finds."""
    if not isinstance(values, (list, tuple)) or len(values) <= SLICE:
        return np.asarray(values)
    slices = range(0, len(values), SLICE)
    return np.concatenate([np.asarray(values[first : first + SLICE]) for first in slices])


def holds_only(kinds: tuple[type, ...], values: Any) -> bool:
    """Return whether `values` is a list or tuple that holds only these types."""
    if not isinstance(values, (list, tuple)):
        return False
    found: set[type] = set()
    for first in range(0, len(values), SLICE):
        found.update(map(type, values[first : first + SLICE]))
    return all(issubclass(kind, kinds) for kind in found)


def read_mask(mask: Any) -> NDArray[np.bool_]:
    """Return the mask as an array of bool."""
    refuse_lazy("mask", mask)
    refuse_table("mask", mask)
    data, masks = read_data("mask", mask, "hold True and False")
    if any(masked.any() for masked in masks):
        raise ValueError("mask has masked entries; fill them with True or False")
    if holds_only((bool, np.bool_), data):
        data = np.asarray(Slices("mask", data), np.bool_)
    try:
        array = to_array(data)
    except Exception as error:
        raise TypeError(f"mask can't be made into an array: {error}") from error
    if array.dtype.kind != "b" and array.size != 0:
        raise TypeError(f"mask must hold True and False, {_found('mask', mask, array)}")
    return as_column("mask", array).astype(np.bool_, copy=False)


def as_column(name: str, array: NDArray[Any]) -> NDArray[Any]:
    """Return the array in one dimension. The second may have the length 1."""
    if array.ndim == 2 and array.shape[1] == 1:
        return array[:, 0]
    check_dimension(name, array)
    return array


def check_dimension(name: str, array: NDArray[Any]) -> None:
    """Raise a ValueError unless the array is one-dimensional."""
    if array.ndim != 1:
        raise ValueError(
            f"{name} must have one dimension, but has {array.ndim}: its shape is {array.shape}"
        )


def read_data(name: str, values: Any, content: str) -> tuple[Any, list[NDArray[np.bool_]]]:
    """Return the values without their mask, and a list with the mask, if there is one.

    `content` says what they must do.
    """
    if _is_from("pandas", values):
        array = getattr(values, "array", values)
        if hasattr(getattr(array, "dtype", None), "pyarrow_dtype"):
            values = array.__arrow_array__()
        else:  # pandas gives NaN to Arrow as NULL
            return separate_mask(values)
    elif isinstance(values, np.ndarray) or _is_from("astropy", values):
        return separate_mask(values)
    refuse_device(name, values)
    try:
        return exchange(values) or separate_mask(values)
    except _core.NotNumbers as error:
        raise TypeError(f"{name} must {content}, not {error}") from None
    except Exception as error:
        raise not_numbers(name, error) from error


def separate_mask(values: Any) -> tuple[Any, list[NDArray[np.bool_]]]:
    """Return the values without their mask, and a list with the mask, if there is one."""
    if type(values) is np.ndarray:  # importing numpy.ma takes a while
        return values, []
    if isinstance(values, np.ma.MaskedArray):
        return values.data, [] if values.mask is np.ma.nomask else [values.mask]
    if _is_from("astropy", values) and hasattr(values, "unmasked"):
        return values.unmasked, [np.asarray(values.mask)]
    if _is_from("pandas", values):
        return _separate_pandas_mask(values)
    return values, []


def _separate_pandas_mask(values: Any) -> tuple[Any, list[NDArray[np.bool_]]]:
    """Do the same for a Series, Index or array of pandas."""
    array = getattr(values, "array", values)
    if not _is_nullable(array):
        return values, []
    # A nullable array holds the values and the mask as two NumPy arrays. pandas has no public way
    # to get them without a copy.
    data, mask = getattr(array, "_data", None), getattr(array, "_mask", None)
    if isinstance(data, np.ndarray) and isinstance(mask, np.ndarray):
        return data, [mask]
    if array.dtype.kind == "b":
        return array.to_numpy(dtype=np.bool_, na_value=False), [np.asarray(array.isna())]
    return array.to_numpy(dtype=np.float64, na_value=np.nan), [np.asarray(array.isna())]


def _is_nullable(array: Any) -> bool:
    """Return whether this is a pandas array of numbers or truth values that can hold NA."""
    dtype = getattr(array, "dtype", None)
    return (
        getattr(dtype, "na_value", None) is sys.modules["pandas"].NA
        and getattr(dtype, "kind", "O") in "fiub"
    )


def refuse_lazy(name: str, values: Any) -> None:
    """Raise a TypeError for a collection that must be computed before it can be read."""
    libraries = _libraries(values)
    graph = getattr(values, "__dask_graph__", None)
    if "dask" in libraries or "dask_expr" in libraries or (callable(graph) and graph() is not None):
        raise TypeError(
            f"{name} is a lazy dask collection, which would have to be computed here; "
            "use vostrel.dask.point_statistics, or pass the result of its compute()"
        )
    lazy = LAZY_LIBRARIES.intersection(libraries)
    if "polars" in libraries and type(values).__name__ in ("LazyFrame", "Expr"):
        lazy = lazy | {"polars"}
    if lazy:
        raise TypeError(
            f"{name} is a lazy collection of {min(lazy)}, which would have to be computed here; "
            "compute it first, or use vostrel.chunked_statistics"
        )


def refuse_table(name: str, values: Any) -> None:
    """Raise a TypeError for several columns under names."""
    columns = list(values) if isinstance(values, Mapping) else None
    for owner, attribute in (
        (values, "colnames"),  # astropy
        (values, "column_names"),  # pyarrow
        (getattr(values, "dtype", None), "names"),  # NumPy
        (values, "columns"),  # pandas, polars, DuckDB
    ):
        columns = getattr(owner, attribute, None) if columns is None else columns
    if columns is None or callable(columns) or len(columns) == 0:
        return
    if len(columns) == 1 and len(getattr(values, "shape", ())) == 2:
        return  # an array of shape (n, 1)
    first = [clipped(repr(column), 30) for column in list(columns)[:3]]
    more = ", ..." * (len(columns) > 3)
    raise TypeError(
        f"{name} is a table ({type(values).__name__}) with the columns {', '.join(first)}{more}: "
        f"pass one of them, as in table[{first[0]}]"
    )


def refuse_unit(name: str, values: Any) -> None:
    """Raise a TypeError for values of astropy with a unit."""
    if not _is_from("astropy", values):
        return
    unit = getattr(values, "unit", None)
    if unit is None or str(unit) == "":
        return
    raise TypeError(
        f"{name} has the unit '{unit}', but must be dimensionless; convert it, "
        "for example by .to_value(''), or pass its values without the unit"
    )


def _is_from(library: str, values: Any) -> bool:
    """Return whether `values` is of a class of the library, or of one derived from it."""
    return library in sys.modules and library in _libraries(values)


def _libraries(values: Any) -> set[str]:
    """Return the libraries of the class of `values` and of its bases."""
    return {base.__module__.partition(".")[0] for base in type(values).__mro__}


def _found(name: str, values: Any, array: NDArray[Any]) -> str:
    """Return what was found instead, as the end of an error message."""
    if name == "mask" and array.dtype.kind in "iu":
        return f"not integers (dtype {array.dtype}): pass mask.astype(bool), where 1 leaves out"
    if array.ndim == 0 and array.dtype.kind == "O":
        hint = "; pass a list of its values" if isinstance(values, Iterator) else ""
        return f"not one {type(values).__name__}{hint}"
    kind = {"f": "numbers", "c": "complex numbers", "U": "text", "S": "text"}
    kind.update(M="times", m="time spans")
    if array.dtype.kind == "O":
        return (
            "not Python objects (dtype object); convert them first, for example by "
            "pandas.to_numeric or .astype('Float64')"
        )
    found = clipped(str(array.dtype), 60)
    return f"not {kind.get(array.dtype.kind, 'values')} (dtype {found})"
