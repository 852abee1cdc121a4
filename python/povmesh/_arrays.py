"""Rows of numbers, both ways: arrays of the library looked at where they lie, arrays of the caller
described to it."""

import ctypes
import sys
import weakref
from typing import TYPE_CHECKING, Any, Callable, Dict, Sequence, Tuple

from . import _abi
from ._errors import InvalidArgument
from ._library import lib

if TYPE_CHECKING:
    import numpy

_ORDER = "<" if sys.byteorder == "little" else ">"
_CODES: Dict[int, str] = {
    _abi.POVMESH_F32: "f4",
    _abi.POVMESH_F64: "f8",
    _abi.POVMESH_U8: "u1",
    _abi.POVMESH_I16: "i2",
    _abi.POVMESH_I32: "i4",
    _abi.POVMESH_U32: "u4",
    _abi.POVMESH_I64: "i8",
    _abi.POVMESH_U64: "u8",
}
_TYPES = {code: number for number, code in _CODES.items()}


class Owner:
    """Owns a handle: releases it with the last reference.

    Not at the end of the process, where the memory goes anyway and a view may still be looked at.
    """

    __slots__ = ("handle", "__weakref__")

    def __init__(self, handle: int, release: Callable[[int], None]) -> None:
        self.handle = handle
        weakref.finalize(self, release, handle).atexit = False


class _Rows:
    """What numpy makes an array of; as its base, it keeps the owner of the memory alive."""

    def __init__(self, owner: Owner, interface: Dict[str, Any]) -> None:
        self.owner = owner
        self.__array_interface__ = interface


def array_of(owner: Owner, view: Any, *shape: int) -> "numpy.ndarray[Any, Any]":
    """A read-only array over the rows of a view, each of the given shape; nothing is copied."""
    import numpy

    code = _CODES[view.type]
    if view.count == 0:
        empty = numpy.empty((0, *shape), code)
        empty.flags.writeable = False
        return empty
    width = int(code[1])
    inner = [width] * len(shape)
    for i in range(len(shape) - 1, 0, -1):
        inner[i - 1] = inner[i] * shape[i]
    interface = {
        "version": 3,
        "shape": (view.count, *shape),
        "typestr": ("|" if width == 1 else _ORDER) + code,
        "strides": (view.stride or width * view.components, *inner),
        "data": (view.data, True),  # read-only
    }
    return numpy.asarray(_Rows(owner, interface))


def view_into(function: Any, owner: Owner, array: int) -> Any:
    """The view that a function of the library gives for one of its arrays; None: it has none."""
    view = _abi.povmesh_view()
    status = function(owner.handle, array, view)
    return view if status == _abi.POVMESH_OK else None


def mesh_array(owner: Owner, array: int, *shape: int) -> "numpy.ndarray[Any, Any]":
    """An array of a mesh."""
    return array_of(owner, view_into(lib.povmesh_mesh_view, owner, array), *shape)


def result_array(owner: Owner, array: int, code: str, *shape: int) -> "numpy.ndarray[Any, Any]":
    """An array of a result; one that it does not have is empty."""
    view = view_into(lib.povmesh_result_view, owner, array)
    if view is None:
        view = _abi.povmesh_view(type=_TYPES[code])
    return array_of(owner, view, *shape)


def numbers_of(
    values: Any,
    name: str,
    codes: Sequence[str],
    other: Dict[str, str],
    shapes: Sequence[Tuple[int, ...]],
) -> "numpy.ndarray[Any, Any]":
    """Values as an array that the library can read, with no copy where it can do without.

    codes: of the numbers that it takes as they are. other: what the rest is turned into, by its
    kind. shapes: what a row may be; the array has one dimension more.
    """
    import numpy

    array = numpy.asarray(values)
    if array.size == 0 and array.ndim == 1:
        array = array.reshape(0, *shapes[0]).astype(codes[0])
    if array.dtype.kind + str(array.dtype.itemsize) not in codes or not array.dtype.isnative:
        if array.dtype.kind not in other:
            raise TypeError(f"{name}: {array.dtype} is no type of number for them")
        array = array.astype(other[array.dtype.kind])
    if array.ndim == 0 or array.shape[1:] not in shapes:
        wanted = " or ".join(
            "(n, " + ", ".join(map(str, shape)) + ")" if shape else "(n,)" for shape in shapes
        )
        raise InvalidArgument(f"{name} must have the shape {wanted}, not {array.shape}")
    inner = array.dtype.itemsize
    is_plain = True
    for length, stride in zip(reversed(array.shape[1:]), reversed(array.strides[1:])):
        is_plain = is_plain and stride == inner
        inner *= length
    # A stride of 0 means "without gaps" to the library; a negative one cannot be told to it.
    if not is_plain or (len(array) > 1 and array.strides[0] <= 0):
        array = numpy.ascontiguousarray(array)
    return array


def describe(array: "numpy.ndarray[Any, Any]") -> Any:
    """The view of an array that `numbers_of` made; it must outlive the call."""
    code = array.dtype.kind + str(array.dtype.itemsize)
    components = 1
    for length in array.shape[1:]:
        components *= length
    return _abi.povmesh_view(
        data=array.__array_interface__["data"][0],
        count=len(array),
        stride=array.strides[0] if len(array) > 1 else 0,
        type=_TYPES[code],
        components=components,
    )


def bytes_at(data: ctypes.c_void_p, size: int) -> bytes:
    """Memory that the library made, as bytes; the library's own is given back."""
    try:
        return ctypes.string_at(data, size)
    finally:
        lib.povmesh_free(data)
