"""Mesh processing for 3D printing: check, repair, reduce, hollow, orient, and more.

>>> mesh = povmesh.load("cat.stl")
>>> shell = mesh.repair().reduce(keep=0.5).hollow(thickness=1.5)
>>> shell.save("shell.3mf").bytes > 1000
True

Lengths are in the unit of the file (3MF: millimetres). Nothing here changes a mesh; operations
return new ones. `docs/python.md` tells more.
"""

from typing import TYPE_CHECKING, Any, Tuple

from . import _abi, _library
from ._context import Context, Log, Progress
from ._convert import as_mesh
from ._errors import (
    BadFile,
    Busy,
    Cancelled,
    CannotRead,
    CannotWrite,
    Error,
    InternalError,
    InvalidArgument,
    ModelWarning,
    NoResult,
    OutOfMemory,
    TooLarge,
    Unsupported,
)
from ._findings import CheckReport
from ._library import tool_path
from ._mesh import (
    Balance,
    Lampshade,
    Mesh,
    Orientations,
    Parts,
    Strength,
    Supports,
    Thickness,
    load,
    render,
)
from ._reports import Report

if TYPE_CHECKING:
    from . import batch as batch

__version__ = _abi.VERSION
library_version: str = _library.lib.povmesh_version_text().decode()
"""Version of the library and how it was built."""


def has(what: str) -> bool:
    """Whether the library has something: "operation:wrap", "read:ply", "write:3mf".

    >>> povmesh.has("operation:repair"), povmesh.has("read:docx")
    (True, False)
    """
    return bool(_library.lib.povmesh_has(what.encode()))


def formats() -> Tuple[str, ...]:
    """The formats that are read and written.

    >>> povmesh.formats()
    ('stl', 'obj', 'ply', '3mf')
    """
    return tuple(
        name
        for name in ("stl", "obj", "ply", "3mf")
        if has(f"read:{name}") and has(f"write:{name}")
    )


def __getattr__(name: str) -> Any:
    if name == "batch":  # loaded when it is used
        import importlib

        return importlib.import_module("povmesh.batch")
    raise AttributeError(f"module 'povmesh' has no attribute '{name}'")


__all__ = [
    "BadFile",
    "Balance",
    "Busy",
    "Cancelled",
    "CannotRead",
    "CannotWrite",
    "CheckReport",
    "Context",
    "Error",
    "InternalError",
    "InvalidArgument",
    "Lampshade",
    "Log",
    "Mesh",
    "ModelWarning",
    "NoResult",
    "Orientations",
    "OutOfMemory",
    "Parts",
    "Progress",
    "Report",
    "Strength",
    "Supports",
    "Thickness",
    "TooLarge",
    "Unsupported",
    "as_mesh",
    "batch",
    "formats",
    "has",
    "library_version",
    "load",
    "render",
    "tool_path",
]
