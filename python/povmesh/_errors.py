"""Exceptions: one for each status of the library, with the library's message."""

from typing import Dict, Type

from . import _abi


class Error(Exception):
    """A call that did not end well. `str()` is the library's message; `status` its number."""

    status: int = _abi.POVMESH_INTERNAL


class Cancelled(Error):
    """The progress function, or `Context.cancel`, asked for it."""

    status = _abi.POVMESH_CANCELLED


class OutOfMemory(Error, MemoryError):
    """The system has no more memory, or the call would go beyond the context's limit."""

    status = _abi.POVMESH_OUT_OF_MEMORY


class InvalidArgument(Error, ValueError):
    """An argument has a value that cannot be; the message names it."""

    status = _abi.POVMESH_INVALID_ARGUMENT


class CannotRead(Error, OSError):
    """A file cannot be opened or read."""

    status = _abi.POVMESH_CANNOT_READ


class BadFile(Error, ValueError):
    """A file was read, but is truncated, damaged or no model."""

    status = _abi.POVMESH_BAD_FILE


class CannotWrite(Error, OSError):
    """A file cannot be written; what was there before is unchanged."""

    status = _abi.POVMESH_CANNOT_WRITE


class TooLarge(Error, OverflowError):
    """More triangles than a mesh, or more cells than a grid, can number."""

    status = _abi.POVMESH_TOO_LARGE


class NoResult(Error):
    """Nothing would be left of the model: the plane misses it, no voxel is left."""

    status = _abi.POVMESH_NOTHING


class Unsupported(Error, NotImplementedError):
    """This library does not have the operation, format or field; see `povmesh.has`."""

    status = _abi.POVMESH_UNSUPPORTED


class Busy(Error, RuntimeError):
    """The context is in a call at this moment."""

    status = _abi.POVMESH_BUSY


class InternalError(Error):
    """A fault of the library: please report the message."""

    status = _abi.POVMESH_INTERNAL


class ModelWarning(UserWarning):
    """What an operation could not keep, or what a file format does not hold."""


_OF_STATUS: Dict[int, Type[Error]] = {
    kind.status: kind
    for kind in (
        Cancelled,
        OutOfMemory,
        InvalidArgument,
        CannotRead,
        BadFile,
        CannotWrite,
        TooLarge,
        NoResult,
        Unsupported,
        Busy,
    )
}


def error_of(status: int, message: str) -> Error:
    """The exception for a status; one that is not known is an `InternalError`."""
    error = _OF_STATUS.get(status, InternalError)(message)
    error.status = status
    return error
