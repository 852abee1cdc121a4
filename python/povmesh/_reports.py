"""What all reports of operations have in common, and how they are made of the structs of C."""

import math
from typing import Any, Dict, Iterator, Tuple

from . import _abi


def names_of(prefix: str) -> Dict[int, str]:
    """The enumerators POVMESH_PREFIX_... with their names in lower case."""
    start = f"POVMESH_{prefix}_"
    return {
        value: name[len(start) :].lower()
        for name, value in vars(_abi).items()
        if name.startswith(start)
    }


class Report:
    """Numbers that an operation told. They cannot be changed; None: not counted."""

    def __init__(self, **values: Any) -> None:
        self.__dict__.update(values)

    def __setattr__(self, name: str, value: Any) -> None:
        raise AttributeError("reports cannot be changed")

    def __delattr__(self, name: str) -> None:
        raise AttributeError("reports cannot be changed")

    def _fields(self) -> Iterator[Tuple[str, Any]]:
        return iter(self.__dict__.items())

    def __eq__(self, other: object) -> bool:
        return type(self) is type(other) and self.__dict__ == other.__dict__

    def __hash__(self) -> int:
        return hash(repr(self))

    def __repr__(self) -> str:
        values = ", ".join(f"{name}={value!r}" for name, value in self._fields())
        return f"{type(self).__name__}({values})"

    def to_dict(self) -> Dict[str, Any]:
        """Plain data, fit for JSON.

        >>> povmesh.load("cat.stl").reduce(keep=0.5).report.to_dict()["faces_after"]
        7946
        """
        return {
            name: list(value) if isinstance(value, tuple) else value
            for name, value in self._fields()
        }


def _plain(value: Any, kind: str) -> Any:
    if kind == "bool":
        return bool(value)
    if isinstance(value, bytes):
        return value.decode("utf-8", "replace")
    if isinstance(value, float):
        return None if math.isnan(value) else value
    return value if isinstance(value, int) or value is None else tuple(value)


def values_of(operation: str, struct: Any, kinds: Dict[str, Any]) -> Dict[str, Any]:
    """The fields of a filled struct as Python values."""
    from ._report_classes import NAMED

    values: Dict[str, Any] = {}
    for name, kind in kinds.items():
        value = getattr(struct, name)
        if f"{operation}.{name}" in NAMED:
            values[name] = names_of(NAMED[f"{operation}.{name}"]).get(value, "a rule")
        else:
            values[name] = _plain(value, getattr(kind, "__name__", str(kind)))
    return values
