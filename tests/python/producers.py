"""Columns with Arrow's interface and tensors with DLPack's, made by hand.

A release is counted in `released`. Any field can be wrong.
"""

import ctypes
from collections import Counter

import numpy as np

capsule_new = ctypes.pythonapi.PyCapsule_New
capsule_new.restype = ctypes.py_object
capsule_new.argtypes = ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p

RELEASE = ctypes.CFUNCTYPE(None, ctypes.c_void_p)
INTO = ctypes.CFUNCTYPE(ctypes.c_int, ctypes.c_void_p, ctypes.c_void_p)
TEXT = ctypes.CFUNCTYPE(ctypes.c_void_p, ctypes.c_void_p)


class Schema(ctypes.Structure):
    pass


Schema._fields_ = [
    ("format", ctypes.c_char_p),
    ("name", ctypes.c_char_p),
    ("metadata", ctypes.c_char_p),
    ("flags", ctypes.c_int64),
    ("n_children", ctypes.c_int64),
    ("children", ctypes.POINTER(ctypes.POINTER(Schema))),
    ("dictionary", ctypes.POINTER(Schema)),
    ("release", RELEASE),
    ("private_data", ctypes.c_void_p),
]


class Array(ctypes.Structure):
    pass


Array._fields_ = [
    ("length", ctypes.c_int64),
    ("null_count", ctypes.c_int64),
    ("offset", ctypes.c_int64),
    ("n_buffers", ctypes.c_int64),
    ("n_children", ctypes.c_int64),
    ("buffers", ctypes.POINTER(ctypes.c_void_p)),
    ("children", ctypes.POINTER(ctypes.POINTER(Array))),
    ("dictionary", ctypes.POINTER(Array)),
    ("release", RELEASE),
    ("private_data", ctypes.c_void_p),
]


class Stream(ctypes.Structure):
    _fields_ = [
        ("get_schema", INTO),
        ("get_next", INTO),
        ("get_last_error", TEXT),
        ("release", RELEASE),
        ("private_data", ctypes.c_void_p),
    ]


def pointers(structs, kind):
    """A C array of pointers to the structs."""
    return (ctypes.POINTER(kind) * len(structs))(*map(ctypes.pointer, structs))


class Arrow:
    """One column, or a table of one chunk.

    Parameters
    ----------
    format : str
        Of the numbers, as Arrow names it.
    values : ndarray
        The buffer of the numbers.
    valid : sequence of bool, optional
        Which numbers are not NULL.
    offset : int
        How many of the numbers come before the column.
    table : list of Arrow, optional
        The columns of a table, instead of the above.
    """

    def __init__(self, format="g", values=np.empty(0), valid=None, offset=0, table=None, name="z"):
        self.released = Counter()
        self.kept = [values]  # what the structs point to
        bits = None if valid is None else np.packbits(valid, bitorder="little")
        buffers = [bits] if table is not None else [bits, values]
        self.schema = Schema(format=b"+s" if table is not None else format.encode())
        self.schema.name = name.encode()
        self.schema.release = self.counted("schema", Schema)
        self.array = Array(
            length=len(values) - offset,
            null_count=0 if valid is None else -1,
            offset=offset,
            n_buffers=len(buffers),
        )
        self.array.buffers = (ctypes.c_void_p * len(buffers))(
            *(None if buffer is None else buffer.ctypes.data for buffer in buffers)
        )
        self.array.release = self.counted("array", Array)
        self.kept.append(bits)
        if table is not None:
            self.kept.append(table)
            self.array.length = table[0].array.length if table else 0
            self.schema.n_children = self.array.n_children = len(table)
            self.schema.children = pointers([column.schema for column in table], Schema)
            self.array.children = pointers([column.array for column in table], Array)

    def counted(self, what, kind):
        def release(address):
            self.released[what] += 1
            kind.from_address(address).release = RELEASE()

        return RELEASE(release)

    def __arrow_c_array__(self, requested_schema=None):
        return (
            capsule_new(ctypes.addressof(self.schema), b"arrow_schema", None),
            capsule_new(ctypes.addressof(self.array), b"arrow_array", None),
        )


class ArrowChunks:
    """Several columns of one type as a stream. It fails at the call number `fails`, from 0."""

    def __init__(self, chunks, format="g", fails=None):
        self.chunks = chunks
        self.released = Counter()
        self.kept = Arrow(format)
        self.calls = -1
        self.fails = fails
        self.left = list(chunks)
        self.message = ctypes.create_string_buffer(b"the disk is on fire")
        self.stream = Stream(
            get_schema=INTO(self.get_schema),
            get_next=INTO(self.get_next),
            get_last_error=TEXT(lambda stream: ctypes.addressof(self.message)),
            release=Arrow.counted(self, "stream", Stream),
        )

    def fails_now(self):
        self.calls += 1
        return self.calls == self.fails

    def get_schema(self, stream, result):
        if self.fails_now():
            return 5
        ctypes.memmove(result, ctypes.byref(self.kept.schema), ctypes.sizeof(Schema))
        return 0

    def get_next(self, stream, result):
        if self.fails_now():
            return 5
        if self.left:
            chunk = self.left.pop(0)
            ctypes.memmove(result, ctypes.byref(chunk.array), ctypes.sizeof(Array))
        return 0

    def __arrow_c_stream__(self, requested_schema=None):
        return capsule_new(ctypes.addressof(self.stream), b"arrow_array_stream", None)


class Tensor(ctypes.Structure):
    _fields_ = [
        ("data", ctypes.c_void_p),
        ("device_type", ctypes.c_int32),
        ("device_id", ctypes.c_int32),
        ("ndim", ctypes.c_int32),
        ("code", ctypes.c_uint8),
        ("bits", ctypes.c_uint8),
        ("lanes", ctypes.c_uint16),
        ("shape", ctypes.POINTER(ctypes.c_int64)),
        ("strides", ctypes.POINTER(ctypes.c_int64)),
        ("byte_offset", ctypes.c_uint64),
    ]


class Managed(ctypes.Structure):
    _fields_ = [("tensor", Tensor), ("context", ctypes.c_void_p), ("deleter", RELEASE)]


class Versioned(ctypes.Structure):
    _fields_ = [
        ("major", ctypes.c_uint32),
        ("minor", ctypes.c_uint32),
        ("context", ctypes.c_void_p),
        ("deleter", RELEASE),
        ("flags", ctypes.c_uint64),
        ("tensor", Tensor),
    ]


class DLPack:
    """An array of NumPy through DLPack. Without versions it is as older libraries are."""

    CODES = {"i": 0, "u": 1, "f": 2, "c": 5, "b": 6}

    def __init__(self, array, versioned=True, device=1):
        self.released = Counter()
        self.array = array
        self.device = device
        self.managed = Versioned(major=1) if versioned else Managed()
        self.managed.deleter = RELEASE(lambda address: self.released.update(["tensor"]))
        self.tensor = self.managed.tensor
        self.tensor.data = array.ctypes.data
        self.tensor.device_type = device
        self.tensor.ndim = array.ndim
        self.tensor.code = self.CODES[array.dtype.kind]
        self.tensor.bits = 8 * array.itemsize
        self.tensor.lanes = 1
        shape = [*array.shape, 0]
        strides = [*(stride // array.itemsize for stride in array.strides), 0]
        self.tensor.shape = (ctypes.c_int64 * len(shape))(*shape)
        self.tensor.strides = (ctypes.c_int64 * len(shape))(*strides)

    def __dlpack_device__(self):
        return self.device, 0

    def __dlpack__(self, **options):
        if isinstance(self.managed, Versioned):
            assert options == {"max_version": (1, 0)}
            return capsule_new(ctypes.addressof(self.managed), b"dltensor_versioned", None)
        if options:
            raise TypeError("what is max_version?")
        return capsule_new(ctypes.addressof(self.managed), b"dltensor", None)
