"""Arrays of other libraries: Arrow's interface and DLPack."""

import ctypes
import gc

import numpy as np
import pytest
import vostrel
from data_sets import numbers, redshifts, same_bits
from producers import Array, Arrow, ArrowChunks, DLPack, Schema, capsule_new
from vostrel._exchange import exchange

Z = np.array([0.5, 0.25, 1.5, 2.0, 0.75, 3.0])
P = np.array([0.25, 0.25, 2.0, -1.5, 0.5, 1.0])

FORMATS = {
    "g": "f8",
    "f": "f4",
    "e": "f2",
    "c": "i1",
    "s": "i2",
    "i": "i4",
    "l": "i8",
    "C": "u1",
    "S": "u2",
    "I": "u4",
    "L": "u8",
}


def bits(values):
    """As Arrow holds truth values."""
    return np.packbits(values, bitorder="little")


def arrow_bool(values, valid=None, offset=0):
    column = Arrow("b", bits(values), valid, offset)
    column.array.length = len(values) - offset
    return column


@pytest.mark.parametrize("format", FORMATS)
def test_types_of_arrow(format):
    values = np.array([7, 3, 0, 100, 2, 1, 5, 9, 4, 6, 8, 77]).astype(FORMATS[format])
    valid = np.arange(12) % 5 != 1  # the ninth value, which is in the second byte, is valid
    s = vostrel.point_statistics(Arrow(format, values, valid, 2), np.ones(10))
    masked = np.ma.array(values[2:], mask=~valid[2:])
    assert (s.n, s.n_masked) == (8, 2)
    assert same_bits(numbers(s), numbers(vostrel.point_statistics(masked, np.ones(10))))


def test_truth_values_of_arrow():
    values = np.arange(20) % 3 == 0
    s = vostrel.point_statistics(arrow_bool(values, offset=3), np.zeros(17))
    assert same_bits(numbers(s), numbers(vostrel.point_statistics(values[3:] * 1.0, np.zeros(17))))
    s = vostrel.point_statistics(np.arange(17.0), np.zeros(17), mask=arrow_bool(values, offset=3))
    assert (s.n_masked, s.delta.bias) == (6, np.mean(np.arange(17.0)[~values[3:]]))
    with pytest.raises(ValueError, match="mask has masked entries"):
        vostrel.point_statistics([1.0, 2.0], [1.0, 2.0], mask=arrow_bool([True] * 2, [True, False]))


def test_null_is_masked_and_nan_is_nan():
    column = Arrow("g", np.array([1.0, np.nan, np.nan, 2.0]), [True, False, True, True])
    s = vostrel.point_statistics(column, [1.0] * 4, nan_policy="omit")
    assert (s.n, s.n_masked, s.n_nan) == (2, 1, 1)


def test_chunks(rng):
    """With blocks across chunks, and binned by chunks of other lengths."""
    z, p = redshifts(rng, 30_000)
    masked = rng.random(len(z)) < 0.1

    def chunks(values, cuts, valid=None):
        cuts = [0, *cuts, len(values)]
        return ArrowChunks(
            [
                Arrow("g", values[a:b], None if valid is None else valid[a:b])
                for a, b in zip(cuts, cuts[1:])
            ]
        )

    def estimate():
        return chunks(p, [10_000, 20_000], ~masked)

    expected = vostrel.point_statistics(z, p, mask=masked)
    found = vostrel.point_statistics(chunks(z, [1, 1, 9000]), estimate())
    assert same_bits(numbers(found), numbers(expected))
    b = vostrel.binned_statistics(z, estimate(), by=chunks(p, [5, 4100]), bins=5)
    expected = vostrel.binned_statistics(z, p, by=p, bins=5, mask=masked)
    assert same_bits(b.norm.nmad, expected.norm.nmad)
    u = vostrel.bootstrap(chunks(z[:500], [250]), chunks(p[:500], [3]), resamples=3, seed=1)
    expected = vostrel.bootstrap(z[:500], p[:500], resamples=3, seed=1)
    assert same_bits(u.replicates, expected.replicates)


def test_masks_in_chunks():
    mask = ArrowChunks([arrow_bool([True]), arrow_bool([False, True])], "b")
    s = vostrel.point_statistics([1.0, 2.0, 3.0], [1.0, 1.0, 1.0], mask=mask)
    assert (s.n, s.n_masked, s.delta.bias) == (1, 2, 1.0)


def test_no_chunks():
    with pytest.raises(ValueError, match="there are no objects"):
        vostrel.point_statistics(ArrowChunks([]), ArrowChunks([Arrow("g", Z[:0])]))


def test_a_table_of_one_column():
    valid = np.arange(9) != 3
    table = Arrow(values=np.empty(7), valid=valid, offset=2, table=[Arrow("g", np.r_[0, 0, 0, Z])])
    table.schema.children[0].contents.name = None
    table.array.length = 4
    table.array.children[0].contents.offset = 1
    s = vostrel.point_statistics(table, P[:4])
    assert (s.n, s.n_masked, s.delta.bias) == (3, 1, np.mean((Z - P)[[0, 2, 3]]))


REFUSED = {
    "u": "text",
    "vz": "bytes",
    "tdD": "times",
    "tss:UTC": "times",
    "d:5,2": "decimals: cast them to float64",
    "n": "the type null: cast it to float64",
    "+l": "nested values",
    "+r": "nested values",
    "": "values of an unknown type of Arrow",
    "gg": "values of an unknown type of Arrow",
}


@pytest.mark.parametrize("format", REFUSED)
def test_refused_types_of_arrow(format):
    column = Arrow(format, Z)
    with pytest.raises(TypeError) as error:
        vostrel.point_statistics(Z, column)
    assert str(error.value) == f"estimate must hold real numbers, not {REFUSED[format]}"
    assert column.released == {"schema": 1, "array": 1}


def test_refused_dictionaries_tables_and_masks():
    column = Arrow("i", np.arange(6, dtype=np.int32))
    column.schema.dictionary = ctypes.pointer(Schema(format=b"u"))
    with pytest.raises(TypeError, match="reference must hold real numbers, not categories"):
        vostrel.point_statistics(column, Z)
    table = Arrow(table=[Arrow("g", Z, name=name) for name in ("z_spec", "z", "mag", "id")])
    with pytest.raises(TypeError, match="table with the columns 'z_spec', 'z', 'mag', ...:"):
        vostrel.point_statistics(table, Z)
    with pytest.raises(TypeError, match="not a table without columns"):
        vostrel.point_statistics(Arrow(table=[]), Z)
    with pytest.raises(TypeError, match="mask must hold True and False, not text"):
        vostrel.point_statistics(Z, Z, mask=Arrow("u", Z))


MALFORMED = {
    "the length is negative": {"length": -1},
    "the offset is negative": {"offset": -1},
    "length or offset is too large": {"offset": 2**63 - 1},
    "the NULL count is wrong": {"null_count": 7},
    "the buffers are missing": {"n_buffers": 1},
    "the columns are missing": {"n_children": 1},
    "the validity bits are missing": {"null_count": 1},
    "there is a dictionary": {"dictionary": ctypes.pointer(Array())},
    "the values are missing": {"buffers": (ctypes.c_void_p * 2)()},
}


@pytest.mark.parametrize("found", MALFORMED)
@pytest.mark.parametrize("in_table", [False, True])
def test_malformed_arrow(found, in_table):
    column = Arrow("g", Z)
    table = Arrow(table=[column])
    for field, value in MALFORMED[found].items():
        setattr(column.array, field, value)
    given = table if in_table else column
    if in_table and "length" in MALFORMED[found]:
        found = "a column is too short"
    with pytest.raises(TypeError, match="^reference can't be made into an array of .*: " + found):
        vostrel.point_statistics(given, Z)
    gc.collect()
    assert given.released == {"schema": 1, "array": 1}


def test_capsules_that_are_none_or_used():
    class Wrong(Arrow):
        def __arrow_c_array__(self, requested_schema=None):
            return super().__arrow_c_array__()[::-1]

    with pytest.raises(TypeError, match="reference can't .*: it gave no capsule named arrow_sch"):
        vostrel.point_statistics(Wrong("g", Z), Z)
    column = Arrow("g", Z)
    vostrel.point_statistics(column, P)
    with pytest.raises(TypeError, match="it was read before, and can be read only once"):
        vostrel.point_statistics(column, P)
    assert column.released == {"schema": 1, "array": 1}


@pytest.mark.parametrize("fails", [None, 0, 1, 2])
def test_streams_that_fail(fails):
    stream = ArrowChunks([Arrow("g", Z[:2]), Arrow("g", Z[2:])], fails=fails)
    if fails is None:
        vostrel.point_statistics(stream, P)
    else:
        with pytest.raises(TypeError, match="reference can't .*: the disk is on fire"):
            vostrel.point_statistics(stream, P)
    gc.collect()
    assert stream.released == {"stream": 1}
    assert [chunk.released["array"] for chunk in stream.chunks] == [int(fails not in (0, 1)),
                                                                     int(fails is None)]


def test_arrays_are_released_with_the_numbers():
    column = Arrow("g", Z)
    found, masks = exchange(column)
    assert (found.ctypes.data, found.flags.writeable, masks) == (Z.ctypes.data, False, [])
    assert column.released == {"schema": 1}
    view = found[1:]
    del found
    gc.collect()
    assert column.released == {"schema": 1}
    del view
    gc.collect()
    assert column.released == {"schema": 1, "array": 1}


# ---- DLPack -------------------------------------------------------------------------------------


@pytest.mark.parametrize("versioned", [True, False])
@pytest.mark.parametrize("dtype", ["f8", "f4", "f2", "i1", "i2", "i4", "i8", "u1", "u2", "u4", "u8",
                                   "?"])
def test_types_of_dlpack(dtype, versioned):
    values = np.array([7, 3, 0, 100, 2, 1]).astype(dtype)
    for array in (values, values[::-1], np.repeat(values, 2)[1::2], values[:, None]):
        tensor = DLPack(array, versioned)
        found = vostrel.point_statistics(tensor, np.ones(6))
        expected = vostrel.point_statistics(array.reshape(6) * 1.0, np.ones(6))
        assert same_bits(numbers(found), numbers(expected))
        gc.collect()
        assert tensor.released == {"tensor": 1}


def test_dlpack_is_read_in_place():
    tensor = DLPack(Z)
    tensor.tensor.strides = None
    tensor.tensor.byte_offset = 8
    tensor.tensor.shape[0] = 5
    found, masks = exchange(tensor)
    assert (found.ctypes.data, found.shape, masks) == (Z.ctypes.data + 8, (5,), [])
    assert found.strides == (8,)
    assert not found.flags.writeable


def test_masks_of_dlpack():
    hidden = np.arange(6) == 2
    s = vostrel.point_statistics(Z, P, mask=DLPack(hidden))
    assert (s.n_masked, s.delta.bias) == (1, np.mean((Z - P)[~hidden]))


@pytest.mark.parametrize("device, name", [(2, "CUDA"), (8, "Metal"), (99, "number 99 of DLPack")])
def test_devices(device, name):
    with pytest.raises(TypeError) as error:
        vostrel.point_statistics(Z, DLPack(Z, device=device))
    assert str(error.value) == (
        f"estimate is in the memory of a device ({name}); copy it to the host first, "
        "for example by .cpu(), .get() or jax.device_get"
    )


MALFORMED_TENSORS = {
    "the dimensions are wrong": {"ndim": -1},
    "the shape is missing": {"shape": None},
    "the offset is too large": {"byte_offset": 2**64 - 1},
    "a length is negative": {"shape": (ctypes.c_int64 * 1)(-1)},
    "the shape is too large": {"shape": (ctypes.c_int64 * 1)(2**62), "strides": None},
    "a stride is too large": {"strides": (ctypes.c_int64 * 1)(-(2**62))},
    "the numbers are missing": {"data": None},
    "it is on a device": {"device_type": 2},
}


@pytest.mark.parametrize("found", MALFORMED_TENSORS)
def test_malformed_dlpack(found):
    tensor = DLPack(Z)
    for field, value in MALFORMED_TENSORS[found].items():
        setattr(tensor.tensor, field, value)
    with pytest.raises(TypeError, match="^mask can't be made .* malformed: " + found):
        vostrel.point_statistics(Z, Z, mask=tensor)
    gc.collect()
    assert tensor.released == {"tensor": 1}


def test_refused_types_of_dlpack():
    for field, value, found in (
        ("code", 4, "bfloat16: convert it to float32 first"),
        ("code", 5, "complex numbers"),
        ("lanes", 4, "values of an unknown type of DLPack"),
        ("bits", 4, "values of an unknown type of DLPack"),
    ):
        tensor = DLPack(Z)
        setattr(tensor.tensor, field, value)
        with pytest.raises(TypeError, match=f"reference must hold real numbers, not {found}"):
            vostrel.point_statistics(tensor, Z)
        gc.collect()
        assert tensor.released == {"tensor": 1}
    tensor = DLPack(Z)
    tensor.managed.major = 2
    with pytest.raises(TypeError, match="its version is unknown"):
        vostrel.point_statistics(tensor, Z)
    assert tensor.released == {"tensor": 1}


def test_dlpack_without_a_capsule():
    class Wrong(DLPack):
        def __dlpack__(self, **options):
            return capsule_new(ctypes.addressof(self.managed), b"used_dltensor", None)

    with pytest.raises(TypeError, match="it gave no capsule named dltensor"):
        vostrel.point_statistics(Wrong(Z), Z)


def test_dlpack_of_numpy():
    class Theirs:
        def __dlpack__(self, stream=None):
            return Z.__dlpack__()

        def __dlpack_device__(self):
            return Z.__dlpack_device__()

    s = vostrel.point_statistics(Theirs(), P)
    assert same_bits(numbers(s), numbers(vostrel.point_statistics(Z, P)))
