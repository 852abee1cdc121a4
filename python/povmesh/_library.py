"""Finds and loads the library, once."""

import ctypes
import os
from pathlib import Path
from typing import Any, List

from . import _abi

_FOLDER = Path(__file__).resolve().parent
_NAME = "libPovmesh_64.so.0"


def _candidates() -> List[str]:
    given = os.environ.get("POVMESH_LIB")
    if given:
        return [given]  # and no other: who names one wants that one
    packed = _FOLDER / "lib" / _NAME
    return [str(packed)] if packed.exists() else [_NAME]


def _load() -> Any:
    failures = []
    for name in _candidates():
        try:
            return ctypes.CDLL(name), name
        except OSError as error:
            failures.append(str(error))
    raise ImportError(
        "povmesh: the library cannot be loaded (" + "; ".join(failures) + "); install the wheel,"
        f" or {_NAME} for the whole system, or set POVMESH_LIB to its path"
    )


def _declare(loaded: Any, name: str) -> None:
    for function, (returned, arguments) in _abi.FUNCTIONS.items():
        try:
            found = getattr(loaded, function)
        except AttributeError:
            raise ImportError(
                f"povmesh: {name} has no {function}; it is older than this package"
            ) from None
        found.restype = returned
        found.argtypes = arguments


lib, path = _load()
_declare(lib, path)
# A library of another major version has other structs; a newer one of this version knows ours.
if lib.povmesh_version() // 1000000 != _abi.HEADER_VERSION // 1000000:
    raise ImportError(
        f"povmesh: {path} is version {lib.povmesh_version_text().decode()},"
        " which this package does not know"
    )


def tool_path() -> str:
    """The tool `povmesh`: POVMESH_TOOL, else the one in the package, else the one on the PATH.

    >>> import os
    >>> os.access(povmesh.tool_path(), os.X_OK)
    True
    """
    import shutil

    packed = _FOLDER / "bin" / "povmesh"
    found = os.environ.get("POVMESH_TOOL") or (
        str(packed) if packed.exists() else shutil.which("povmesh")
    )
    if not found:
        raise FileNotFoundError(
            "povmesh: the tool is not installed; install the wheel, or set POVMESH_TOOL to its path"
        )
    return found
